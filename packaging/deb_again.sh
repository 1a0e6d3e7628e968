#!/usr/bin/env bash
# Builds the packages of build/deb once more, in another folder and with nothing from a cache: they must have the same bytes.
# Usage: deb_again.sh JOBS
set -euo pipefail
cd "$(dirname "$0")/.."
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
CCACHE_DISABLE=1 packaging/deb.sh "$1" "$folder/elsewhere"
failed=0
for package in build/deb/*.deb; do
    cmp "$package" "$folder/elsewhere/${package##*/}" || failed=1
done
[ "$failed" -ne 0 ] || echo "deb: $(find build/deb -name '*.deb' | wc -l) packages have the same bytes"
exit "$failed"
