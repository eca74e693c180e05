#!/bin/bash
# clean_root.sh PACKAGES [MIRROR]
# Installs the packages of a directory (scripts/package.sh) in a fresh Debian system, made for this by
# debootstrap, builds programs there, upgrades over a changed configuration, and runs the demo as an
# ordinary user. Needs root, debootstrap and a mirror: for a release, not for every test run.
set -euo pipefail
packages=$(realpath -e "$1")
# By default that of this machine.
mirror=${2:-$(apt-get indextargets --format '$(SITE)' | head -n 1)}
root=$(mktemp -d)
chmod 755 "$root"
mounted=()
clean_up() {
    for at in "${mounted[@]}"; do umount "$at"; done
    rm -rf --one-file-system "$root"
}
trap clean_up EXIT
trap 'exit 1' HUP INT TERM
say() { echo "clean root: $SECONDS s: $*"; }
fail() {
    echo "clean root: FAILED: $*"
    exit 1
}
inside() {
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C DEBIAN_FRONTEND=noninteractive \
        chroot "$root" "$@"
}
as_user() { inside setpriv --reuid=nobody --regid=nogroup --clear-groups "$@"; }
install_all() {
    inside sh -c "apt-get install -y --no-install-recommends $* >/log 2>&1" ||
        { tail -n 30 "$root/log"; fail "install $*"; }
}

say "a fresh system"
debootstrap --variant=minbase bookworm "$root" "$mirror" >"$packages/debootstrap.log" ||
    { tail -n 20 "$packages/debootstrap.log"; fail debootstrap; }
rm "$packages/debootstrap.log"
printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d" # no service starts in here
chmod +x "$root/usr/sbin/policy-rc.d"
for at in proc dev dev/pts; do
    mount --bind "/$at" "$root/$at" && mounted=("$root/$at" "${mounted[@]}")
done
mkdir "$root/debs"
cp "$packages"/*.deb "$root/debs"

say "the station's packages"
install_all "/debs/zeb-*.deb /debs/libzeb2-0_*.deb systemd"
inside getent passwd zeb || fail "no user zeb"
[ "$(inside zebctl conf get 'Disk;LogDir')" = /var/log/zeb ] || fail "the configuration"
inside systemd-analyze verify --man=no zebmsgd.service zebseriald.service zeblogd.service \
    gps@gps.service flow@flow.service waypoint@waypoint.service || fail "a unit"
for unit in zebmsgd zebseriald zeblogd; do
    inside systemctl is-enabled $unit.service || fail "$unit is not enabled"
    inside systemd-analyze security --no-pager --offline=true $unit.service | tail -n 1
done
for unit in gps flow waypoint; do
    inside systemctl enable $unit@two.service || fail "$unit@ has no instances"
    [ -L "$root/etc/systemd/system/multi-user.target.wants/$unit@two.service" ] || fail "$unit@two"
    inside systemd-analyze security --no-pager --offline=true $unit@.service | tail -n 1
done

say "zebctl demo as an ordinary user"
as_user zebctl demo --unplug >"$root/demo.txt" 2>&1 || { cat "$root/demo.txt"; fail "zebctl demo"; }
grep -q 'the line =flow is back' "$root/demo.txt" || fail "the demo does not show the line"
! ls -d "$root"/tmp/station.* 2>/dev/null || fail "the demo left its directory"

say "an upgrade keeps the configuration"
inside sh -c 'echo "Disk;StationID,mine" >>/etc/zeb.conf
    dpkg-deb -R /debs/zeb-common_*.deb /newer
    sed -i "s/^Version: .*/&+newer/" /newer/DEBIAN/control
    echo "# newer" >>/newer/etc/zeb.conf
    (cd /newer && sed -i "/etc\/zeb.conf/d" DEBIAN/md5sums)
    dpkg-deb -b /newer /debs/newer.deb' >/dev/null
inside sh -c 'dpkg --force-confdef --force-confold -i /debs/newer.deb </dev/null >/log 2>&1' ||
    { cat "$root/log"; fail "the upgrade"; }
[ "$(inside zebctl conf get 'Disk;StationID')" = mine ] || fail "the configuration was lost"
grep -q '# newer' "$root/etc/zeb.conf.dpkg-dist" || fail "the newer sample is not beside it"

say "programs in C and C++, with pkg-config and with CMake"
install_all "/debs/libzeb2-dev_*.deb g++ make cmake pkg-config"
as_user sh -c 'set -e; cp -r /usr/share/doc/zeb2/examples/first_daemon /tmp/first; cd /tmp/first
    cc -std=gnu11 first_daemon.c -o in_c $(pkg-config --cflags --libs zeb2)
    c++ -std=gnu++17 first_daemon.cpp -o in_cpp $(pkg-config --cflags --libs zeb2)
    cmake -S . -B build >/dev/null; cmake --build build >/dev/null
    export ZEB2RUN=/tmp/first; zebmsgd 2>/dev/null & server=$!
    for try in $(seq 100); do zebctl status >/dev/null 2>&1 && break; sleep 0.1; done
    for program in ./in_c ./in_cpp build/first_daemon build/first_daemon_c; do
        ZEB2RUN=/tmp/first $program mine & daemon=$!
        ZEB2RUN=/tmp/first zebctl watch --from mine --type MSG_HYGROMETER_INSTANT --count 1 --timeout 30
        kill $daemon; wait $daemon
    done
    kill $server; wait $server' || fail "a program"

say "away again"
inside sh -c 'apt-get purge -y "zeb*" "libzeb2*" >/log 2>&1' || { cat "$root/log"; fail purge; }
left=$(cd "$root" && find etc usr lib -name '*zeb*' -not -name '*.dpkg-*')
[ -z "$left" ] || fail "left behind: $left"
say "done"
