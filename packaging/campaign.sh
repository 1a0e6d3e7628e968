#!/usr/bin/env bash
# Checks the promises of a build's programs, then the relay's through a hundred random deaths between two machines, then races
# requests under both sanitizers. With arguments, runs only hmxcampaign, with these arguments.
# Usage: campaign.sh BUILD_DIR JOBS [ARGUMENT...]
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
jobs=$2
shift 2

failed=0
"$build/bin/hmxcampaign" "$@" || failed=$?
if [ "$#" -eq 0 ]; then
    python3 tests/programs/relay.py "$build/bin" --deaths 100 || failed=1
    for sanitizer in address thread; do
        cmake --preset "$sanitizer" >/dev/null
        cmake --build --preset "$sanitizer" -j "$jobs" --target hmxraces -- --quiet
        echo "under the $sanitizer sanitizer:"
        TSAN_OPTIONS=halt_on_error=1 "build/$sanitizer/bin/hmxraces" || failed=1
    done
fi
exit "$failed"
