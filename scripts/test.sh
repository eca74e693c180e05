#!/usr/bin/env bash
# Set-up, build and every test: native, with AddressSanitizer and UndefinedBehaviorSanitizer, with
# ThreadSanitizer, and as 32-bit; at last ten million runs of the fuzzers (docs/fuzzing.md).
#   --quick            only the native build
#   --long             with the tests that take long: every fault of docs/reliability.md, every call
#                      failing in turn, a soak of two minutes, analysis of the sources
#   --preset NAME      only this one (release, asan, tsan, i386, fuzz); may be repeated
#   --no-setup         install nothing
set -euo pipefail
cd "$(dirname "$0")/.."

presets=()
setup=yes
long=OFF
while [ $# -gt 0 ]; do
    case $1 in
    --quick) presets=(release) ;;
    --long) long=ON ;;
    --preset)
        presets+=("${2:?--preset wants a name}")
        shift
        ;;
    --no-setup) setup=no ;;
    -h | --help)
        sed -n '2,8s/^# \{0,1\}//p' "$0"
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
if [ $long = ON ]; then
    setup_options=(--analysis)
    export ZEB_LOG_KILLS=${ZEB_LOG_KILLS:-250} # daemons of each of four kinds
fi
[ $setup = no ] || scripts/setup.sh "${setup_options[@]}"

export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1}

failed=()
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
    echo "=== $preset: tests"
    ctest --test-dir "build/$preset" -j "$((2 * $(nproc)))" --output-on-failure "${selection[@]}" ||
        failed+=("$preset")
    echo "=== $preset: $((SECONDS - started)) s"
done

echo
if [ ${#failed[@]} -gt 0 ]; then
    # The names once more at the end, where a reader of a long log looks first.
    for preset in "${failed[@]}"; do
        sed "s/^[0-9]*:/$preset: failed: /" "build/$preset/Testing/Temporary/LastTestsFailed.log" || true
    done
    echo "FAILED in: ${failed[*]}"
    exit 1
fi
echo "All tests passed in: ${presets[*]} ($SECONDS s)"
