#!/bin/bash
# check_blocks.sh ZEBCTL ZEBGEN INCLUDE_DIR CC SOURCE DOCUMENT...
# Every fenced block of the documents is of a kind that is checked:
#   c, cpp, cmake, ini  part of an example, all of which are built and run against an installation; or
#                       a whole definition header, which zebgen and the compiler understand
#   conf                lines whose keys zebctl knows
#   sh                  commands, see check_commands.sh
#   client, server      bytes, which the test of the serial link exchanges
#   none                output and pictures
set -u
zebctl=$1
zebgen=$2
include=$3
cc=$4
source=$5
shift 5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
checked=0
complain() {
    echo "$document: the block of line $line: $1"
    status=1
}
flat() { sed 's/^ *//' "$1"; }
# Indented or not.
is_part_of_example() {
    local example text
    text=$(flat "$1")
    while read -r example; do
        case "$(flat "$example")" in *"$text"*) return 0 ;; esac
    done < <(find "$source/examples" -type f)
    return 1
}
is_definition() {
    grep -q '^#endif' "$1" || return 1
    cp "$1" "$work/definition.h"
    "$zebgen" --docs "$work/pages" "$work/definition.h" &&
        "$cc" -std=c11 -Wall -Werror -fsyntax-only -I "$include" "$work/definition.h"
}
check() { # language, file
    checked=$((checked + 1))
    case $1 in
    c | cpp | cmake | ini)
        is_part_of_example "$2" || is_definition "$2" || complain "$1 that no example has"
        ;;
    conf)
        "$zebctl" conf check "$2" >"$work/told" 2>&1 || complain "$(cat "$work/told")"
        ;;
    sh | client | server | '') ;;
    *) complain "nobody checks the language $1" ;;
    esac
}
for document in "$@"; do
    rm -f "$work"/block.*
    awk -v to="$work/block" '
        /^ *```/ { inside = !inside; if (inside) { language = $1; sub(/```/, "", language)
                   file = to "." NR "." language; printf "" >file } else close(file); next }
        inside { print >file }
        END { if (inside) print FILENAME ": a block does not end" }' "$document" >"$work/said"
    [ ! -s "$work/said" ] || { cat "$work/said"; status=1; }
    for block in "$work"/block.*; do
        [ -e "$block" ] || continue
        line=${block#"$work"/block.}
        language=${line#*.}
        line=${line%%.*}
        check "$language" "$block"
    done
done
echo "$checked blocks checked"
[ $checked -gt 0 ] || status=1
exit $status
