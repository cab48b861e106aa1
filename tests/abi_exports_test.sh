#!/usr/bin/env bash
# Fails, and names the difference, unless a library defines exactly the symbols of a list for others.
# usage: abi_exports_test.sh NM LIBRARY LIST
set -euo pipefail

expected="$(sed -E '/^(#|$)/d' "$3" | sort -u)"
actual="$("$1" --dynamic --defined-only --demangle "$2" | cut -d ' ' -f 3- | sed -E 's/std::__[a-z0-9]+::/std::/g' | sort -u)"
if ! diff <(echo "$expected") <(echo "$actual"); then
    echo "'<': $3 lists what $2 does not export. '>': it exports what is not listed." >&2
    exit 1
fi
echo "$(wc -l <<<"$actual") symbols, all listed"
