#!/usr/bin/env bash
# Runs every fuzzer of a build for a bounded time, each with its corpus. Usage: fuzz.sh BIN_DIR SECONDS
set -euo pipefail
bin=$1
seconds=$2
top=$(cd "$(dirname "$0")/.." && pwd)
found=0
for fuzzer in "$bin"/fuzz_*; do
    name=$(basename "$fuzzer")
    kept=$(mktemp -d)
    echo "$name: $seconds s"
    if ! "$fuzzer" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=1024 -print_final_stats=1 -artifact_prefix="$kept/" \
        "$kept" "$top/fuzz/corpus/${name#fuzz_}" >"$kept/log" 2>&1; then
        found=1
        tail -n 30 "$kept/log"
        echo "$name: FOUND SOMETHING; what was found is in $kept" >&2
        continue
    fi
    grep -E 'number_of_executed_units|peak_rss_mb' "$kept/log"
    rm -rf "$kept"
done
exit "$found"
