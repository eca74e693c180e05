#!/usr/bin/env bash
# Puts the faults of tests/seeded/ into a copy of the tree, one at a time, and runs the tests that
# ought to find each. Prints how many were caught and which were not; fails below the number wanted.
#   --check            only whether every fault still fits the sources
#   --only PATTERN     the faults whose file names match, such as '0[1-5]-*'
#   --wanted N         caught faults that are enough (default: all but 2 of those tried)
#   --dir DIR          the copy and its build, kept for the next time (default: a temporary one)
#   --no-setup         install nothing
#
# A fault is a file NN-NAME.fault: a line that says what is wrong, FILE, TESTS (the programs that ought
# to find it), and the text OLD that becomes NEW, which must be in the file exactly once.
set -euo pipefail

check=no
only='*'
wanted=
dir=
setup=yes
while [ $# -gt 0 ]; do
    case $1 in
    --check) check=yes ;;
    --no-setup) setup=no ;;
    --only | --wanted | --dir)
        declare "${1#--}=${2:?$1 wants a value}"
        shift
        ;;
    -h | --help)
        sed -n '2,11s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "seeded_faults.sh: unknown option '$1' (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done
[ -z "$dir" ] || dir=$(realpath -m -- "$dir")
cd "$(dirname "$0")/.."
source_tree=$PWD

mapfile -t faults < <(find tests/seeded -name "$only.fault" -o -name "$only" -name '*.fault' | sort -u)
[ ${#faults[@]} -gt 0 ] || {
    echo "seeded_faults.sh: no fault matches '$only'" >&2
    exit 2
}

word_of() { sed -n "s/^$1 //p;/^OLD\$/q" "$2"; }
text_of() { sed -n "/^$1\$/,/^$2\$/p" "$3" | sed '1d;$d'; }
# Puts a fault into the tree at $2 (with "check" only looks); fails when its text is not there once.
apply() { # fault, tree [, check]
    OLD=$(text_of OLD NEW "$1") NEW=$(text_of NEW END "$1") ONLY_LOOK=${3:-} perl -0777 -e '
        my ($path) = @ARGV;
        open(my $in, "<", $path) or die "$path: $!\n";
        my $text = <$in>;
        my $count = () = $text =~ /\Q$ENV{OLD}\E/g;
        die "the text is there $count times in $path\n" if $count != 1;
        exit 0 if $ENV{ONLY_LOOK};
        $text =~ s/\Q$ENV{OLD}\E/$ENV{NEW}/;
        open(my $out, ">", $path) or die "$path: $!\n";
        print $out $text;
        close($out) or die "$path: $!\n"' "$2/$(word_of FILE "$1")"
}

misfits=0
for fault in "${faults[@]}"; do
    apply "$fault" . check || {
        echo "$fault does not fit"
        misfits=$((misfits + 1))
    }
done
[ $misfits -eq 0 ] || exit 1
if [ $check = yes ]; then
    echo "${#faults[@]} faults fit"
    exit 0
fi

[ $setup = no ] || scripts/setup.sh
if [ -z "$dir" ]; then
    dir=$(mktemp -d "${TMPDIR:-/tmp}/seeded.XXXXXX")
    trap 'rm -rf "$dir"' EXIT
fi
mkdir -p "$dir/tree"
if command -v ccache >/dev/null; then
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
    export CCACHE_BASEDIR=$dir/tree CCACHE_NOHASHDIR=1
fi
# Files that have not changed keep their times, and what was built of them stays good.
copy() { # file
    cmp -s "$1" "$dir/tree/$1" || {
        mkdir -p "$dir/tree/$(dirname "$1")"
        cp -P "$1" "$dir/tree/$1"
    }
}
git ls-files -z --cached --others --exclude-standard | while IFS= read -r -d '' file; do
    [ ! -e "$file" ] || copy "$file"
done
cd "$dir/tree"
# A fault may leave something unused, which is for the tests to find, not for the compiler.
cmake --preset release -DZEB_WERROR=OFF >/dev/null
mapfile -t all_tests < <(for fault in "${faults[@]}"; do word_of TESTS "$source_tree/$fault"; done |
    tr ' ' '\n' | sort -u)

build() { cmake --build --preset release --target "$@" >"$dir/build.log" 2>&1; }
# True when every test of the programs passes; a test that hangs does not.
pass() {
    local program path
    for program in "$@"; do
        path=$(find build/release/tests -name "$program" -type f -perm -u+x | head -n 1)
        timeout --kill-after=5 "${SEEDED_TIMEOUT:-180}" "$path" --gtest_fail_fast \
            >"$dir/test.log" 2>&1 || return 1
    done
}

echo "Building the tests as they are"
build "${all_tests[@]}" || {
    tail -n 20 "$dir/build.log"
    exit 1
}
for program in "${all_tests[@]}"; do
    pass "$program" || {
        echo "$program fails without any fault:"
        tail -n 20 "$dir/test.log"
        exit 1
    }
done

caught=0
missed=()
for fault in "${faults[@]}"; do
    fault_file=$source_tree/$fault
    path=$(word_of FILE "$fault_file")
    read -r -a tests <<<"$(word_of TESTS "$fault_file")"
    apply "$fault_file" .
    name=$(basename "$fault" .fault)
    if ! build "${tests[@]}"; then
        echo "$name does not build:"
        grep -m 5 'error' "$dir/build.log" || true
        missed+=("$name (does not build)")
    elif pass "${tests[@]}"; then
        echo "$name MISSED: $(sed -n '1s/^# //p' "$fault_file")"
        missed+=("$name")
    else
        caught=$((caught + 1))
        echo "$name caught: $(grep -m 1 -o '\[  FAILED  \] [A-Za-z0-9_/.]*' "$dir/test.log" |
            sed 's/.*\] //' || echo "ended or hung")"
    fi
    cp "$source_tree/$path" "$path"
done
echo
echo "$caught of ${#faults[@]} faults caught"
[ ${#missed[@]} -eq 0 ] || printf 'missed: %s\n' "${missed[@]}"
[ $caught -ge "${wanted:-$((${#faults[@]} - 2))}" ]
