# Completion of pslog's arguments for bash. The words are taken from the output of pslog --help.

_pslog_words() { # HEADING HELP: prints the first words of the lines under a heading
    sed -n "/^$1:\$/,/^\$/ s/^  \\([a-z-][a-z,-]*\\).*/\\1/p" <<<"$2" | tr ',' '\n'
}

_pslog() {
    local current="${COMP_WORDS[COMP_CWORD]}" help subcommand="" word
    help="$("$1" --help 2>/dev/null)"
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word != -* ]]; then
            subcommand="$word"
            break
        fi
    done
    COMPREPLY=()
    if [[ -z $subcommand ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_pslog_words Subcommands "$help")" -- "$current")
    else
        help="$("$1" "$subcommand" --help 2>/dev/null)"
    fi
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_pslog_words Options "$help")" -- "$current")
    fi
}

complete -o default -F _pslog pslog
