#!/usr/bin/env bash
# Fuzzes: builds the fuzz targets with clang and runs each from its stored seeds.
#   TARGET...          only these (default: all of fuzz/fuzz_*.cpp)
#   --seconds N        each for so long (default 60)
#   --runs N           each for so many runs, within 3 minutes
#   --check            as the test suite does: from a fixed seed, keeping nothing
#   --no-setup         install nothing
#   --no-build         use the targets as they are
# What a run has found to reach new code is kept in build/fuzz/corpus and used by the next. An input
# that breaks something is stored under fuzz/seeds/TARGET, where the tests replay it from then on.
set -euo pipefail
cd "$(dirname "$0")/.."

limit=(-max_total_time=60)
check=no
setup=yes
build=yes
targets=()
while [ $# -gt 0 ]; do
    case $1 in
    --seconds)
        limit=(-max_total_time="${2:?--seconds wants a number}")
        shift
        ;;
    --runs)
        limit=(-runs="${2:?--runs wants a number}" -max_total_time=180)
        shift
        ;;
    --check) check=yes ;;
    --no-setup) setup=no ;;
    --no-build) build=no setup=no ;;
    -h | --help)
        sed -n '2,10s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    -*)
        echo "fuzz.sh: unknown option '$1' (see --help)" >&2
        exit 2
        ;;
    *)
        [ -f "fuzz/fuzz_$1.cpp" ] || {
            echo "fuzz.sh: there is no target '$1'" >&2
            exit 2
        }
        targets+=("$1")
        ;;
    esac
    shift
done
if [ ${#targets[@]} -eq 0 ]; then
    for source in fuzz/fuzz_*.cpp; do
        name=$(basename "$source" .cpp)
        targets+=("${name#fuzz_}")
    done
fi

[ $setup = no ] || scripts/setup.sh
if [ $build = yes ]; then
    cmake --preset fuzz >/dev/null
    cmake --build --preset fuzz
fi

# Long stacks of allocations cost half of the speed; an input is run again to see more.
export ASAN_OPTIONS=${ASAN_OPTIONS:-malloc_context_size=6}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}

# An input takes microseconds; one that takes seconds, or half a gigabyte, is a finding too.
fuzz() { # target corpus...
    local target=$1
    shift
    local options=("${limit[@]}" -timeout=10 -rss_limit_mb=1024 -malloc_limit_mb=512
        -close_fd_mask=2 -print_final_stats=1 -artifact_prefix="$artifacts/")
    [ ! -f "fuzz/$target.dict" ] || options+=(-dict="fuzz/$target.dict")
    [ $check = no ] || options+=(-seed=1)
    build/fuzz/fuzz/fuzz_"$target" "${options[@]}" "$@"
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=()
for target in "${targets[@]}"; do
    artifacts=$scratch/$target
    corpus=build/fuzz/corpus/$target
    [ $check = no ] || corpus=$scratch/corpus
    mkdir -p "$artifacts" "$corpus"
    echo "=== $target"
    fuzz "$target" "$corpus" "fuzz/seeds/$target" || failed+=("$target")
    for finding in "$artifacts"/*; do
        [ -e "$finding" ] || continue
        cp "$finding" "fuzz/seeds/$target/"
        echo "fuzz: stored fuzz/seeds/$target/$(basename "$finding")"
    done
done

if [ ${#failed[@]} -gt 0 ]; then
    echo "FOUND something in: ${failed[*]}"
    exit 1
fi
