#!/usr/bin/env bash
# Runs the tests of a preset's build; shows the progress, failures and ctest's summary.
# Usage: test.sh PRESET JOBS [CTEST_OPTION...]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
jobs=$2
shift 2
ctest --preset "$preset" -j "$jobs" "$@" | packaging/progress.sh test
