#!/bin/sh
# driver.sh BUILD_DIR CMAKE CC CXX FLAGS GUIDE
# The guide's afternoon: every step of its driver, built against an installation, with the installed
# servers and the simulated flow controller, up to a line of averages in the log file.
set -eu
. "$(dirname "$0")/station.sh"

# What the guide shows is what is built and run here.
example=$(dirname "$(installed step1.cpp)")
shows cmake 1 "$example/CMakeLists.txt"
for step in 1 2 3; do
    shows cpp $step "$example/step$step.cpp"
done
shows ini 1 "$example/pump.service"
build_example "$example"

# The station as the guide sets it up.
mkdir "$ZEB2/etc" "$ZEB2/log"
sed -n '/^cat >.*zeb\.conf/,/^END$/p' "$document" >"$work/conf.sh"
. "$work/conf.sh"
[ -s "$ZEB2/etc/zeb.conf" ] || fail "the guide has no configuration"
start sim "$(installed zeb-flow-sim)" --link "$ZEB2/line" --valve 40
sim=${pids%% *}
start zebmsgd "$zebmsgd"
zebmsgd_pid=${pids%% *}
start zebseriald "$(installed zebseriald)"
wait_for "the message server" "$zebctl" status
asked() {
    "$zebctl" serial =pump --send ':01F*E1\r' --until '\r' --timeout 2 | grep '^>01F[0-9.]*\*'
}
wait_for "an answer to zebctl serial" asked

start step1 "$work/build/step1"
wait_for "an answer to step 1" grep '^>01F[0-9.]*\*' "$work/step1.log"
stop_latest "step 1"

reading() { # one is near what the simulator has
    "$zebctl" watch --json --type MSG_TSITMF_INSTANT --from pump --count 1 --timeout 20 \
        2>"$work/watch.log" | grep '"P":8[0-9][0-9]\..*"Q":4\..*"T":2[01]\.'
}
start step2 "$work/build/step2"
wait_for "the announcement of step 2" announced pump
wait_for "a reading of step 2" reading
stop_latest "step 2"

start step3 "$work/build/step3"
driver=${pids%% *}
wait_for "a reading of step 3" reading
logged() { cat "$ZEB2"/log/Q11_*; }
averaged() {
    "$zebctl" log average --to pump
    logged | grep '^Q11S,ABC,[0-9]*,20..-..-..T..:..:..Z,  4\.[0-9]*, 2[01]\.[0-9]*, 8[0-9][0-9]\.[0-9]$'
}
wait_for "a line of averages" averaged
for line in '!row;colhdr;Q11S,Q11S;STN;EPOCH;DateTime;Q_Q11;T_Q11;P_Q11' \
    '!row;varfmt;Q11S,Q11S;%s;%u;%04d-%02d-%02dT%02d:%02d:%02dZ;*3.3f;*3.2f;*4.1f' \
    '!row;mvc;Q11S,Q11S;ZZZ;0;9999-99-99T99:99:99Z;999.999;999.99;9999.9' \
    '!var;Q_Q11;FieldDesc,Flow (slpm)'; do
    logged | grep -q -x -F "$line" || fail "no line $line in: $(logged)"
done

# What can fail: the plug is pulled and put back, and the message server goes away.
kill "$sim"
wait_for "the complaint" grep 'the instrument does not answer' "$work/step3.log"
start sim "$(installed zeb-flow-sim)" --link "$ZEB2/line" --valve 40
wait_for "the end of the complaint" grep 'the instrument answers again' "$work/step3.log"
kill "$zebmsgd_pid"
status=0
wait "$driver" || status=$?
[ $status = 1 ] || fail "without its server the driver ended with status $status"
