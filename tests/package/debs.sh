#!/bin/bash
# debs.sh BUILD_DIR CMAKE CC CXX
# Builds the Debian packages of the build tree, has lintian judge them, unpacks them into an empty root,
# builds programs in C and C++ against what is there, found by pkg-config and by CMake, and runs the
# packages' demo, without root where there is a way to be somebody else.
# Status 77 where a program is missing that this needs.
set -euo pipefail
build=$(realpath "$1")
cmake=$2
cc=$3
cxx=$4
source=$(realpath "$(dirname "$0")/../..")
work=$(mktemp -d)
pids=()
stop_all() {
    for pid in "${pids[@]}"; do
        kill "$pid" 2>/dev/null && wait "$pid" || :
    done
    rm -rf "$work"
}
trap stop_all EXIT
trap 'exit 1' HUP INT TERM
unset CPATH C_INCLUDE_PATH CPLUS_INCLUDE_PATH LIBRARY_PATH LD_LIBRARY_PATH ZEB2 ZEB2RUN ZEB2SERVER \
    ZEB2STARTUP DESTDIR PKG_CONFIG_PATH DEBFULLNAME DEBEMAIL || :

say() { echo "packages: $((SECONDS)) s: $*"; }
fail() {
    echo "packages: FAILED: $*"
    exit 1
}
quietly() {
    "$@" >"$work/step.log" 2>&1 || { cat "$work/step.log"; fail "$*"; }
}
wait_for() { # what, command...
    local what=$1 tries
    shift
    for ((tries = 0; tries < 300; tries++)); do
        if "$@" >/dev/null 2>&1; then return; fi
        sleep 0.1
    done
    tail -n 20 "$work"/*.log
    fail "$what did not appear"
}
for needed in dh dpkg-buildpackage chrpath lintian pkg-config; do
    command -v $needed >/dev/null || { echo "packages: skipped: no $needed"; exit 77; }
done

say "building the packages"
quietly "$source/scripts/package.sh" --build "$build" --out "$work/debs"
names=(libzeb2-0 libzeb2-dev zeb-common zeb-daemons zeb-doc zeb-serial zeb-server zeb-tools)
[ "$(cd "$work/debs" && printf '%s\n' *.deb | sed 's/_.*//' | tr '\n' ' ')" = "${names[*]} " ] ||
    fail "packages: $(ls "$work/debs")"

say "lintian"
quietly lintian --allow-root --profile debian --fail-on error,warning "$work"/debs/*.changes
cat "$work/step.log"
if grep '^[EW]:' "$work/step.log"; then fail "lintian"; fi

say "unpacking them into an empty root"
root=$work/root
mkdir "$work/control"
declare -A owner
for deb in "$work"/debs/*.deb; do
    dpkg-deb -x "$deb" "$root"
    dpkg-deb -e "$deb" "$work/control/$(dpkg-deb -f "$deb" Package)"
    while read -r file; do
        [ -z "${owner[$file]:-}" ] || fail "$file is in two packages: ${owner[$file]} and $deb"
        owner[$file]=$deb
    done < <(dpkg-deb --fsys-tarfile "$deb" | tar -t | grep -v '/$')
done
# What a tree of components does not say by itself.
[ "$(cat "$work/control/zeb-common/conffiles")" = /etc/zeb.conf ] ||
    fail "/etc/zeb.conf is no conffile"
for unit in zebmsgd zebseriald zeblogd gps@ flow@ waypoint@; do
    [ -f "$root/lib/systemd/system/$unit.service" ] || fail "no unit $unit"
done
grep -q zeb.conf "$work/control/zeb-common/postinst" || fail "nobody makes the user zeb"
# Everything that is installed is in a package.
DESTDIR=$work/all quietly "$cmake" --install "$build" --prefix /usr
missing=$(cd "$work/all/usr" && find . -type f | while read -r file; do
    case $file in
    ./lib/systemd/*) [ -f "$root/$file" ] ;;
    */zsh/site-functions/*) [ -f "$root/usr/${file/site-functions/vendor-completions}" ] ;;
    ./share/man/*) [ -f "$root/usr/$file.gz" ] || [ -L "$root/usr/$file.gz" ] ;;
    *) [ -f "$root/usr/$file" ] ;;
    esac || echo "$file"
done)
[ -z "$missing" ] || fail "in no package: $missing"

libdir=$(dirname "$(find "$root/usr" -name libzeb2.so)")
export LD_LIBRARY_PATH=$libdir
bin=$root/usr/bin
sbin=$root/usr/sbin
say "versions: $("$bin/zebctl" --version), $("$bin/zebgen" --version)"
version=$(sed -n 's/^project(zeb2 VERSION \([0-9.]*\) .*/\1/p' "$source/CMakeLists.txt")
[ "$("$bin/zebctl" --version)" = "zebctl $version (libzeb2.so.$version)" ] || fail "zebctl --version"
[ "$("$bin/zebgen" --version)" = "zebgen $version" ] || fail "zebgen --version"
for program in "$sbin"/* "$bin"/zeb-*; do
    [ "$("$program" --version)" = "${program##*/} $version" ] || fail "$program --version"
done
[ "$(readlink "$libdir/libzeb2.so.0")" = "libzeb2.so.$version" ] || fail "the library's version"
export PKG_CONFIG_SYSROOT_DIR=$root PKG_CONFIG_LIBDIR=$libdir/pkgconfig
[ "$(pkg-config --modversion zeb2)" = "$version" ] || fail "pkg-config --modversion"
grep -q -x prefix=/usr "$libdir/pkgconfig/zeb2.pc" || fail "the prefix in zeb2.pc"
newest=$(sed -n 's/^## \[\{0,1\}\([0-9A-Za-z.]*\).*/\1/p' "$source/CHANGELOG.md" | head -n 1)
[ "$newest" = Unreleased ] || [ "$newest" = "$version" ] || fail "CHANGELOG.md begins with $newest"
# A node of the linker map for each minor version, of which this is the newest.
grep -q "^LIBZEB2_${version%.*} {" "$source/src/libzeb2/libzeb2.map" || fail "the map's newest node"

say "programs in C and C++, with pkg-config and with CMake"
examples=$root/usr/share/doc/zeb2/examples/first_daemon
# shellcheck disable=SC2046
quietly "$cc" -std=gnu11 "$examples/first_daemon.c" -o "$work/in_c" $(pkg-config --cflags --libs zeb2)
# shellcheck disable=SC2046
quietly "$cxx" -std=gnu++17 "$examples/first_daemon.cpp" -o "$work/in_cpp" \
    $(pkg-config --cflags --libs zeb2)
for project in "$examples" "$source/tests/package"; do
    quietly "$cmake" -S "$project" -B "$work/cmake/$(basename "$project")" \
        -DCMAKE_PREFIX_PATH="$root/usr" -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx"
    quietly "$cmake" --build "$work/cmake/$(basename "$project")"
done
for program in plain own alone; do
    "$work/cmake/package/$program" || fail "$program"
done
mkdir "$work/run"
export ZEB2RUN=$work/run
start() { # name, command...
    "${@:2}" >"$work/$1.log" 2>&1 &
    pids+=($!)
}
start zebmsgd "$sbin/zebmsgd"
wait_for "the message server" "$bin/zebctl" status
start in_c "$work/in_c" in_c
start in_cpp "$work/in_cpp" in_cpp
start cmake_c "$work/cmake/first_daemon/first_daemon_c" cmake_c
start cmake_cpp "$work/cmake/first_daemon/first_daemon" cmake_cpp
for name in in_c in_cpp cmake_c cmake_cpp; do
    quietly "$bin/zebctl" watch --from $name --type MSG_HYGROMETER_INSTANT --count 1 --timeout 30
done

# Nothing of the demo needs rights: as root it is run as somebody without any.
as_nobody=()
if [ "$(id -u)" -eq 0 ] && command -v setpriv >/dev/null; then
    as_nobody=(setpriv --reuid=65534 --regid=65534 --clear-groups)
    chmod -R go+rX "$work"
fi
unset ZEB2RUN
mkdir -m 1777 "$work/tmp"
demo() { # output, options...
    TMPDIR=$work/tmp "${as_nobody[@]}" "$bin/zebctl" demo "${@:2}" >"$work/$1" 2>&1
}
say "zebctl demo, for half a minute"
demo demo.txt || { cat "$work/demo.txt"; fail "zebctl demo"; }
for text in '^11\. How the message server is doing' ' gps MSG_GPS_INSTANT .* lat=' \
    ' waypoint MSG_GPS_WAYPOINT_STATUS ' ' flow MSG_TSITMF_INSTANT ' '^Q_flow  *8\.' '^gps_2.*Z$' \
    '^flowA,DEM,[0-9]*,2.*Z, *[0-9.]*, *8\.' '^flowA,DEM,.*,9999.99,999.999'; do
    grep -q -- "$text" "$work/demo.txt" || { cat "$work/demo.txt"; fail "the demo shows no $text"; }
done
[ -z "$(ls -A "$work/tmp")" ] || fail "the demo left $(ls -A "$work/tmp")"

say "zebctl demo, ended half-way"
TMPDIR=$work/tmp "${as_nobody[@]}" "$bin/zebctl" demo --replay "$root/usr/share/zeb2/demo/drive.nmea" \
    >"$work/ended.txt" 2>&1 &
pid=$!
pids+=("$pid")
wait_for "the traffic" grep ' gps MSG_GPS_INSTANT .* lat=' "$work/ended.txt"
private=$(find "$work/tmp" -path '*/run/.mainsocket')
[ -n "$private" ] || fail "the demo's station is not where it should be"
kill -TERM $pid
status=0
wait $pid || status=$?
[ $status = 143 ] || fail "the demo ended with status $status"
[ -z "$(ls -A "$work/tmp")" ] || fail "the ended demo left $(ls -A "$work/tmp")"
status=0
"$bin/zebctl" demo --seconds none >/dev/null 2>&1 || status=$?
[ $status = 2 ] || fail "a wrong option: status $status"
say "done"
