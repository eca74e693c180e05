#!/usr/bin/env bash
# check_reliability.sh PAGE TESTS - whether every test that the page names is in a source of TESTS.
set -euo pipefail
page=$1
tests=$2

missing=0
while IFS=. read -r suite name; do
    suite=${suite##*/}
    if ! grep -Erqz --include='*.cpp' "TEST(_F|_P)?\($suite,[[:space:]]+$name\)" "$tests"; then
        echo "$page names $suite.$name, which is no test" >&2
        missing=1
    fi
done < <(grep -Eo '`test_[a-z_]+: [A-Za-z0-9/]+\.[A-Za-z0-9]+`' "$page" | sed 's/^`[^ ]* //; s/`$//')
exit $missing
