#!/bin/bash
# check_commands.sh BIN_DIR DOCUMENT...
# The commands in the documents are ones that the programs understand: each subcommand exists, and each
# option is among those of its --help. Of the scripts, that they are there and speak of the option.
# Looked at are shell blocks and code within the text.
set -u
bin=$1
scripts=$(cd "$(dirname "$0")/.." && pwd)
shift
declare -A help
checked=0
status=0

commands() { # document: one command a line
    awk '/^ *```/ { shell = !inside && /```sh$/; inside = !inside; next }
        inside { if (shell) print; next }
        { text = $0; while (match(text, /`[^`]+`/)) {
              print substr(text, RSTART + 1, RLENGTH - 2); text = substr(text, RSTART + RLENGTH) } }' "$1" |
        sed 's/[;&|()]\{1,2\}/\n/g; s/ #.*//'
}
help_of() { # program, subcommands...
    [ -n "${help[$*]+set}" ] || help[$*]=$("$bin/$1" "${@:2}" --help 2>&1) || help[$*]=
}
complain() {
    echo "$document: $1: $2"
    status=1
}
check() { # the words of a command
    local words=("$@") called=("$(basename "$1")") word
    words=("${words[@]:1}")
    while [ "${called[0]}" = zebctl ] && [ ${#words[@]} -gt 0 ] && [[ ${words[0]} =~ ^[a-z]+$ ]]; do
        case "${called[*]}" in zebctl | "zebctl io" | "zebctl conf" | "zebctl log") ;; *) break ;; esac
        [ "${called[*]} ${words[0]}" != "zebctl log interval" ] || { called+=(interval); break; }
        [ "${called[*]}" != "zebctl log" ] || break
        help_of "${called[@]}"
        grep -q "^  ${words[0]} " <<<"${help[${called[*]}]}" ||
            { complain "$*" "${called[*]} has no subcommand ${words[0]}"; return; }
        called+=("${words[0]}")
        words=("${words[@]:1}")
    done
    help_of "${called[@]}"
    [ -n "${help[${called[*]}]}" ] || { complain "$*" "no such command"; return; }
    for word in "${words[@]}"; do
        [[ $word =~ ^--?[a-z] ]] || continue
        word=${word%%=*}
        grep -qE -e "(^|[ ,])$word([ ,:=[]|\$)" <<<"${help[${called[*]}]}" ||
            complain "$*" "${called[*]} has no option $word"
    done
    checked=$((checked + 1))
}

check_script() { # its words
    [ -x "$scripts/$1" ] || complain "$*" "no such script"
    for word in "${@:2}"; do
        [[ $word =~ ^--[a-z] ]] || continue
        grep -q -e "${word%%=*}" "$scripts/$1" || complain "$*" "$1 has no option $word"
    done
    checked=$((checked + 1))
}

for document in "$@"; do
    while read -ra words; do
        for i in "${!words[@]}"; do
            word=${words[i]}
            case $word in
            sudo | ssh | station | -N | *=*) continue ;;
            scripts/*.sh)
                check_script "${words[@]:i}"
                break
                ;;
            *)
                name=$(basename -- "$word")
                if [ -x "$bin/$name" ] && [ $((${#words[@]} - i)) -gt 1 ]; then
                    check "${words[@]:i}"
                fi
                break
                ;;
            esac
        done
    done < <(commands "$document")
done
echo "$checked commands checked"
[ $checked -gt 0 ] || status=1
exit $status
