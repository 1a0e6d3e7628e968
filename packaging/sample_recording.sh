#!/bin/sh
# Makes share/recordings/phone_call.jsonl anew: in the standard cockpit, a call comes in, and the popup that was visible until
# then is suppressed.
# Usage: sample_recording.sh BIN_DIR [FILE]
set -eu
bin=$(cd "$1" && pwd)
file=${2:-$(dirname "$0")/../share/recordings/phone_call.jsonl}
folder=$(mktemp -d)
KELO_RUNTIME_DIR=$folder/run
PATH=$bin:$PATH
export KELO_RUNTIME_DIR PATH
trap 'kill $processes 2>/dev/null || true; rm -rf "$folder"' EXIT
hmxsim 2>/dev/null &
processes=$!
hmxtolubridge 2>/dev/null &
processes="$processes $!"
hmxctl --timeout 10s status >/dev/null
hmxctl record --upstream --for 3s -o "$folder/sample.jsonl" &
recorder=$!
sleep 0.5
hmxctl sim popup Driver_Display/Hint requested=true
sleep 0.5
hmxctl sim popup Driver_Display/Incoming_Call requested=true requestData=caller=Ada
sleep 0.5
hmxctl sim set displays/Co_Driver_Display terminal=3
wait "$recorder"
mv "$folder/sample.jsonl" "$file"
