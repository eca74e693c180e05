#!/usr/bin/env bash
# Which lines and branches of the library and the servers the tests reach (docs/coverage.md): builds
# them with counters (preset coverage) and the tests that reach them, runs these, prints a table by
# file and the sums. The aim is 95 % of lines and 90 % of branches; branches that only an exception
# takes are not counted.
#   --tests REGEX      only these tests (ctest -R), adding to what was counted before
#   --target NAME      build only this; may be repeated
#   --jobs N           of the build and of the tests
#   --report           build and run nothing: print again what was counted
#   --html DIR         pages that show the lines, too
#   --strict           fail below the aim
#   --no-setup         install nothing
set -euo pipefail

# The tests of the tools, of documents and packages reach nothing that the others do not; those of
# docs/reliability.md's faults take an hour. Counters are calls of their own, which SweepExits finds.
other='faults_|zebctl_|zebgen|zebdoc|flow_|nmea|soak_watch|sweep_exits|definitions|own_catalogue'
selection=(-R '^[A-Z].*\..' -E '_NOT_BUILT')
targets=()
jobs=$((2 * $(nproc)))
again=
report_only=
html=
strict=()
setup=yes
while [ $# -gt 0 ]; do
    case $1 in
    --tests)
        selection=(-R "${2:?--tests wants a regular expression}" -E '_NOT_BUILT')
        again=yes
        shift
        ;;
    --jobs)
        jobs=${2:?--jobs wants a number}
        shift
        ;;
    --report) report_only=yes ;;
    --target)
        targets+=("${2:?--target wants a name}")
        shift
        ;;
    --html)
        html=$(realpath -m -- "${2:?--html wants a directory}")
        shift
        ;;
    --strict) strict=(--fail-under-line 95 --fail-under-branch 90) ;;
    --no-setup) setup=no ;;
    -h | --help)
        sed -n '2,13s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "coverage.sh: unknown option '$1' (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done
cd "$(dirname "$0")/.."
[ $setup = no ] || scripts/setup.sh --analysis

build=build/coverage
if [ -z "$report_only" ]; then
    cmake --preset coverage >/dev/null
    if [ ${#targets[@]} -eq 0 ]; then
        mapfile -t targets < <(ninja -C $build -t targets all |
            sed -n 's/^\(test_[a-z_0-9]*\):.*/\1/p' | grep -Ev "^test_($other)")
        targets+=(station)
    fi
    cmake --build --preset coverage -j "$jobs" --target "${targets[@]}"
    [ -n "$again" ] || find $build -name '*.gcda' -delete
    # A test that fails has still reached what it has; scripts/test.sh is where tests must pass.
    ctest --test-dir $build -j "$jobs" --output-on-failure "${selection[@]}" ||
        echo "coverage: some tests failed"
fi

# A count may come out as -1 where threads of a process that forked were counting: that branch alone
# is left out.
report=(--root . --object-directory $build -j "$(nproc)" --exclude-throw-branches
        --exclude-unreachable-branches --gcov-ignore-parse-errors)
for part in libzeb2 serverkit zebmsgd zebseriald zeblogd; do
    report+=(--filter "src/$part/")
done
if [ -n "$html" ]; then
    mkdir -p "$html"
    html=(--html-details "$html/index.html")
else
    html=()
fi
gcovr "${report[@]}" "${html[@]}" --json $build/coverage.json
gcovr --root . --add-tracefile $build/coverage.json --txt
echo "Branches:"
gcovr --root . --add-tracefile $build/coverage.json --txt --branches
gcovr --root . --add-tracefile $build/coverage.json --print-summary "${strict[@]}" >/dev/null
gcovr --root . --add-tracefile $build/coverage.json --print-summary | tail -n 3
