#!/usr/bin/env bash
# Set-up, build and every test: native, with AddressSanitizer and UndefinedBehaviorSanitizer, with
# ThreadSanitizer, and as 32-bit; at last ten million runs of the fuzzers (docs/fuzzing.md).
#   --quick            only the native build, without the tests that take long: every fault of
#                      docs/reliability.md, every call failing in turn, a soak of two minutes,
#                      analysis of the sources
#   --preset NAME      only this one (release, asan, tsan, i386, fuzz); may be repeated
#   --no-setup         install nothing
# The compiler's work is remembered (ccache), and so is what clang-tidy found clean: a second run
# takes less than half the time, wherever its tree is. The tests run side by side, with real programs
# and their time-outs; up to ten that fail are run once more, alone. One that passes then is named at
# the end: it needs looking at.
set -euo pipefail
cd "$(dirname "$0")/.."

presets=()
setup=yes
long=ON
while [ $# -gt 0 ]; do
    case $1 in
    --quick) presets=(release) long=OFF ;;
    --preset)
        presets+=("${2:?--preset wants a name}")
        shift
        ;;
    --no-setup) setup=no ;;
    -h | --help)
        sed -n '2,12s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "test.sh: unknown option '$1' (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done
[ ${#presets[@]} -gt 0 ] || presets=(release asan tsan i386 fuzz)
setup_options=()
[ $long = OFF ] || setup_options=(--analysis)
[ $setup = no ] || scripts/setup.sh "${setup_options[@]}"

# Trees at other places, as of a second clone, share what was compiled of the same sources.
cache=$(ccache -k cache_dir 2>/dev/null || true)
if [ -n "$cache" ] && mkdir -p "$cache" 2>/dev/null && [ -w "$cache" ]; then
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
    export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros
fi
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1}

failed=()
only_alone=()
failed_tests() { # preset, word
    sed "s/^[0-9]*:/$1: $2/" "build/$1/Testing/Temporary/LastTestsFailed.log"
}
run_alone() { # preset
    local names
    names=$(failed_tests "$1" "")
    [ "$(wc -l <<<"$names")" -le 10 ] || return 1
    echo "=== $1: once more, alone"
    ctest --test-dir "build/$1" --rerun-failed --output-on-failure || return 1
    only_alone+=("$names")
}
for preset in "${presets[@]}"; do
    started=$SECONDS
    echo
    echo "=== $preset: build"
    cmake --preset "$preset" -DZEB_LONG_TESTS=$long
    # ThreadSanitizer has something to say only where threads meet.
    target=(all)
    selection=()
    [ "$preset" != tsan ] || { target=(threads) selection=(-L threads); }
    [ "$preset" != fuzz ] || target=(fuzzers)
    cmake --build --preset "$preset" --target "${target[@]}"
    # Daemons of each of four kinds that are killed at a random moment; sanitized ones start slowly.
    kills=50
    [ "$preset" != release ] || [ $long = OFF ] || kills=250
    echo "=== $preset: tests"
    export ZEB_LOG_KILLS=$kills
    ctest --test-dir "build/$preset" -j "$((2 * $(nproc)))" --output-on-failure "${selection[@]}" ||
        run_alone "$preset" || failed+=("$preset")
    echo "=== $preset: $((SECONDS - started)) s"
done

echo
[ ${#only_alone[@]} -eq 0 ] || printf 'Passed only alone:\n%s\n' "${only_alone[@]}"
if [ ${#failed[@]} -gt 0 ]; then
    # The names once more at the end, where a reader of a long log looks first.
    for preset in "${failed[@]}"; do
        failed_tests "$preset" "failed: " || true
    done
    echo "FAILED in: ${failed[*]}"
    exit 1
fi
echo "All tests passed in: ${presets[*]} ($SECONDS s)"
