#!/usr/bin/env bash
# Starts the simulator and the bridge in a runtime directory of their own, shows a cockpit's resources through hmxctl, and runs until interrupted;
# without a terminal on standard input it ends after showing them. Usage: run.sh BIN_DIR
set -euo pipefail
bin=$(cd "$1" && pwd)
top=$(cd "$(dirname "$0")/.." && pwd)
dir=$(mktemp -d)
export KELO_RUNTIME_DIR="$dir/run"
mkdir -m 700 "$KELO_RUNTIME_DIR"
pids=()

finish() {
    code=$?
    trap - EXIT INT TERM
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    if [ "$code" -ne 0 ] && [ "$code" -ne 130 ]; then
        echo "run: failed ($code); the last lines of the simulator and the bridge:" >&2
        tail -n 15 "$dir/hmxsim.log" "$dir/hmxtolubridge.log" >&2 || true
    fi
    rm -rf "$dir"
    exit "$code"
}
trap finish EXIT
trap 'exit 130' INT TERM

show() {
    printf '\n$ hmxctl %s\n' "$*"
    "$bin/hmxctl" --timeout 10s "$@"
}

"$bin/hmxsim" --world "$top/share/worlds/cockpit.json" >"$dir/hmxsim.log" 2>&1 &
pids+=($!)
"$bin/hmxtolubridge" >"$dir/hmxtolubridge.log" 2>&1 &
pids+=($!)

# hmxctl waits for the service itself, as long as its timeout allows.
show list displays
show list displayables
show list layerconfigurations
show list popups display=Driver_Display
show insert regionconfigurations display=Driver_Display hmi=HMI_ID_ANDROID_DRIVER 'regions:={"infoForAllLayers":[]}'
show get regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER

cat <<TEXT

The simulator and the bridge are running. In a second terminal:

    export KELO_RUNTIME_DIR=$KELO_RUNTIME_DIR
    export PATH=$bin:\$PATH
    hmxctl watch popups/Driver_Display/Phone
    hmxctl update popups/Driver_Display/Phone requested:=true
    hmxctl tree
    hmxctl help
TEXT
if [ ! -t 0 ]; then
    exit 0
fi
echo
echo "Interrupt with Ctrl-C."
wait -n "${pids[@]}" || true
echo "run: the simulator or the bridge ended by itself" >&2
exit 1
