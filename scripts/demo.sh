#!/usr/bin/env bash
# A whole simulated station, live, in a private directory and without root.
#   --seconds N     how long to watch the traffic (default 12)
#   --replay FILE   the receiver plays this captured NMEA file at its own pace
#   --keep          leave the directory with every program's log behind
#   --no-setup      install nothing
set -euo pipefail

seconds=12
replay=
keep=no
setup=yes
while [ $# -gt 0 ]; do
    case $1 in
    --seconds)
        seconds=${2:?--seconds wants a number}
        shift
        ;;
    --replay)
        replay=$(realpath -e -- "${2:?--replay wants a file}")
        shift
        ;;
    --keep) keep=yes ;;
    --no-setup) setup=no ;;
    -h | --help)
        sed -n '2,6s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "demo.sh: unknown option '$1' (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done
case $seconds in
'' | *[!0-9]*)
    echo "demo.sh: --seconds wants a whole number, not '$seconds'" >&2
    exit 2
    ;;
esac

cd "$(dirname "$0")/.."

say() { printf '\n\033[1m%s\033[0m\n' "$*" | { [ -t 1 ] && [ -z "${NO_COLOR:-}" ] && cat || sed 's/\x1b\[[0-9]*m//g'; }; }

[ $setup = no ] || scripts/setup.sh
say "Building the station's programs (some minutes the first time)"
cmake --preset release >/dev/null
cmake --build --preset release --target station
bin=$PWD/build/release/bin

station=$(mktemp -d "${TMPDIR:-/tmp}/station.XXXXXX")
mkdir "$station/etc" "$station/run"
export ZEB2=$station ZEB2RUN=$station/run
pids=()
stop_all() {
    trap - EXIT INT TERM
    # Daemons first, the server last: each says good-bye to one that still listens.
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
        kill "${pids[i]}" 2>/dev/null && wait "${pids[i]}" 2>/dev/null || true
    done
    if [ $keep = yes ]; then
        echo "Left behind: $station"
    else
        rm -rf "$station"
    fi
}
trap stop_all EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

start() { # name program arguments...
    local name=$1
    shift
    "$@" >"$station/$name.log" 2>&1 &
    pids+=($!)
}
wait_for() { # what, command...
    local what=$1
    shift
    for ((tries = 0; tries < 200; tries++)); do
        if "$@" >/dev/null 2>&1; then return 0; fi
        sleep 0.05
    done
    echo "demo: $what did not appear within 10 s; the logs say:" >&2
    tail -n 20 "$station"/*.log >&2
    exit 1
}
announced() { "$bin/zebctl" instruments --json | grep -q "\"$1\""; }

# The sample configuration, with what only this run can know.
{
    cat etc/zeb.conf
    echo "Port;gps;Device,$station/run/receiver"
} >"$station/etc/zeb.conf"

say "1. The servers: one for messages, where every program meets, and one for serial lines"
start zebmsgd "$bin/zebmsgd"
start zebseriald "$bin/zebseriald"
wait_for "the message server" "$bin/zebctl" status
wait_for "the serial server" test -S "$ZEB2RUN/.serialdsocket"

if [ -n "$replay" ]; then
    say "2. A receiver that plays $(basename "$replay") at its own pace, and its daemon"
    start receiver "$bin/zeb-nmea-sim" --link "$station/run/receiver" --replay "$replay"
else
    say "2. A simulated receiver that drives in a circle, and its daemon"
    start receiver "$bin/zeb-nmea-sim" --link "$station/run/receiver"
fi
wait_for "the receiver" test -e "$station/run/receiver"
start gps "$bin/gps"
wait_for "the gps daemon" announced gps

say "3. A second daemon, which finds the first by its tag \"position\" and answers it"
start waypoint "$bin/waypoint"
wait_for "the waypoint daemon" announced waypoint

say "4. What passes between them, for $seconds seconds (zebctl watch)"
"$bin/zebctl" watch --timeout "$seconds"

say "5. Who is there (zebctl instruments)"
"$bin/zebctl" instruments

say "6. How the message server is doing (zebctl status)"
"$bin/zebctl" status

cat <<'END'

What you saw: the gps daemon read NMEA 0183 sentences from a line, checked them, packed each
instant into a record of the catalogue (NET_GPS_Fixinfo) and published it. The message server passed
it to every program that wanted it: the waypoint daemon, which answered with the distance and bearing
of its way point, and zebctl, which unpacked both by name and printed them.
END
