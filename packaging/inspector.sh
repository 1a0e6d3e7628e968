#!/usr/bin/env bash
# Builds, checks, tests or measures the page in inspector/, with what its lock file names; does nothing again that is done.
# Usage: inspector.sh build|check|units|page|sizes|bench [BIN_DIR]
set -euo pipefail
[ -z "${2:-}" ] || HMX_BIN=$(cd "$2" && pwd)
export HMX_BIN
cd "$(dirname "$0")/../inspector"
kept=node_modules

# True if nothing of the page is newer than the file.
upToDate() {
    [ -e "$1" ] && [ -z "$(find . ../client/rules -path ./node_modules -prune -o -path ./dist -prune -o -newer "$1" -type f -print -quit)" ]
}

command -v npm >/dev/null || { echo "inspector: npm is not installed; \`make setup\` installs it" >&2; exit 1; }
(
    # Tests run beside each other, but fetch only once.
    flock 9
    if [ ! -e "$kept/.fetched" ] || [ package-lock.json -nt "$kept/.fetched" ]; then
        echo "inspector: fetching what the page is built with"
        npm ci --ignore-scripts --no-audit --no-fund --loglevel=error
        touch "$kept/.fetched"
    fi
) 9<package.json

case "$1" in
check)
    upToDate "$kept/.checked" || npm run --silent check
    touch "$kept/.checked"
    ;;
build)
    if ! upToDate "$kept/.built" || [ ! -e dist/index.html ]; then
        npm run --silent check
        npm run --silent build -- --logLevel warn
        touch "$kept/.checked" "$kept/.built"
    fi
    ;;
units) npm run --silent test ;;
page) npm run --silent test:page ;;
sizes)
    for size in 1024x600 1280x720 1920x1080 2560x1440; do
        echo "inspector: $size"
        HMX_PAGE_SIZE=$size npm run --silent test:page
    done
    ;;
bench) node bench/page.mjs ;;
*)
    echo "inspector: '$1' is not one of build, check, units, page, sizes, bench" >&2
    exit 2
    ;;
esac
