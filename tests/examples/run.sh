#!/bin/sh
# run.sh BUILD_DIR CMAKE CC CXX FLAGS README
# Installs everything into a private place, builds the installed example against it, and runs it with
# the installed message server and zebctl: a newcomer's first hour.
set -eu
. "$(dirname "$0")/station.sh"

# What the README shows is what is built here.
example=$(dirname "$(installed first_daemon.cpp)")
shows cpp 1 "$example/first_daemon.cpp"
build_example "$example"

start zebmsgd "$zebmsgd"
wait_for "the message server" "$zebctl" status
for program in first_daemon first_daemon_c; do
    start $program "$work/build/$program" "my-$program"
    wait_for "the announcement of $program" announced "my-$program"
    "$zebctl" watch --json --type MSG_HYGROMETER_INSTANT --from "my-$program" --count 2 \
        --timeout 20 >"$work/$program.json" 2>"$work/watch.log" || fail "nothing came from $program"
    for text in '"from":"my-'$program'"' '"record_type":"NET_HYGROMETER_Instant"' '"Td":8.0'; do
        [ "$(grep -c -F "$text" "$work/$program.json")" = 2 ] ||
            fail "$text is not in both of $(cat "$work/$program.json")"
    done
    stop_latest $program
done
