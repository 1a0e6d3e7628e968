#!/usr/bin/env bash
# Runs the tests of a preset's build; shows the progress, failures and ctest's summary.
# Many drivers mostly wait, so ctest gets three places for each processor. What keeps a processor busy, or is timed, takes two or
# three of them (PROCESSORS in the CMakeLists.txt); what is long starts first (COST).
# Usage: test.sh PRESET JOBS [CTEST_OPTION...]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
jobs=$2
shift 2
ctest --preset "$preset" -j $((3 * jobs)) "$@" | packaging/progress.sh test
