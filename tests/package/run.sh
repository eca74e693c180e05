#!/bin/sh
# run.sh BUILD_DIR CMAKE CC CXX FLAGS
# Installs the library into a private place and builds and runs applications against it there, found
# by find_package and by pkg-config.
set -eu
build=$1
cmake=$2
cc=$3
cxx=$4
flags=$5
source=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The installed files must do by themselves.
unset CPATH C_INCLUDE_PATH CPLUS_INCLUDE_PATH LIBRARY_PATH LD_LIBRARY_PATH || :

for component in libzeb2 libzeb2-dev; do
    "$cmake" --install "$build" --prefix "$work/usr" --component $component >"$work/log"
done

quietly() {
    "$@" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
}
quietly "$cmake" -S "$source" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/usr" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags"
quietly "$cmake" --build "$work/build"
for program in plain own alone; do
    "$work/build/$program" || { echo "$program failed"; exit 1; }
done

libdir=$(dirname "$(find "$work/usr" -name libzeb2.so)")
if command -v pkg-config >/dev/null; then
    # shellcheck disable=SC2046,SC2086
    "$cxx" -std=c++17 $flags "$source/plain.cpp" -o "$work/plain" \
        $(PKG_CONFIG_PATH=$libdir/pkgconfig pkg-config --cflags --libs zeb2) -Wl,-rpath,"$libdir"
    "$work/plain"
fi

# Every installed header stands by itself, in both languages.
for header in "$work"/usr/include/zeb2/*.h "$work"/usr/include/zeb2/definitions/*.h; do
    echo "#include <zeb2/${header#"$work"/usr/include/zeb2/}>" >"$work/header.c"
    strict="-Wall -Wextra -Wpedantic -Werror -fsyntax-only -I $work/usr/include"
    # shellcheck disable=SC2086
    "$cc" -std=c11 $strict "$work/header.c"
    # shellcheck disable=SC2086
    "$cxx" -std=c++17 $strict -x c++ "$work/header.c"
done
