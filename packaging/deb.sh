#!/usr/bin/env bash
# Builds the Debian packages from a copy of the tree, and checks them with lintian. Usage: deb.sh JOBS [FOLDER]
# The copy is made because a package build writes into the tree and beside it. Nothing of the packages depends on where it is.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$1
folder=${2:-build/deb}

version=$(sed -n '1s/.*(\(.*\)).*/\1/p' debian/changelog)
tree=$folder/hmxtolubridge-$version
rm -rf "$folder"
mkdir -p "$tree"
tar -c --exclude=./build --exclude=./.cache --exclude=./.git --exclude=./inspector/node_modules --exclude=__pycache__ . | tar -x -C "$tree"
top=$PWD
if command -v ccache >/dev/null; then
    # A package build has a home of its own.
    CCACHE_DIR=$(ccache -k cache_dir)
    CCACHE_MAXSIZE=$(ccache -k max_size)
    export CCACHE_DIR CCACHE_MAXSIZE DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:-} ccache"
fi
cd "$tree"
code=0
NINJA_STATUS='[%f/%t] ' dpkg-buildpackage -b -us -uc -j"$jobs" 2>&1 | tee ../build.log |
    sed -u -n 's|^\(\[[0-9]*/[0-9]*\] \).*|\1|p' | "$top/packaging/progress.sh" deb || code=$?
if [ "$code" -ne 0 ]; then
    tail -n 40 ../build.log | cut -c1-200 >&2
    echo "deb: failed; all of it is in $folder/build.log" >&2
    exit "$code"
fi
cd ..
rm -rf "hmxtolubridge-$version"
lintian --allow-root --fail-on error,warning --tag-display-limit 0 ./*.changes
printf "deb: $folder/%s\n" *.deb
