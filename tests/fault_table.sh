#!/usr/bin/env bash
# fault_table.sh PAGE BUILD - counts the faults of the page's table that were survived: those of which
# every test has passed in this build, after all that it tests was built. Names what is missing.
set -euo pipefail
page=$1
build=$2

newest=$(find "$build/bin" "$build"/src/libzeb2/libzeb2.so* -type f -printf '%T@ %p\n' | sort -n |
    tail -1 | cut -d' ' -f2-)

# How a test of a program ended, or why that says nothing.
result_of() {
    local result=$build/results/$1/${2//\//+} program
    program=$(find "$build/tests" -maxdepth 2 -type f -name "$1")
    if [ ! -f "$result" ]; then
        echo "not run"
    elif [ -z "$program" ] || [ "$program" -nt "$result" ] || [ "$newest" -nt "$result" ]; then
        echo "not run since the build"
    else
        cat "$result"
    fi
}

total=0 survived=0 skipped=0
while IFS='|' read -r _ number fault _ tests _; do
    number=${number// /}
    total=$((total + 1))
    bad='' untried=''
    while IFS=: read -r program test; do
        result=$(result_of "$program" "${test# }")
        case $result in
        passed) ;;
        skipped:*) untried=${result#skipped: } ;;
        *) bad+="; $program: ${test# } ($result)" ;;
        esac
    done < <(grep -Eo '`test_[a-z_0-9]+: [^`]+`' <<<"$tests" | tr -d '`')
    if [ -n "$bad" ]; then
        echo "$number NOT SHOWN:$fault- ${bad#; }"
    elif [ -n "$untried" ]; then
        skipped=$((skipped + 1))
        echo "$number not tried here:$fault- $untried"
    else
        survived=$((survived + 1))
        echo "$number survived:$fault"
    fi
done < <(grep -E '^\| F[0-9]+ \|' "$page")

echo
echo "$survived of $total faults survived$([ $skipped = 0 ] || echo ", $skipped not tried here")"
[ $total -gt 0 ] && [ $((survived + skipped)) -eq $total ]
