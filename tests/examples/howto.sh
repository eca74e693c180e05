#!/bin/sh
# howto.sh BUILD_DIR CMAKE CC CXX FLAGS DOCS
# The programs of the how-to pages, and those of the first tutorial as its page shows them: compared
# with the pages, built against an installation, run with the installed servers.
set -eu
. "$(dirname "$0")/station.sh"
docs=$document

first=$(dirname "$(installed first_daemon.cpp)")
document=$docs/first-daemon.md
shows cmake 1 "$first/CMakeLists.txt"
shows cpp 1 "$first/first_daemon.cpp"
shows c 1 "$first/first_daemon.c"

record=$(dirname "$(installed valve.cpp)")
document=$docs/howto/add-a-record.md
shows c 1 "$record/valve.h"
shows cmake 1 "$record/CMakeLists.txt"
shows cpp 1 "$record/valve.cpp"
shows c 2 "$record/valve_listener.c"

variable=$(dirname "$(installed weather.cpp)")
document=$docs/howto/add-a-variable.md
shows cpp 1 "$variable/weather.cpp"
shows c 1 "$variable/cooling.c"
mkdir "$ZEB2/etc"
block conf 2 >"$ZEB2/etc/zeb.conf"
[ -s "$ZEB2/etc/zeb.conf" ] || fail "the page has no configuration"

table=$(dirname "$(installed tabular_file.c)")
document=$docs/formats/tabular.md
quotes() { # language, number, file: the file has the block, indented or not
    case "$(sed 's/^ *//' "$3")" in
    *"$(block "$1" "$2" | sed 's/^ *//')"*) ;;
    *) fail "block $2 of $1 in $document is not in $3" ;;
    esac
}
quotes c 1 "$table/tabular_file.c"
quotes c 2 "$table/pump.h"
build_example "$table"
quietly "$work/build/tabular_file" "$work/pump.csv"
[ "$(wc -l <"$work/pump.csv")" = 2 ] || fail "not two lines: $(cat "$work/pump.csv")"
while read -r line; do
    grep -q -x -F "$line" "$document" || fail "$document does not show $line"
done <"$work/pump.csv"

mv "$work/build" "$work/build.table"
build_example "$record"
mv "$work/build" "$work/build.record"
build_example "$variable"

start zebmsgd "$zebmsgd"
wait_for "the message server" "$zebctl" status
start listener "$work/build.record/valve_listener"
start valve "$work/build.record/valve"
wait_for "the valve's record" grep -x 'valve: open, 4.5 l/min' "$work/listener.log"
"$zebctl" record "$work/valve.zrec" --from valve --count 2 --seconds 60 2>"$work/record.log" ||
    fail "nothing was recorded"
"$zebctl" decode "$work/valve.zrec" --type MSG_VALVE_STATUS | grep -q -x '  flow DOUBLE = 4.5' ||
    fail "zebctl decode does not show the valve's flow"
stop_latest valve
stop_latest listener

start weather "$work/build/weather"
temperature() { [ "$("$zebctl" io get T1)" = 20 ]; }
wait_for "the variable T1" temperature
start cooling "$work/build/cooling"
wait_for "the output" grep -x 'fan is to be 1200' "$work/weather.log"
stop_latest cooling
"$zebctl" io set fan 300
wait_for "what zebctl asked for" grep -x 'fan is to be 300' "$work/weather.log"
stop_latest weather
