#!/usr/bin/env bash
# Looks at the sources with cppcheck and clang-tidy; both must have nothing to say. What was clean
# before is looked at again only when it, a header or the checks have changed.
#   --quick            cppcheck of everything, clang-tidy of the library and the servers
#   --deep             clang-tidy's path analysis of the library, too: half an hour
#   --build DIR        a configured and built tree (default build/release)
#   --jobs N           at a time (default: one for each processor)
#   --no-setup         install nothing
set -euo pipefail

quick=no
deep=no
build=
jobs=$(nproc)
setup=yes
while [ $# -gt 0 ]; do
    case $1 in
    --quick) quick=yes ;;
    --deep) deep=yes ;;
    --no-setup) setup=no ;;
    --build)
        build=$(realpath -e -- "${2:?--build wants a directory}")
        shift
        ;;
    --jobs)
        jobs=${2:?--jobs wants a number}
        shift
        ;;
    -h | --help)
        sed -n '2,8s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "analyse.sh: unknown option '$1' (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done
cd "$(dirname "$0")/.."
[ $setup = no ] || scripts/setup.sh
if [ -z "$build" ]; then
    build=$PWD/build/release
    cmake --preset release >/dev/null
    # The generated headers.
    cmake --build --preset release --target zeb2
fi

stamps=$build/analysis
mkdir -p "$stamps"
failed=0

echo "cppcheck: src"
started=$SECONDS
mkdir -p "$stamps/cppcheck"
cppcheck --quiet --std=c++20 --language=c++ --enable=warning,performance,portability -j "$jobs" \
    --inline-suppr --suppressions-list=.cppcheck-suppressions --error-exitcode=1 \
    --cppcheck-build-dir="$stamps/cppcheck" -UZEB_MSG_LIST_HEADER -UZEB_RECORDS_HEADER \
    -I "$build/include" -I src src || failed=1
echo "cppcheck: $((SECONDS - started)) s"

# What every unit depends on beside itself.
common=$({
    find src definitions -name '*.h' -print0 | sort -z | xargs -0 cat
    cat .clang-tidy scripts/analyse.sh
} | sha1sum | cut -d ' ' -f 1)
tidy_one() { # unit, checks to add
    local stamp=$stamps/${1//\//_}${2:+.deep} hash
    hash=$(echo "$common $(sha1sum <"$1")")
    [ "$(cat "$stamp" 2>/dev/null)" != "$hash" ] || return 0
    clang-tidy -p "$build" --quiet --warnings-as-errors='*' --extra-arg=-Wno-error ${2:+"--checks=$2"} "$1" 2>"$stamp.err" || {
        grep -v ' warnings\? generated\.$' "$stamp.err" >&2 || true
        return 1
    }
    echo "$hash" >"$stamp"
}
export -f tidy_one
export stamps common build

units=(src/libzeb2 src/serverkit src/zebmsgd src/zebseriald src/zeblogd)
[ $quick = yes ] || units=(src)
echo "clang-tidy: ${units[*]}"
started=$SECONDS
find "${units[@]}" -name '*.cpp' -print0 | sort -z |
    xargs -0 -n 1 -P "$jobs" bash -c 'tidy_one "$1" ""' _ || failed=1
echo "clang-tidy: $((SECONDS - started)) s"
if [ $deep = yes ]; then
    echo "clang-tidy: path analysis of src/libzeb2"
    started=$SECONDS
    find src/libzeb2 -name '*.cpp' -print0 | sort -z |
        xargs -0 -n 1 -P "$jobs" bash -c 'tidy_one "$1" "-*,clang-analyzer-*"' _ || failed=1
    echo "clang-tidy: $((SECONDS - started)) s"
fi
exit $failed
