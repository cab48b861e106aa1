#!/usr/bin/env bash
# The manual page and the completion of pslog name all of its subcommands.
# usage: pslog_manual_test.sh PSLOG
set -euo pipefail

pslog="$1"
tools="$(dirname "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")")/tools/pslog"
subcommands="$("$pslog" --help | sed -n '/^Subcommands:/,$ s/^  \([a-z]\+\) .*/\1/p' | sort)"
[[ $(wc -w <<<"$subcommands") -ge 3 ]] # else the help was not read correctly above

in_manual="$(sed -n '/^\.SH SUBCOMMANDS/,/^\.SH OPTIONS/ s/^\.BR \([a-z]\+\) .*/\1/p' "$tools/pslog.1" | sort)"
missing="$(comm -23 <(echo "$subcommands") <(echo "$in_manual"))"
[[ -z $missing ]] || { echo "not in the manual: $missing" >&2; exit 1; }

source "$tools/pslog.bash"
complete_after() { # WORD...: prints the completions of the last word
    COMP_WORDS=(pslog "$@") COMP_CWORD=$#
    _pslog "$pslog"
    printf '%s\n' "${COMPREPLY[@]}" | sort
}
diff <(echo "$subcommands") <(complete_after "") >&2 ||
    { echo "pslog.bash completes other subcommands (>) than --help lists (<)" >&2; exit 1; }
[[ $(complete_after timeline --sv) == --svg ]] || { echo "timeline --sv is not completed" >&2; exit 1; }
