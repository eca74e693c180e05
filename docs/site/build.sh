#!/bin/sh
# build.sh SOURCE BUILD ZEBDOC DOXYGEN DOT MANDOC
# Writes the site to BUILD/site, from BUILD/Doxyfile, BUILD/man and BUILD/catalogue. Warnings of any
# of the programs, and links that lead to nothing, are errors.
set -eu
source=$1
build=$2
zebdoc=$3
doxygen=$4
dot=$5
mandoc=$6
site=$build/site
new=$build/site.new
rm -rf "$new" "$site"
mkdir -p "$new/man" "$build/pictures"

"$dot" -Tsvg "$source/docs/architecture.dot" >"$build/pictures/architecture.svg"
cp "$source/docs/soak.svg" "$build/pictures/"
"$doxygen" "$build/Doxyfile"
cp "$build"/pictures/*.svg "$new/"
cp -r "$build/catalogue" "$new/"

cp "$source/docs/site/man.css" "$new/man/"
for page in "$source"/src/*/*.[1-8] "$source/docs/zeb.conf.5" "$build"/man/man3/zeb2-*.3 \
    "$build/man/man3/libzeb2.3" "$build"/man/man5/*.5; do
    "$mandoc" -T html -W warning,stop -O style=man.css "$page" >"$new/man/$(basename "$page").html"
done
"$zebdoc" links "$new"
# Whole, or not at all: what is there is the target of the build.
mv "$new" "$site"
