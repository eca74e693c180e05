#!/usr/bin/env bash
# Builds the Debian packages: libzeb2-0, libzeb2-dev, zeb-common, zeb-server, zeb-serial,
# zeb-daemons, zeb-tools, zeb-doc. They hold the programs of the release build, which the tests run on.
#   --out DIR       where they go (default build/packages)
#   --build DIR     of this build tree, as it is: it has been built
#   --no-setup      install nothing
#   --debug         with packages of debug information, which take some minutes
# Whoever publishes them sets DEBFULLNAME and DEBEMAIL: they become the packages' maintainer.
set -euo pipefail
root=$(realpath "$(dirname "$0")/..")

out=$root/build/packages
build=
setup=yes
debug=no
while [ $# -gt 0 ]; do
    case $1 in
    --out)
        out=${2:?--out wants a directory}
        shift
        ;;
    --build)
        build=$(realpath -e -- "${2:?--build wants a directory}")
        shift
        ;;
    --no-setup) setup=no ;;
    --debug) debug=yes ;;
    -h | --help)
        sed -n '2,8s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "package.sh: unknown option '$1' (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done

[ $debug = yes ] || export DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:-} noautodbgsym"
cd "$root"
if [ -z "$build" ]; then
    [ $setup = no ] || scripts/setup.sh
    cmake --preset release
    cmake --build --preset release --target zeb2 zebgen station docs
    build=$root/build/release
fi

# Those of the control file stand for nobody in particular, at a host that cannot exist.
name=${DEBFULLNAME:-$(sed -n 's/^Maintainer: \(.*\) <.*>/\1/p' packaging/debian/control)}
mail=${DEBEMAIL:-$(sed -n 's/^Maintainer: .*<\(.*\)>/\1/p' packaging/debian/control)}
case $name$mail in
*[\<\>]* | *$'\n'*)
    echo "package.sh: DEBFULLNAME is a name and DEBEMAIL an address, without brackets" >&2
    exit 2
    ;;
esac
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
# What is not released yet is older than the release.
grep -m 1 '^## ' CHANGELOG.md | grep -q -i '^## \[\{0,1\}unreleased' && version=$version~dev

# The newest section of CHANGELOG.md as Debian writes it.
changes() {
    awk '/^## / { n++; next } n == 1 && /^### / { printf "\n[ %s ]\n", $2; next }
        n == 1 && /^- / { printf "\n* %s", substr($0, 3); next }
        n == 1 && /^  / { printf " %s", substr($0, 3) } END { print "" }' CHANGELOG.md |
        grep . | fold -s -w 74 | sed 's/ *$//; s/^[^*[]/  &/; s/^/  /'
}
changelog() {
    printf 'zeb2 (%s) unstable; urgency=medium\n\n' "$version"
    changes
    printf '\n -- %s <%s>  %s\n' "$name" "$mail" "$(date -R -u -r CHANGELOG.md)"
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
tree=$work/zeb2
mkdir "$tree"
cp -r packaging/debian etc "$tree"
changelog >"$tree/debian/changelog"
sed '/^Maintainer:/d' packaging/debian/control >"$tree/debian/control"
sed -i "1a Maintainer: $(sed 's/\\/&&/g' <<<"$name <$mail>")" "$tree/debian/control"
(cd "$tree" && ZEB_BUILD=$build dpkg-buildpackage -b -us -uc)

mkdir -p "$out"
rm -f "$out"/*.deb "$out"/*.changes "$out"/*.buildinfo
mv "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo "$out"
echo "Packages of version $version in $out:"
(cd "$out" && ls -s --block-size=1K -- *.deb)
