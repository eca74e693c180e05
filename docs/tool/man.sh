#!/bin/sh
# man.sh ZEBDOC SOURCE OUT HEADER...
# Writes OUT/man3 and OUT/man5: a page for each header, which all its functions lead to, and one for
# each format.
set -eu
zebdoc=$1
source=$2
out=$3
shift 3
rm -rf "$out"
mkdir -p "$out/man3" "$out/man5"
# The day of the pages' form; what they say is dated by the release.
date=$(sed -n 's/^\.TH [A-Z0-9]* 3 \([0-9-]*\).*/\1/p' "$source/docs/libzeb2.3")
for header in "$@"; do
    name=zeb2-$(basename "$header" .h | tr _ -)
    [ "$header" = libzeb2.h ] && name=zeb2-start
    "$zebdoc" page "$name" 3 "$date" "Library functions" "$source/src/libzeb2/$header" \
        >"$out/man3/$name.3"
    for function in $("$zebdoc" names "$source/src/libzeb2/$header"); do
        echo ".so man3/$name.3" >"$out/man3/$function.3"
    done
done
cp "$source/docs/libzeb2.3" "$out/man3/"
for page in "$source"/docs/formats/*.md; do
    name=zeb-$(basename "$page" .md)
    "$zebdoc" page "$name" 5 "$date" "File formats" "$page" >"$out/man5/$name.5"
done
# zeb.conf(5) lists the keys; this one is about lines.
mv "$out/man5/zeb-configuration.5" "$out/man5/zeb-conf-lines.5"
sed -i 's/zeb\\-configuration/zeb\\-conf\\-lines/; s/^\.TH ZEB-CONFIGURATION/.TH ZEB-CONF-LINES/' \
    "$out/man5/zeb-conf-lines.5"
