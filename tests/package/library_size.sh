#!/bin/sh
# library_size.sh LIMIT COMPILER NM STRIP MAP OBJECT...
# The library stays small: stripped and without the tables of the catalogue, whose size is that of the
# station's definitions, it has at most LIMIT bytes. What the tables add is told, too.
set -eu
limit=$1
compiler=$2
nm=$3
strip=$4
map=$5
shift 5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

size() { # objects: of the stripped library that they make
    "$compiler" -shared -pthread -o "$work/library.so" "-Wl,--version-script=$map" "$@" -lm
    "$strip" "$work/library.so"
    wc -c <"$work/library.so"
}
whole=$(size "$@")
: >"$work/empty.cpp"
for object in "$@"; do
    shift
    case $object in
    */generated/*)
        # Its names, with nothing behind them.
        "$nm" -g --defined-only "$object" | awk '{ print "extern \"C\" char " $3 "[8];" }
            { print "char " $3 "[8];" }' >>"$work/empty.cpp"
        ;;
    *) set -- "$@" "$object" ;;
    esac
done
[ -s "$work/empty.cpp" ] || { echo "no object is of the catalogue"; exit 1; }
"$compiler" -fPIC -c -o "$work/empty.o" "$work/empty.cpp"
own=$(size "$@" "$work/empty.o")
echo "stripped: $own bytes, and $((whole - own)) of the catalogue"
[ "$own" -le "$limit" ] || { echo "more than $limit"; exit 1; }
