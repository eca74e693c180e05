#!/bin/sh
# check_man_pages.sh SOURCE MAN PROGRAM...
# Every manual page, those of the tree and those made in MAN, is read without a warning by man and by
# mandoc, and its title says the name and the section of its file. Each program has a page, which names
# its options and subcommands; each module of the library is listed.
set -u
source=$1
man=$2
shift 2
status=0
for program in man mandoc; do
    command -v $program >/dev/null || { echo "$program is not installed, see scripts/setup.sh"; exit 77; }
done
complain() {
    echo "$1: $2"
    status=1
}
for page in "$source"/src/*/*.[1-8] "$source"/docs/*.[1-8] "$man"/man*/*.[1-8]; do
    if [ "$(head -c 4 "$page")" = ".so " ]; then
        [ -f "$man/$(cut -d' ' -f2 "$page")" ] || complain "$page" "leads to nothing"
        continue
    fi
    name=$(basename "$page")
    title=$(echo "${name%.*} ${name##*.}" | tr '[:lower:]' '[:upper:]')
    grep -q "^\.TH $title 20" "$page" || complain "$page" "its title is not $title"
    text=$(MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
    [ -z "$text" ] || complain "$page" "$text"
    text=$(mandoc -T lint -W warning "$page" 2>&1)
    [ -z "$text" ] || complain "$page" "$text"
done
# The page of a program, as text on one line.
text_of() {
    for page in "$source"/src/*/"$1".1 "$source"/src/*/"$1".8; do
        [ ! -f "$page" ] || mandoc -T utf8 "$page" | col -bx | tr -s ' \n' '  '
    done
}
has_options_of() { # program, subcommand...
    for option in $("$@" --help 2>&1 | grep -oE -e '--[a-z][a-z-]*' | sort -u); do
        case $text in
        *"$option"[!a-z-]*) ;;
        *) complain "$*" "$option is not in its manual page" ;;
        esac
    done
}
for program in "$@"; do
    text=$(text_of "$(basename "$program")")
    [ -n "$text" ] || complain "$program" "has no manual page"
    has_options_of "$program"
    for subcommand in $("$program" --help | sed -n '/^Subcommands/,$s/^  \([a-z]*\) .*/\1/p'); do
        case $text in
        *" $subcommand "*) ;;
        *) complain "$program" "$subcommand is not in its manual page" ;;
        esac
        has_options_of "$program" "$subcommand"
    done
done
for page in "$man"/man3/zeb2-*.3; do
    name=$(basename "$page" .3 | sed 's/-/\\\\-/g')
    grep -q "^\.BR $name (3)" "$man/man3/libzeb2.3" || complain "$page" "libzeb2(3) does not list it"
done
# Every function of the interface is found by its name.
for name in $(sed -n 's/^ *\([A-Za-z_][A-Za-z0-9_]*\);$/\1/p' "$source/src/libzeb2/libzeb2.map"); do
    [ -f "$man/man3/$name.3" ] || complain "$name" "has no manual page"
done
exit $status
