#!/usr/bin/env bash
# Configures a preset's build if necessary, then builds targets of it and shows the progress; silent if there is nothing to do.
# A new build is configured without tests if only the programs are wanted, because tests need more packages; once it is
# configured with tests, it stays so. A new release build is a quick build (cmake/Floors.cmake), unless it was configured
# otherwise before. With sanitizers GCC does not get along with precompiled headers.
# Usage: build.sh PRESET JOBS programs|all|TARGET...
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
jobs=$2
shift 2
build=build/$preset
cache=$build/CMakeCache.txt

with_tests=
if grep -qs '^HMX_BUILD_TESTS:BOOL=ON$' "$cache"; then
    with_tests=yes
fi
options=()
configure=
case "$preset" in
release | arm64) [ -f "$cache" ] || options+=(-DHMX_QUICK=ON) ;;
esac
# Ninja notices changed CMake files and new sources by itself, but not changed presets.
if [ ! -f "$build/build.ninja" ] || [ CMakePresets.json -nt "$build/build.ninja" ]; then
    configure=yes
fi
# What was not there then may have been installed since.
if grep -qs '^HMX_\(DDSC\|IDLC\):FILEPATH=.*-NOTFOUND$' "$cache" && command -v idlc >/dev/null; then
    configure=yes
fi
if grep -qs '^HMX_DLT:FILEPATH=.*-NOTFOUND$' "$cache" && pkg-config --exists automotive-dlt; then
    configure=yes
fi
case "$1" in
programs | installed_files | hmxrelay | kelo-trace-dlt)
    [ -n "$with_tests" ] || options+=(-DHMX_BUILD_TESTS=OFF)
    ;;
fuzz/all) ;;
*)
    [ -n "$with_tests" ] || configure=yes
    ;;
esac
if [ -n "$configure" ]; then
    echo "configuring $build"
    cmake --preset "$preset" "${options[@]}" >/dev/null
    touch "$build/build.ninja"
fi
export NINJA_STATUS='[%f/%t] '
cmake --build --preset "$preset" -j "$jobs" --target "$@" | packaging/progress.sh build
