#!/bin/bash
# A whole simulated station, live, in a private directory and without root, of the programs in one or
# two directories. `zebctl demo` runs it.
#   station.sh PROGRAMS SECONDS UNPLUG KEEP [REPLAY]
# PROGRAMS: directories with a colon between; SECONDS: how long to watch the traffic; UNPLUG: yes, to
# pull the flow controller's line for 5 seconds meanwhile; KEEP: yes, to leave the directory behind
# with every program's log; REPLAY: an NMEA file that the receiver plays at its own pace.
set -euo pipefail

programs=$1
seconds=$2
unplug=$3
keep=$4
replay=${5:-}
data=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

# Of this installation, not whatever else has the name on this machine.
PATH=$programs:$PATH
for program in zebctl zebmsgd zebseriald zeblogd gps flow waypoint zeb-nmea-sim zeb-flow-sim; do
    path=$(command -v "$program") && [[ :$programs: = *:"${path%/*}":* ]] || {
        case $program in
        zebmsgd | zeblogd) package=zeb-server ;;
        zebseriald) package=zeb-serial ;;
        gps | flow | waypoint) package=zeb-daemons ;;
        *) package=zeb-tools ;;
        esac
        echo "zebctl demo: $program is not in $programs; the Debian package $package has it" >&2
        exit 1
    }
done
# A station of its own, whatever the caller's is.
unset ZEB2SERVER ZEB2STARTUP DB

say() { printf '\n\033[1m%s\033[0m\n' "$*" | { [ -t 1 ] && [ -z "${NO_COLOR:-}" ] && cat || sed 's/\x1b\[[0-9]*m//g'; }; }

step=0
chapter() { say "$((++step)). $*"; }

station=$(mktemp -d "${TMPDIR:-/tmp}/station.XXXXXX")
mkdir "$station/etc" "$station/run" "$station/log"
export ZEB2=$station ZEB2RUN=$station/run
pids=()
sleeper=
stop_all() {
    trap - EXIT HUP INT TERM
    [ -z "$sleeper" ] || kill "$sleeper" 2>/dev/null || true
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
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

# A signal need not wait for the end of this.
pause() { # seconds
    sleep "$1" &
    sleeper=$!
    wait "$sleeper"
    sleeper=
}
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
announced() { zebctl instruments --json | grep -q "\"$1\""; }

# The sample configuration, with what only this run can know.
{
    cat "$data/zeb.conf"
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
    start pump zeb-flow-sim --link "$station/run/pump" --valve 40
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
start zebmsgd zebmsgd
start zebseriald zebseriald
wait_for "the message server" zebctl status
wait_for "the serial server" test -S "$ZEB2RUN/.serialdsocket"

chapter "The conductor of the loggers, which here ends an average every 2 seconds"
start zeblogd zeblogd
wait_for "the conductor" announced zeblogd

if [ -n "$replay" ]; then
    chapter "A receiver that plays $(basename "$replay") at its own pace, and its daemon"
    start gps gps
    wait_for "the gps daemon" announced gps
    start receiver zeb-nmea-sim --link "$station/run/receiver" --replay "$replay"
else
    chapter "A simulated receiver that drives in a circle, and its daemon"
    start receiver zeb-nmea-sim --link "$station/run/receiver"
    wait_for "the receiver" test -e "$station/run/receiver"
    start gps gps
    wait_for "the gps daemon" announced gps
fi

chapter "A simulated flow controller, a pump behind a valve, and its daemon, which asks it every second"
start_pump
wait_for "the flow controller" test -e "$station/run/pump"
start flow flow
wait_for "the flow daemon" announced flow

chapter "A third daemon, which finds the first by its tag \"position\" and answers it"
start waypoint waypoint
wait_for "the waypoint daemon" announced waypoint

# What happens while the traffic is watched: a set point for the flow, bad air and, when asked for, a
# line that is pulled out and plugged in again.
meddle() {
    pause 2
    zebctl io set Set_flow 8 2>/dev/null
    if [ $unplug = yes ]; then
        pause 1
        pull_pump
        pause 5
        start_pump
    else
        pause 6
    fi
    zebctl send MSG_LOG_AVG_CONTAMINATION contaminated=true flush_until=-1 2>/dev/null
    pause 5
    zebctl send MSG_LOG_AVG_CONTAMINATION contaminated=false flush_until=-1 2>/dev/null
}
if [ $unplug = yes ] && [ "$seconds" -lt 18 ]; then
    seconds=18
fi
chapter "What passes between them, for $seconds seconds (zebctl watch); after 2 the flow is to be 8 l/min"
echo "From second 8 to 13 the air is said to be contaminated."
[ $unplug = no ] || echo "After 3 seconds the flow controller's line is pulled, after 8 it is plugged in again."
zebctl watch --timeout "$seconds" &
watch=$!
pids+=("$watch")
meddle
wait $watch

if [ $unplug = yes ]; then
    chapter "What the flow daemon said of its line"
    grep "line =flow" "$station/flow.log"
fi

chapter "What the programs share (zebctl io list): the flow has followed its set point"
zebctl io list --timeout 2.5 2>/dev/null

chapter "A new log file for each daemon (zebctl log switch), and the one that flow has finished"
finished=$(ls "$station"/log/flow_* | head -n 1)
zebctl log switch 2>/dev/null
wait_for "a second log file" bash -c "[ \$(ls '$station'/log/flow_* | wc -l) -ge 2 ]"
(cd "$station/log" && ls)
grep '^!row' "$finished"
tail -n 12 "$finished"
echo "Nines are missing values: contaminated air is not averaged."

chapter "The same file read without a station (zebctl logfile --summary, --plot)"
zebctl logfile --records flowA --summary "$finished"
zebctl logfile --records flowA --plot Q_flow "$finished"

chapter "Who is there (zebctl instruments)"
zebctl instruments

chapter "How the message server is doing (zebctl status)"
zebctl status

cat <<'END'

What you saw: the serial server owns two lines. The gps daemon read NMEA 0183 sentences from one,
checked them, and published each instant as a record of the catalogue (NET_GPS_Fixinfo). The flow daemon
asked the controller on the other for its readings and published them (NET_TSITMF_Instant); it moved the
valve until the flow was at the set point that a variable gave it, and logged averages at the beat of the
conductor, but not of contaminated air. The message server passed everything to every
program that wanted it: the waypoint daemon, which answered each fix with the distance and bearing of its
way point, and zebctl, which unpacked the records by name and printed them.
END
