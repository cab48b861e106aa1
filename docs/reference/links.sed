# Makes the links of a page fit for the reference: to a header or another page, or else plain text.
s|\]\((\.\./)?include/([a-z_]+\.h)\)|](@ref \2)|g
s|\[([^]]*)\]\(#[^)]*\)|\1|g
s/\[([^]]*)\]\((\.\.\/)?(abi|bench|examples|platform|scripts|src|tests|tools)[^)]*\)/\1/g
s/\[([^]]*)\]\((\.\.\/|docs\/)?(architecture|CONTRIBUTING)\.md(#[^)]*)?\)/\1/g
s|\]\((docs/)?([a-z]+)\.md(#[^)]*)?\)|](@ref md_docs_\2)|g
s/\]\((\.\.\/)?(SECURITY|CHANGELOG)\.md\)/](@ref md_\2)/g
