# station.sh - sourced by the scripts beside it: a private place with everything installed in it, and
# the programs that run there until the script ends.
#   . station.sh BUILD_DIR CMAKE CC CXX FLAGS DOCUMENT
build=$1
cmake=$2
cc=$3
cxx=$4
flags=$5
document=$6
work=$(mktemp -d)
pids=
stop_all() {
    for pid in $pids; do
        kill "$pid" 2>/dev/null && wait "$pid" || :
    done
    rm -rf "$work"
}
trap stop_all EXIT
trap 'exit 1' HUP INT TERM
# The installed files must do by themselves, and the station is a private one.
unset CPATH C_INCLUDE_PATH CPLUS_INCLUDE_PATH LIBRARY_PATH LD_LIBRARY_PATH ZEB2SERVER ZEB2STARTUP || :
export ZEB2="$work" ZEB2RUN="$work/run"
mkdir "$ZEB2RUN"

fail() {
    echo "$*"
    tail -n 20 "$work"/*.log
    exit 1
}
quietly() {
    "$@" >"$work/step.log" 2>&1 || fail "failed: $*"
}
wait_for() {
    what=$1
    shift
    tries=0
    until "$@" >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ $tries -lt 300 ] || fail "$what did not appear"
        sleep 0.1
    done
}
start() { # name, program, arguments...
    log=$work/$1.log
    shift
    "$@" >"$log" 2>&1 &
    pids="$! $pids"
}
stop_latest() { # what it is
    pid=${pids%% *}
    kill "$pid"
    pids=${pids#* }
    wait "$pid" || fail "$1 did not end well"
}
announced() { "$zebctl" instruments --json | grep -q "\"$1\""; }

quietly "$cmake" --install "$build" --prefix "$work/usr"
# A completion has the name of its program.
installed() { find "$work/usr" -type f -name "$1" -not -path '*/bash-completion/*'; }
zebmsgd=$(installed zebmsgd)
zebctl=$(installed zebctl)

# The text of the document's block with this number among those of a language.
block() {
    awk -v fence="\`\`\`$1" -v wanted="$2" '
        /^```/ { inside = !inside && $0 == fence && ++n == wanted; next }
        inside' "$document"
}
shows() { # language, number, file
    block "$1" "$2" >"$work/shown"
    cmp "$work/shown" "$3" || fail "block $2 of $1 in $document is not $3"
}
build_example() { # directory
    quietly "$cmake" -S "$1" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/usr" \
        -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
        -DCMAKE_C_FLAGS="$flags -Wall -Wextra -Wpedantic -Werror" \
        -DCMAKE_CXX_FLAGS="$flags -Wall -Wextra -Wpedantic -Werror"
    quietly "$cmake" --build "$work/build"
}
