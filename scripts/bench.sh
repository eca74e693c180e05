#!/usr/bin/env bash
# Builds and runs the measurements of docs/benchmarks.md: functions first, then the message server
# beside two well-known brokers, then the serial-port server, an idle station, the memory of a daemon,
# a recording decoded and the start of a program. Run it on an idle machine; every figure is meant as a
# ratio within one run.
#   --seconds S     per measurement of a server (default 2)
#   --no-setup      install nothing
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=2
setup=yes
while [ $# -gt 0 ]; do
    case $1 in
    --seconds)
        seconds=${2:?--seconds wants a number}
        shift
        ;;
    --no-setup) setup=no ;;
    -h | --help)
        sed -n '2,7s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "bench.sh: unknown option '$1' (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done

[ $setup = no ] || scripts/setup.sh --bench
cmake --preset release >/dev/null
cmake --build --preset release
for program in build/release/bench/bench_*; do
    [ -x "$program" ] && "$program" --benchmark_min_time=0.5
done
build/release/bench/server_driver --seconds "$seconds"
build/release/bench/serial_driver --seconds "$seconds"
build/release/bench/memory_driver
build/release/bench/recording_driver
build/release/bench/start_driver
