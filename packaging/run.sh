#!/usr/bin/env bash
# Shows a cockpit: starts the simulator, the bridge and the HTTP gateway in a runtime directory of their own, prints every
# resource with hmxctl, and runs until interrupted. If standard input is not a terminal, it ends after printing.
# Usage: run.sh BIN_DIR
set -euo pipefail
bin=$(cd "$1" && pwd)
top=$(cd "$(dirname "$0")/.." && pwd)
dir=$(mktemp -d)
mkdir -m 700 "$dir/run"
export KELO_RUNTIME_DIR="$dir/run"
export PATH="$bin:$PATH"

children=()
helpers=() # killed at the end too, but not waited for
interrupted=130 # the exit status after an interrupt; 0 once everything has been shown

# shellcheck disable=SC2317 # the trap calls it
finish() {
    local code=$?
    trap - EXIT
    trap '' INT TERM HUP
    kill "${children[@]}" "${helpers[@]}" 2>/dev/null || true
    for child in "${children[@]}"; do
        # It ends at once on SIGTERM; if it does not, it is killed after 5 s.
        timeout 5 tail -s 0.02 --pid="$child" -f /dev/null || kill -KILL "$child" 2>/dev/null || true
    done
    if [ "$code" -ne 0 ] && [ "$code" -ne 130 ]; then
        echo "run: failed with $code; the last lines of the simulator, the bridge and the gateway:" >&2
        tail -n 15 "$dir"/*.log >&2 || true
    fi
    rm -rf "$dir"
    exit "$code"
}
trap finish EXIT
trap 'exit $interrupted' INT TERM HUP

start() {
    "$@" >"$dir/$1.log" 2>&1 </dev/null &
    children+=($!)
}

# On the usual port, or on a free one if that is taken. Sets $address.
start_gateway() {
    local listen
    for listen in 127.0.0.1:8780 127.0.0.1:0; do
        hmxgateway --allow-changes --listen "$listen" >"$dir/address" 2>"$dir/hmxgateway.log" </dev/null &
        until [ -s "$dir/address" ]; do
            kill -0 $! 2>/dev/null || continue 2
            sleep 0.02
        done
        children+=($!)
        address=$(sed 's/^hmxgateway: //' "$dir/address")
        return
    done
    return 1
}

show() {
    printf '\n$ hmxctl %s\n' "$1"
    eval "hmxctl $1"
}

start hmxsim --world "$top/share/worlds/cockpit.json"
start hmxtolubridge
start_gateway

# Waits until the bridge answers, or until one of the programs ends.
hmxctl --timeout 20s wait --appear displays/Driver_Display 'name != null' &
answers=$!
helpers+=("$answers")
wait -n -p first "$answers" "${children[@]}" || {
    code=$?
    [ "$first" = "$answers" ] || echo "run: the simulator, the bridge or the gateway ended with $code" >&2
    exit 1
}

show 'list displays'
show 'list displayables'
show 'list layerconfigurations'
show 'list popups display=Driver_Display'
region='[{"layer":"Home","inputRegions":[{"bounds":{"upperLeftPoint":{"posX":0,"posY":0},"width":400,"height":720},"exclusive":true}]}]'
show "insert regionconfigurations display=Driver_Display hmi=HMI_ID_ANDROID_DRIVER 'regions:={\"infoForAllLayers\":$region}'"
show 'get regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER'

page="The inspector, in a browser: $address"
if grep -q 'page is not there' "$dir/hmxgateway.log"; then
    page="The inspector is not built: \`make inspector\` does that."
fi

cat <<TEXT

The simulator, the bridge and the HTTP gateway are running. Try in a second terminal:

    export KELO_RUNTIME_DIR=$KELO_RUNTIME_DIR PATH="$bin:\$PATH"
    hmxctl watch popups/Driver_Display/Incoming_Call &
    hmxctl update popups/Driver_Display/Incoming_Call requested=true
    hmxctl tree
    hmxctl hit Driver_Display 100 100
    hmxctl help
    curl ${address}hmx/displays

$page
TEXT
if [ ! -t 0 ]; then
    exit 0
fi
interrupted=0
printf '\nCtrl-C ends all. What they log from here on:\n'
tail -q -n 0 -f "--pid=$$" "$dir"/*.log &
helpers+=($!)
wait -n "${children[@]}" || true
echo "run: the simulator, the bridge or the gateway ended by itself" >&2
exit 1
