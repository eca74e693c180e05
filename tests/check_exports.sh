#!/bin/sh
# check_exports.sh LIBRARY MAP COMPILER INCLUDE_DIR HEADER...
# The interface is stated three times, by the
# headers (ZEB_API), by the linker map and by the built library; the three must agree.
set -eu
export LC_ALL=C
library=$1
map=$2
compiler=$3
include_dir=$4
shift 4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Declarations as the compiler sees them: comments and macros are gone, one declaration a line. The
# name stands before the first parenthesis of a function or the bracket or end of a variable.
for header in "$@"; do
    echo "#include <zeb2/$header>"
done >"$work/all.h"
"$compiler" -E -P -x c -I "$include_dir" "$work/all.h" >"$work/declarations"
tr '\n' ' ' <"$work/declarations" | sed 's/[;{}]/\n/g' |
    sed -n 's/.*__attribute__((visibility("default")))//p' |
    sed -E 's/__attribute__ *\(\(.*\)\)//; s/[[(].*//; s/ +$//; s/.*[ *]//' |
    sort -u >"$work/headers"

sed -n '/global:/,/local:/p' "$map" | sed -E '/global:|local:/d; s/#.*//' | tr -d ' \t' |
    tr ';' '\n' | grep . | sort -u >"$work/map"

# Sanitizers add symbols of their own, the linker one for the version node.
nm -D --defined-only "$library" | awk '$2 != "A" { print $3 }' | sed 's/@.*//' |
    grep -Ev '^(__asan|__odr_asan|__ubsan|__tsan|_init$|_fini$)' | sort -u >"$work/library"

status=0
compare() { # NAME-OF-FIRST FIRST NAME-OF-SECOND SECOND
    comm -23 "$2" "$4" | sed "s/^/$1 but not $3: /" >"$work/difference"
    if [ -s "$work/difference" ]; then
        cat "$work/difference"
        status=1
    fi
}
compare "in a header" "$work/headers" "in the map" "$work/map"
compare "in the map" "$work/map" "in a header" "$work/headers"
compare "in the map" "$work/map" "exported by the library" "$work/library"
compare "exported by the library" "$work/library" "in the map" "$work/map"
[ -s "$work/headers" ] || { echo "no declaration found"; status=1; }
exit $status
