#!/usr/bin/env bash
# Which lines and branches of the library and the servers the tests reach: builds with counters
# (preset coverage), runs the tests, prints a table by file and the sums. The aim is 95 % of lines
# and 90 % of branches; branches that only an exception takes are not counted.
#   --tests REGEX      only these tests (ctest -R); with --target, without a whole build
#   --target NAME      build only this; may be repeated
#   --html DIR         pages that show the lines, too
#   --strict           fail below the aim
#   --no-setup         install nothing
set -euo pipefail

selection=(-E '^(catalogue_memory|installed_|soak|analysis)')
targets=()
html=
strict=()
setup=yes
while [ $# -gt 0 ]; do
    case $1 in
    --tests)
        selection=(-R "${2:?--tests wants a regular expression}")
        shift
        ;;
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
        sed -n '2,9s/^# \{0,1\}//p' "$0"
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
[ ${#targets[@]} -gt 0 ] || targets=(all)

build=build/coverage
cmake --preset coverage >/dev/null
cmake --build --preset coverage --target "${targets[@]}"
find $build -name '*.gcda' -delete
# A test that fails has still reached what it has; scripts/test.sh is where tests must pass.
ctest --test-dir $build -j "$((2 * $(nproc)))" --output-on-failure "${selection[@]}" ||
    echo "coverage: some tests failed"

report=(--root . --object-directory $build -j "$(nproc)" --exclude-throw-branches
        --exclude-unreachable-branches)
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
