#!/usr/bin/env bash
# A whole simulated station, live, in a private directory and without root.
#   --seconds N     how long to watch the traffic (default 18)
#   --replay FILE   the receiver plays this captured NMEA file at its own pace
#   --unplug        pull the flow controller's line for 5 seconds meanwhile
#   --keep          leave the directory with every program's log behind
#   --no-setup      install nothing
set -euo pipefail

seconds=18
replay=
unplug=no
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
    --unplug) unplug=yes ;;
    --keep) keep=yes ;;
    --no-setup) setup=no ;;
    -h | --help)
        sed -n '2,7s/^# \{0,1\}//p' "$0"
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

step=0
chapter() { say "$((++step)). $*"; }

[ $setup = no ] || scripts/setup.sh
say "Building the station's programs (some minutes the first time)"
cmake --preset release >/dev/null
cmake --build --preset release --target station
bin=$PWD/build/release/bin

station=$(mktemp -d "${TMPDIR:-/tmp}/station.XXXXXX")
mkdir "$station/etc" "$station/run" "$station/log"
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
    "$@" >>"$station/$name.log" 2>&1 &
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
    echo "Port;flow;Device,$station/run/pump"
    echo "Disk;LogDir,log"
    echo "Disk;StationID,dem"
    # So that a short run has averages to show.
    echo "Log;Interval;Average,0:02"
    echo "Log;Interval;Monitor,0:10"
    echo "flow;AverageOnContam,false"
} >"$station/etc/zeb.conf"

start_pump() {
    start pump "$bin/zeb-flow-sim" --link "$station/run/pump" --valve 40
    pump=$!
}
# Without a word from the shell about who was killed.
pull_pump() {
    kill "$pump" 2>/dev/null && wait "$pump" 2>/dev/null || true
    local left=() pid
    for pid in "${pids[@]}"; do
        [ "$pid" = "$pump" ] || left+=("$pid")
    done
    pids=("${left[@]}")
}

chapter "The servers: one for messages, where every program meets, and one for serial lines"
start zebmsgd "$bin/zebmsgd"
start zebseriald "$bin/zebseriald"
wait_for "the message server" "$bin/zebctl" status
wait_for "the serial server" test -S "$ZEB2RUN/.serialdsocket"

chapter "The conductor of the loggers, which here ends an average every 2 seconds"
start zeblogd "$bin/zeblogd"
wait_for "the conductor" announced zeblogd

if [ -n "$replay" ]; then
    chapter "A receiver that plays $(basename "$replay") at its own pace, and its daemon"
    start gps "$bin/gps"
    wait_for "the gps daemon" announced gps
    start receiver "$bin/zeb-nmea-sim" --link "$station/run/receiver" --replay "$replay"
else
    chapter "A simulated receiver that drives in a circle, and its daemon"
    start receiver "$bin/zeb-nmea-sim" --link "$station/run/receiver"
    wait_for "the receiver" test -e "$station/run/receiver"
    start gps "$bin/gps"
    wait_for "the gps daemon" announced gps
fi

chapter "A simulated flow controller, a pump behind a valve, and its daemon, which asks it every second"
start_pump
wait_for "the flow controller" test -e "$station/run/pump"
start flow "$bin/flow"
wait_for "the flow daemon" announced flow

chapter "A third daemon, which finds the first by its tag \"position\" and answers it"
start waypoint "$bin/waypoint"
wait_for "the waypoint daemon" announced waypoint

# What happens while the traffic is watched: a set point for the flow, bad air and, when asked for, a
# line that is pulled out and plugged in again.
meddle() {
    sleep 2
    "$bin/zebctl" io set Set_flow 8 2>/dev/null
    if [ $unplug = yes ]; then
        sleep 1
        pull_pump
        sleep 5
        start_pump
    else
        sleep 6
    fi
    "$bin/zebctl" send MSG_LOG_AVG_CONTAMINATION contaminated=true flush_until=-1 2>/dev/null
    sleep 5
    "$bin/zebctl" send MSG_LOG_AVG_CONTAMINATION contaminated=false flush_until=-1 2>/dev/null
}
if [ $unplug = yes ] && [ "$seconds" -lt 18 ]; then
    seconds=18
fi
chapter "What passes between them, for $seconds seconds (zebctl watch); after 2 the flow is to be 8 l/min"
echo "From second 8 to 13 the air is said to be contaminated."
[ $unplug = no ] || echo "After 3 seconds the flow controller's line is pulled, after 8 it is plugged in again."
"$bin/zebctl" watch --timeout "$seconds" &
watch=$!
pids+=("$watch")
meddle
wait $watch

if [ $unplug = yes ]; then
    chapter "What the flow daemon said of its line"
    grep "line =flow" "$station/flow.log"
fi

chapter "What the programs share (zebctl io list): the flow has followed its set point"
"$bin/zebctl" io list --timeout 2.5 2>/dev/null

chapter "A new log file for each daemon (zebctl log switch), and the one that flow has finished"
finished=$(ls "$station"/log/flow_* | head -n 1)
"$bin/zebctl" log switch 2>/dev/null
wait_for "a second log file" bash -c "[ \$(ls '$station'/log/flow_* | wc -l) -ge 2 ]"
(cd "$station/log" && ls)
grep '^!row' "$finished"
tail -n 12 "$finished"
echo "Nines are missing values: contaminated air is not averaged."

chapter "The same file read without a station (zebctl logfile --summary, --plot)"
"$bin/zebctl" logfile --records flowA --summary "$finished"
"$bin/zebctl" logfile --records flowA --plot Q_flow "$finished"

chapter "Who is there (zebctl instruments)"
"$bin/zebctl" instruments

chapter "How the message server is doing (zebctl status)"
"$bin/zebctl" status

cat <<'END'

What you saw: the serial server owns two lines. The gps daemon read NMEA 0183 sentences from one,
checked them, and published each instant as a record of the catalogue (NET_GPS_Fixinfo). The flow daemon
asked the controller on the other for its readings and published them (NET_TSITMF_Instant); it moved the
valve until the flow was at the set point that a variable gave it, and logged averages at the beat of the
conductor, but not of contaminated air. The message server passed everything to every
program that wanted it: the waypoint daemon, which answered each fix with the distance and bearing of its
way point, and zebctl, which unpacked the records by name and printed them.
END
