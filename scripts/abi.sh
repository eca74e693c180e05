#!/usr/bin/env bash
# Compares the binary interface of the built library with that of the last release, which is kept in
# packaging/abi/libzeb2.abi: a program that was linked with the release must run with this library.
# What was added since is told and is no fault.
#   --build DIR     the build tree (default build/release)
#   --update        at a release: keep the interface of the built library
# Status 0: compatible; 1: not; 77: nothing to compare with here.
set -euo pipefail
build=
update=no
while [ $# -gt 0 ]; do
    case $1 in
    --build)
        build=$(realpath -e -- "${2:?--build wants a directory}")
        shift
        ;;
    --update) update=yes ;;
    -h | --help)
        sed -n '2,7s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "abi.sh: unknown option '$1' (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done
cd "$(dirname "$0")/.."
build=${build:-build/release}
kept=packaging/abi/libzeb2.abi
library=$build/src/libzeb2/libzeb2.so
headers=$build/include/zeb2

skip() {
    echo "abi.sh: skipped: $*"
    exit 77
}
command -v abidiff >/dev/null || skip "no abidiff (Debian package abigail-tools)"
[ "$(uname -m)" = x86_64 ] || skip "the kept description is that of x86_64, this is $(uname -m)"

# What the public headers show of it, without the places where they show it, which move.
describe() { # file
    abidw --headers-dir "$headers" --drop-private-types --exported-interfaces-only \
        --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names \
        --type-id-style hash --out-file "$1" "$library"
}
if [ $update = yes ]; then
    describe "$kept"
    echo "Kept in $kept"
    exit 0
fi

built=$(mktemp)
trap 'rm -f "$built"' EXIT
describe "$built"
if ! abidiff --no-added-syms --no-show-locs "$kept" "$built"; then
    cat >&2 <<END
abi.sh: programs that are linked with the last release may fail with this library. Take the change
back, or, if it is meant: raise the major version in CMakeLists.txt and the packages' names with it
(CONTRIBUTING.md, "Releases").
END
    exit 1
fi
abidiff --no-show-locs "$kept" "$built" || :
echo "compatible with the last release"
