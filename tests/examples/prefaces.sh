#!/bin/sh
# prefaces.sh BUILD_DIR CMAKE CC CXX FLAGS HEADERS ZEBDOC
# The call sequences in the prefaces of the public headers: compiled as C and as C++ against an
# installation, with what tests/prefaces puts around them, and run; those of links with the installed
# servers.
set -eu
. "$(dirname "$0")/station.sh"
headers=$document
zebdoc=$7
around=$(cd "$(dirname "$0")/../prefaces" && pwd)

for header in "$headers"/*.h; do
    name=$(basename "$header" .h)
    installed=$(installed "$name.h" | grep "/include/zeb2/$name\.h$" || :)
    [ -n "$installed" ] || continue # one of the library's own
    "$zebdoc" sequences "$installed" "$work/$name" || fail "$name.h has no call sequence"
    [ -f "$around/$name.c" ] || fail "nothing runs the call sequences of $name.h"
    for sequence in "$work/$name".*.function; do
        grep -q "#include \"$(basename "$sequence")\"" "$around/$name.c" ||
            fail "$(basename "$sequence") is not run"
    done
done
library=$(dirname "$(find "$work/usr" -name libzeb2.so)")
warnings="-Wall -Wextra -Wpedantic -Werror -Wno-unused-variable -Wno-unused-but-set-variable"
for program in "$around"/*.c; do
    name=$(basename "$program" .c)
    # shellcheck disable=SC2086
    for language in "$cc -std=c11 -D_GNU_SOURCE -x c" "$cxx -std=c++17 -x c++"; do
        quietly $language $flags $warnings -I "$work/usr/include" -I "$work" -I "$around" \
            "$program" -x none -o "$work/$name.${language##* }" -L "$library" -lzeb2 \
            -Wl,-rpath,"$library" -pthread
    done
done

# What they suppose there to be.
mkdir "$ZEB2/etc" "$ZEB2/bin" "$ZEB2/log"
printf '%s\n' 'Disk;LogDir,/data' 'Neph;Port;Baud,9600' "Port;line;Device,$ZEB2/line" \
    >"$ZEB2/etc/zeb.conf"
printf '%s\n' '#!/bin/sh' 'read -r line' 'echo "$* $line" >"$ZEB2/asked"' >"$ZEB2/bin/pump"
chmod +x "$ZEB2/bin/pump"
start line "$(installed zeb-flow-sim)" --link "$ZEB2/line"
start zebmsgd "$zebmsgd"
start zebseriald "$(installed zebseriald)"
wait_for "the message server" "$zebctl" status
asked() {
    "$zebctl" serial =line --send ':01F*E1\r' --until '\r' --timeout 2 | grep '^>01F[0-9.]*\*'
}
wait_for "the line" asked

until_stopped() { # name, program, what shows that it works...
    start "$1" "$2" "$ZEB2/log"
    name=$1
    shift 2
    wait_for "what $name does" "$@"
    stop_latest "$name"
}
sent() { # name, type
    "$zebctl" watch --type "$2" --from "$1" --count 1 --timeout 5 | grep "$2"
}
averaged() {
    "$zebctl" log average --to logger1
    cat "$ZEB2"/log/X1_* | grep '^X1S,ABC,[0-9]*,20..-..-..T..:..:..Z, 12\.50$'
}
connected() { "$zebctl" status | grep "$1"; }
for language in c c++; do
    for name in $(cd "$around" && ls ./*.c); do
        name=$(basename "$name" .c)
        case $name in
        zebmsg) until_stopped neph1 "$work/zebmsg.$language" sent neph1 MSG_NEPH_INSTANT ;;
        inst) until_stopped pump1 "$work/inst.$language" connected pump1 ;;
        log) until_stopped logger1 "$work/log.$language" averaged ;;
        *) quietly "$work/$name.$language" "$work/$name.written" ;;
        esac
    done
    [ "$(cat "$ZEB2/asked")" = "--port 3 flow 2.5" ] || fail "the child read $(cat "$ZEB2/asked")"
    rm "$ZEB2"/asked "$ZEB2"/log/* "$work/zebfile.written"
done
