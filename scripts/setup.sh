#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demo need, and only those that are
# missing. Works as root or with sudo. --bench adds the programs that the benchmarks compare with,
# --analysis what judges the sources and measures how much of them the tests reach.
set -euo pipefail

packages=(build-essential cmake ninja-build pkg-config ccache g++-multilib clang llvm libclang-rt-dev
          libcli11-dev nlohmann-json3-dev googletest libbenchmark-dev gnuplot-nox
          debhelper chrpath lintian abigail-tools
          doxygen graphviz mandoc man-db)
bench_packages=(libboost-dev libmsgpack-cxx-dev libmosquitto-dev mosquitto libhiredis-dev redis-server)

for argument in "$@"; do
    case $argument in
    --bench) packages+=("${bench_packages[@]}") ;;
    --analysis) packages+=(clang-tidy cppcheck gcovr) ;;
    -h | --help)
        sed -n '2,4s/^# //p' "$0"
        exit 0
        ;;
    *)
        echo "setup.sh: unknown option '$argument' (see --help)" >&2
        exit 2
        ;;
    esac
done

is_installed() {
    [ "$(dpkg-query -W -f '${Status}' "$1" 2>/dev/null)" = "install ok installed" ]
}

missing=()
for package in "${packages[@]}"; do
    is_installed "$package" || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
    echo "setup: every package is installed"
    exit 0
fi

echo "setup: installing ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "setup: needs root or sudo to install: ${missing[*]}" >&2
        exit 1
    }
    as_root=(sudo)
fi
install_missing() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends "${missing[@]}"
}
# The package list may be old or absent on a fresh machine: fetch it and try once more.
install_missing || { "${as_root[@]}" apt-get update && install_missing; }
