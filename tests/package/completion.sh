#!/bin/bash
# What bash offers for the station's programs. Arguments: the script, the directory of the programs.
set -u
export PATH="$2:$PATH"
# shellcheck disable=SC1090
source "$1"
failures=0

# expect "WORDS OFFERED" COMMAND WORD...: the last word is the one to complete
expect() {
    local wanted=$1 got
    shift
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    COMPREPLY=()
    _zeb
    got="${COMPREPLY[*]}"
    [ "$got" = "$wanted" ] && return
    echo "\"$*\": offered \"$got\" instead of \"$wanted\""
    failures=$((failures + 1))
}

for program in zebctl zebmsgd zebseriald zeblogd gps flow waypoint zeb-nmea-sim zeb-flow-sim; do
    complete -p "$program" | grep -q -- "-F _zeb" || { echo "nothing for $program"; failures=1; }
    expect "--help" "$program" --he
    expect "--version" "$program" --versi
done
for program in zebmsgd zebseriald zeblogd gps flow waypoint; do
    expect "--config" "$program" --con
    expect "--check-config" "$program" --config x --ch
    expect "" "$program" x
done
expect "describe" zebctl des
expect "conf" zebctl con
expect "demo" zebctl dem
expect "check get dump" zebctl conf ""
expect "dump" zebctl conf d
expect "--file" zebctl conf get --f
expect "--json" zebctl watch --type MSG_LOG_MONITOR --j
expect "" zebctl no-such-thing-here
expect "" zebctl conf check x
[ "$failures" -eq 0 ]
