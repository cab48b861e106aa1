#!/usr/bin/env bash
# Each script prints help on request, explains a wrong argument in one line, and does nothing else in either case.
# usage: scripts_test.sh
set -euo pipefail

cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
# Stand-ins for the programs with which a script would begin its work: they note that they were started.
for program in cmake dpkg-query apt-get sudo doxygen; do
    printf '#!/bin/sh\necho "$0 $*" >>"%s/started"\nexit 1\n' "$work" >"$work/$program"
    chmod +x "$work/$program"
done
export PATH="$work:$PATH"

failed=0
complain() {
    echo "$1" >&2
    cat "$work/out" "$work/err" >&2
    failed=1
}

run() { # SCRIPT ARGUMENT: prints the exit status
    local status=0
    "$1" "$2" </dev/null >"$work/out" 2>"$work/err" || status=$?
    echo "$status"
}

for script in scripts/*; do
    for help in -h --help; do
        [[ "$(run "$script" "$help")" == 0 ]] && grep -qi '^usage:' "$work/out" && [[ ! -s $work/err ]] ||
            complain "$script $help gives no help"
    done
    # These pass their arguments to a program.
    case "$script" in scripts/demo | scripts/lldb | scripts/pslog) continue ;; esac
    [[ "$(run "$script" --bogus)" == 2 && ! -s $work/out && "$(wc -l <"$work/err")" == 1 ]] ||
        complain "$script does not explain a wrong argument in one line"
done
if [[ -e $work/started ]]; then
    cat "$work/started" >&2
    failed=1
fi

# Without its packages the log reader is not built.
scripts/pslog summary </dev/null >"$work/out" 2>"$work/err" && complain "scripts/pslog succeeds without its packages"
if grep "^$work/cmake " "$work/started" >&2; then complain "scripts/pslog begins a build without its packages"; fi
exit "$failed"
