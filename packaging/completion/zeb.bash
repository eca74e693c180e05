# Completion of the station's programs in bash: options and subcommands, as their own --help shows
# them, so that there is no second list to keep. Files elsewhere.

_zeb_words() { # SECTION of the help text: its first words
    awk -v section="$1:" '
        /^[^ ]/ { inside = $0 == section; next }
        inside && /^  [^ ]/ { count = split($1, words, ","); for (i = 1; i <= count; ++i) print words[i] }'
}

_zeb() {
    local word=${COMP_WORDS[COMP_CWORD]} command=("${COMP_WORDS[0]/#\~/$HOME}") help i
    help=$("${command[@]}" --help 2>/dev/null </dev/null) || return
    for ((i = 1; i < COMP_CWORD; ++i)); do
        _zeb_words Subcommands <<<"$help" | grep -qxF -e "${COMP_WORDS[i]}" || continue
        command+=("${COMP_WORDS[i]}")
        help=$("${command[@]}" --help 2>/dev/null </dev/null) || return
    done
    local section=Subcommands
    [[ $word == -* ]] && section=Options
    mapfile -t COMPREPLY < <(compgen -W "$(_zeb_words $section <<<"$help")" -- "$word")
}

complete -o default -F _zeb zebctl zebmsgd zebseriald zeblogd gps flow waypoint \
    zeb-nmea-sim zeb-flow-sim
