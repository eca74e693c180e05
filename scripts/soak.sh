#!/usr/bin/env bash
# Soaks a whole station: scripts/soak.sh MINUTES. A thousand messages a second, servers restarted,
# lines unplugged, daemons killed, programs standing still, clients that never read or send garbage;
# fails when a message is lost or doubled, or when a program takes ever more (docs/soak.md).
#   --seed N           the order of the faults of an earlier run
#   --rate N           messages a second (default 1000)
#   --log FILE         what every program took, a line a second (default build/soak.log)
#   --svg FILE         plots that, where gnuplot is installed
#   --no-setup         install nothing
set -euo pipefail

minutes=
setup=yes
svg=
log=
arguments=()
while [ $# -gt 0 ]; do
    case $1 in
    --seed | --rate)
        arguments+=("$1" "${2:?$1 wants a number}")
        shift
        ;;
    --log)
        log=$(realpath -m -- "${2:?--log wants a file}")
        shift
        ;;
    --svg)
        svg=$(realpath -m -- "${2:?--svg wants a file}")
        shift
        ;;
    --no-setup) setup=no ;;
    -h | --help)
        sed -n '2,9s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    [0-9]*) minutes=$1 ;;
    *)
        echo "soak.sh: unknown option '$1' (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done
[ -n "$minutes" ] || {
    echo "soak.sh: for how many minutes? (see --help)" >&2
    exit 2
}

cd "$(dirname "$0")/.."
log=${log:-$PWD/build/soak.log}
[ $setup = no ] || scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target soak
status=0
build/release/tests/soak/soak --minutes "$minutes" --log "$log" "${arguments[@]}" || status=$?

plot() { build/release/bin/zebctl logfile --records soak "$@" "$log"; }
plot --plot rss_zebmsgd,rss_zebseriald,rss_flow,rss_peer1,fds_zebmsgd,cpu_zebmsgd,rate_peer1,lost_peer1,gap_peer1,faults
if [ -n "$svg" ]; then
    plot --plot-file "$svg" --plot rss_zebmsgd,rss_zebseriald,rss_zeblogd,rss_gps,rss_flow,rss_peer1,fds_zebmsgd,thr_flow,cpu_zebmsgd,rate_peer1,lost_peer1,doubled_peer1,gap_peer1,faults
fi
exit $status
