#!/bin/sh
# check_man_pages.sh SOURCE MAN
# Every manual page, those of the tree and those made in MAN, is read without a warning by man and by
# mandoc, and its title says the name and the section of its file.
set -u
source=$1
man=$2
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
# Every function of the interface is found by its name.
for name in $(sed -n 's/^ *\([A-Za-z_][A-Za-z0-9_]*\);$/\1/p' "$source/src/libzeb2/libzeb2.map"); do
    [ -f "$man/man3/$name.3" ] || complain "$name" "has no manual page"
done
exit $status
