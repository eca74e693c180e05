#!/usr/bin/env bash
# Set-up and build, then a whole simulated station, live, in a private directory and without root.
# Options are those of `zebctl demo`: --seconds N, --replay FILE, --unplug, --keep; and
#   --no-setup      install nothing
set -euo pipefail
root=$(realpath "$(dirname "$0")/..")

setup=yes
options=()
for argument in "$@"; do
    case $argument in
    --no-setup) setup=no ;;
    -h | --help)
        sed -n '2,4s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *) options+=("$argument") ;;
    esac
done

[ $setup = no ] || "$root/scripts/setup.sh"
echo "Building the station's programs (some minutes the first time)"
(
    cd "$root"
    cmake --preset release >/dev/null
    cmake --build --preset release --target station
)
exec "$root/build/release/bin/zebctl" demo "${options[@]}"
