#!/usr/bin/env bash
# Fails, and prints the difference, unless the libraries export the same names as the library of the dumps.
# usage: abi_exports_test.sh NM DUMPED LIBRARY...
set -euo pipefail

symbols() {
    "$1" --dynamic --defined-only --format=just-symbols --demangle "$2" | grep -v '^zarn::dumped' | sort
}

for library in "${@:3}"; do
    if ! diff <(symbols "$1" "$2") <(symbols "$1" "$library"); then
        echo "'<': exported by $2 and not by $library. '>': the other way round." >&2
        exit 1
    fi
done
echo "$(symbols "$1" "$2" | wc -l) symbols"
