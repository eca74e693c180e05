#!/bin/sh
# check_site.sh CMAKE BUILD_DIR LACKS
# Builds the site, of which every warning is an error. Without the programs that it LACKS, skipped.
set -eu
if [ -n "$3" ]; then
    echo "no site: not found are$3, see scripts/setup.sh"
    exit 77
fi
"$1" --build "$2" --target docs
[ -f "$2/docs/site/index.html" ] || { echo "there is no site"; exit 1; }
