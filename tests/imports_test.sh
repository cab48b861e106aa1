#!/usr/bin/env bash
# Fails unless the library waits with the C library's function for the monotonic clock, and never with a wait of the C++
# library, which may use the wall clock.
# usage: imports_test.sh NM LIBRARY
set -euo pipefail

imports="$("$1" --dynamic --undefined-only --demangle "$2" | sed -E 's/^ *[Uw] //; s/@.*//')"
if grep -E '^pthread_cond_timedwait$|condition_variable::.*(wait_until|wait_for|timed_wait)' <<<"$imports"; then
    echo "$2 waits with these functions" >&2
    exit 1
fi
grep -x pthread_cond_clockwait <<<"$imports"
