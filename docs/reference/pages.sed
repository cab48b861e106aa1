# Makes a page fit for the reference. A link leads to a header or another page, or else becomes plain text. In a table
# Doxygen would drop the % of a message such as `tag %d`; %% is printed as %.
s|\]\((\.\./)?include/([a-z_]+\.h)\)|](@ref \2)|g
s|\[([^]]*)\]\(#[^)]*\)|\1|g
s/\[([^]]*)\]\((\.\.\/)?(abi|bench|examples|platform|scripts|src|tests|tools)[^)]*\)/\1/g
s/\[([^]]*)\]\((\.\.\/|docs\/)?(architecture|CONTRIBUTING)\.md(#[^)]*)?\)/\1/g
s|\]\((docs/)?([a-z]+)\.md(#[^)]*)?\)|](@ref md_docs_\2)|g
s/\]\((\.\.\/)?(SECURITY|CHANGELOG)\.md\)/](@ref md_\2)/g
/^\|/s/%([a-z])/%%\1/g
