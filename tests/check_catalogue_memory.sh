#!/bin/sh
# check_catalogue_memory.sh LIBRARY OBJECT...
# The catalogue costs a daemon no work of its own at start and no memory that stays writable. Its
# tables hold pointers, which the loader sets when it maps the library; their pages are private to
# the process from then on, and read-only. So: the tables lie in sections that are read-only then,
# and nothing that was generated (OBJECTs) runs at start.
set -eu
export LC_ALL=C
library=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
fail() {
    echo "$1"
    status=1
}

# NUMBER NAME TYPE SIZE FLAGS of each section that is not empty.
sections() {
    readelf -SW "$1" | sed -n 's/^ *\[ *\([0-9]*\)\] */\1 /p' | awk '$1 != 0 {
        flags = $8 ~ /^[A-Za-z]+$/ ? $8 : "-"
        if ($6 !~ /^0+$/) print $1, $2, $3, $6, flags
    }'
}

for object in "$@"; do
    sections "$object" >"$work/sections"
    grep -q ' \.rodata' "$work/sections" || fail "$object: holds no tables"
    while read -r _ name type _ flags; do
        case $type in INIT_ARRAY | FINI_ARRAY | PREINIT_ARRAY) fail "$object: $name runs at start" ;; esac
        case $name in .ctors* | .init*) fail "$object: $name runs at start" ;; esac
        case $flags in *X*) fail "$object: $name holds code" ;; esac
        case $flags:$name in
        *W*:.data.rel.ro*) ;;
        *W*:*) fail "$object: $name stays writable" ;;
        esac
    done <"$work/sections"
done

# Every table of the library by the section that it lies in.
sections "$library" >"$work/sections"
readelf -sW "$library" |
    awk '$4 == "OBJECT" && $8 ~ /^(_ndsd_|_nmsg_|g_libzeb2_revision)/ { print $7, $8 }' | sort -u |
    awk 'NR == FNR { name[$1] = $2; next } { print $2, name[$1] }' "$work/sections" - >"$work/tables"
for table in _ndsd_structures _ndsd_structures_ext _nmsg_list _nmsg_list_ext g_libzeb2_revision; do
    grep -q "^$table " "$work/tables" || fail "$library: no table $table"
done
while read -r table section; do
    case $section in
    .rodata | .data.rel.ro) ;;
    *) fail "$library: $table lies in $section, which stays writable" ;;
    esac
done <"$work/tables"

# The loader takes the right to write to .data.rel.ro away again.
relro=$(readelf -lW "$library" | awk '/^ +[A-Z_]+ +0x/ { type[n++] = $1 }
    /^ +[0-9][0-9] / && type[$1 + 0] == "GNU_RELRO"')
case $relro in
*" .data.rel.ro"*) ;;
*) fail "$library: .data.rel.ro is not made read-only after loading" ;;
esac

# One entry, the compiler's own: no object of the library is constructed at start.
pointer=8
readelf -hW "$library" | grep -q 'Class: *ELF32' && pointer=4
count=$(awk '$2 == ".init_array" { print $4 }' "$work/sections")
[ "$((0x${count:-0} / pointer))" -le 1 ] ||
    fail "$library: $((0x$count / pointer)) functions run when it is loaded"
exit $status
