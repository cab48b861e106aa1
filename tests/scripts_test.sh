#!/usr/bin/env bash
# Each script prints help on request, explains a wrong argument in one line, and does nothing else in either case.
# scripts/demo and scripts/pslog begin no build without their packages.
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

run() { # SCRIPT ARGUMENT...: prints the exit status
    local status=0
    "$@" </dev/null >"$work/out" 2>"$work/err" || status=$?
    echo "$status"
}

expect_refusal() { # SCRIPT ARGUMENT...
    [[ "$(run "$@")" == 2 && ! -s $work/out && "$(wc -l <"$work/err")" == 1 ]] ||
        complain "$* is not explained in one line"
}

for script in scripts/*; do
    for help in -h --help; do
        [[ "$(run "$script" "$help")" == 0 ]] && grep -qi '^usage:' "$work/out" && [[ ! -s $work/err ]] ||
            complain "$script $help gives no help"
    done
    # These pass their arguments to a program.
    case "$script" in scripts/lldb | scripts/pslog) continue ;; esac
    expect_refusal "$script" --bogus
done
expect_refusal scripts/demo --frames
expect_refusal scripts/demo --frames 60 60
expect_refusal scripts/demo --bogus --fake
if [[ -e $work/started ]]; then
    cat "$work/started" >&2
    failed=1
fi

# Without its packages the log reader is not built, nor the pipeline, which takes each of its options.
[[ "$(run scripts/pslog summary)" == 1 ]] || complain "scripts/pslog succeeds without its packages"
options="$(sed -n 's/^  \(--[a-z-]*\) .*/\1/p' examples/pipeline/options.cpp | sort -u)"
[[ "$(wc -w <<<"$options")" -ge 8 ]] || complain "the pipeline's options are not found"
for option in $options; do
    [[ "$(run scripts/demo "$option" 1)" == 1 ]] || complain "scripts/demo $option does not begin with its packages"
done
if grep "^$work/cmake " "$work/started" >&2; then complain "a script begins a build without its packages"; fi
exit "$failed"
