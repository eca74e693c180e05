#!/usr/bin/env bash
# Looks at the sources with cppcheck and clang-tidy; both must have nothing to say. What clang-tidy has
# found clean is remembered in the user's cache directory and looked at again only when it, a header
# that it reads or the checks have changed: all of it takes five minutes of two processors.
#   --deep             clang-tidy's path analysis of the library, too: half an hour
#   --build DIR        a configured and built tree (default build/release)
#   --jobs N           at a time (default: one for each processor)
#   --no-setup         install nothing
set -euo pipefail

deep=no
build=
jobs=$(nproc)
setup=yes
while [ $# -gt 0 ]; do
    case $1 in
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

failed=0

echo "cppcheck: src"
started=$SECONDS
mkdir -p "$build/cppcheck"
cppcheck --quiet --std=c++20 --language=c++ --enable=warning,performance,portability -j "$jobs" \
    --inline-suppr --suppressions-list=.cppcheck-suppressions --error-exitcode=1 \
    --cppcheck-build-dir="$build/cppcheck" -UZEB_MSG_LIST_HEADER -UZEB_RECORDS_HEADER \
    -I "$build/include" -I src src || failed=1
echo "cppcheck: $((SECONDS - started)) s"

clean=${XDG_CACHE_HOME:-${HOME:-$build}/.cache}/zeb2/analysis
mkdir -p "$clean" 2>/dev/null && [ -w "$clean" ] || clean=$build/analysis
mkdir -p "$clean"
find "$clean" -type f -mtime +30 -delete
checks=$(cat .clang-tidy scripts/analyse.sh <(clang-tidy --version) | sha1sum)
# Each unit that was built and the files of this tree that it reads, in a line.
reads=$build/analysis_reads
ninja -C "$build" -t deps | sed "s|^    $build/|    |; s|^    $PWD/|    |; s|^    \(\.\./\)*src/|    src/|" |
    awk -v build="$build/" '
        /#deps/ { if (line) print line; line = "" }
        /^ / && $1 !~ /^\// { line = line ($1 ~ /^(src|definitions)\// ? $1 : build $1) " " }
        END { if (line) print line }' | sort -u >"$reads"

state_of() { # unit, checks to add: nothing when what it reads is not known
    local files
    files=$(grep -m 1 "^$1 " "$reads") || return 0
    # shellcheck disable=SC2086 # a list of names without blanks
    { echo "$checks $1 $2"; cat $files; } 2>/dev/null | sha1sum | cut -d ' ' -f 1
}
tidy_one() { # unit, checks to add
    local state errors
    state=$(state_of "$1" "$2")
    if [ -n "$state" ] && [ -e "$clean/$state" ]; then
        touch "$clean/$state"
        return 0
    fi
    errors=$(clang-tidy -p "$build" --quiet --warnings-as-errors='*' --extra-arg=-Wno-error \
        ${2:+"--checks=$2"} "$1" 2>&1 >&3) || {
        grep -v ' warnings\? generated\.$' <<<"$errors" >&2 || true
        return 1
    }
    [ -z "$state" ] || : >"$clean/$state"
}
tidy_all() { # directory, checks to add
    echo "clang-tidy: $1${2:+ ($2)}"
    started=$SECONDS
    find "$1" -name '*.cpp' -print0 | sort -z |
        xargs -0 -I '{}' -P "$jobs" bash -c 'tidy_one "$1" "$2" 3>&1' _ '{}' "$2" || failed=1
    echo "clang-tidy: $((SECONDS - started)) s"
}
export -f state_of tidy_one
export clean checks reads build

tidy_all src ""
[ $deep = no ] || tidy_all src/libzeb2 "-*,clang-analyzer-*"
exit $failed
