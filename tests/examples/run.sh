#!/bin/sh
# run.sh BUILD_DIR CMAKE CC CXX FLAGS README
# Installs everything into a private place, builds the installed example against it, and runs it with
# the installed message server and zebctl: a newcomer's first hour.
set -eu
build=$1
cmake=$2
cc=$3
cxx=$4
flags=$5
readme=$6
work=$(mktemp -d)
pids=
stop_all() {
    for pid in $pids; do
        kill "$pid" 2>/dev/null && wait "$pid" || :
    done
    rm -rf "$work"
}
trap stop_all EXIT
trap 'exit 1' HUP INT TERM
# The installed files must do by themselves, and the station is a private one.
unset CPATH C_INCLUDE_PATH CPLUS_INCLUDE_PATH LIBRARY_PATH LD_LIBRARY_PATH ZEB2SERVER ZEB2STARTUP || :
export ZEB2="$work" ZEB2RUN="$work/run"
mkdir "$ZEB2RUN"

fail() {
    echo "$*"
    tail -n 20 "$work"/*.log
    exit 1
}
quietly() {
    "$@" >"$work/step.log" 2>&1 || fail "failed: $*"
}
wait_for() {
    what=$1
    shift
    tries=0
    until "$@" >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ $tries -lt 300 ] || fail "$what did not appear"
        sleep 0.1
    done
}
start() { # name, program, arguments...
    log=$work/$1.log
    shift
    "$@" >"$log" 2>&1 &
    pids="$! $pids"
}
announced() { "$zebctl" instruments --json | grep -q "\"$1\""; }

quietly "$cmake" --install "$build" --prefix "$work/usr"
installed() { find "$work/usr" -type f -name "$1"; }
example=$(dirname "$(installed first_daemon.cpp)")
zebmsgd=$(installed zebmsgd)
zebctl=$(installed zebctl)

# What the README shows is what is built here.
awk '/^```cpp$/ { inside = 1; next } /^```$/ { if (inside) exit } inside' "$readme" >"$work/shown.cpp"
cmp "$work/shown.cpp" "$example/first_daemon.cpp" ||
    fail "the README's daemon is not examples/first_daemon/first_daemon.cpp"

quietly "$cmake" -S "$example" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/usr" \
    -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_C_FLAGS="$flags -Wall -Wextra -Wpedantic -Werror" \
    -DCMAKE_CXX_FLAGS="$flags -Wall -Wextra -Wpedantic -Werror"
quietly "$cmake" --build "$work/build"

start zebmsgd "$zebmsgd"
wait_for "the message server" "$zebctl" status
for program in first_daemon first_daemon_c; do
    start $program "$work/build/$program" "my-$program"
    daemon=${pids%% *}
    wait_for "the announcement of $program" announced "my-$program"
    "$zebctl" watch --json --type MSG_HYGROMETER_INSTANT --from "my-$program" --count 2 \
        --timeout 20 >"$work/$program.json" 2>"$work/watch.log" || fail "nothing came from $program"
    for text in '"from":"my-'$program'"' '"record_type":"NET_HYGROMETER_Instant"' '"Td":8.0'; do
        [ "$(grep -c -F "$text" "$work/$program.json")" = 2 ] ||
            fail "$text is not in both of $(cat "$work/$program.json")"
    done
    kill "$daemon"
    pids=${pids#* }
    wait "$daemon" || fail "$program did not end well"
done
