#!/usr/bin/env bash
# check_reliability.sh PAGE TESTS - whether every test that the page names is in a source of TESTS, and
# whether the faults of its table are numbered from F01 and each has a test.
set -euo pipefail
page=$1
tests=$2

missing=0
complain() {
    echo "$page $1" >&2
    missing=1
}
while IFS=. read -r suite name; do
    suite=${suite##*/}
    name=${name%%/*}
    grep -Erqz --include='*.cpp' "TEST(_F|_P)?\($suite,[[:space:]]+$name\)" "$tests" ||
        complain "names $suite.$name, which is no test"
done < <(grep -Eo '`test_[a-z_0-9]+: [A-Za-z0-9/]+\.[A-Za-z0-9/]+`' "$page" |
    sed 's/^`[^ ]* //; s/`$//' | sort -u)

count=0
while IFS='|' read -r _ number fault _ shown _; do
    count=$((count + 1))
    [ "${number// /}" = "$(printf 'F%02d' $count)" ] || complain "has$number in place of fault $count"
    grep -q '`test_' <<<"$shown" || complain "names no test for$fault"
done < <(grep -E '^\| F' "$page")
[ $count -gt 0 ] || complain "has no table of faults"
exit $missing
