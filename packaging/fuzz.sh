#!/usr/bin/env bash
# Runs every fuzzer of a build for a limited time, each starting from the seeds in fuzz/corpus/NAME. New inputs, and inputs that
# broke something, are kept in the build directory.
# Usage: fuzz.sh BUILD_DIR SECONDS
set -euo pipefail
build=$1
seconds=$2
seeds=$(cd "$(dirname "$0")/.." && pwd)/fuzz/corpus
shopt -s nullglob
fuzzers=("$build"/bin/fuzz_*)
if [ "${#fuzzers[@]}" -eq 0 ]; then
    echo "fuzz: no fuzzer in $build/bin" >&2
    exit 1
fi

failed=0
for fuzzer in "${fuzzers[@]}"; do
    name=$(basename "$fuzzer")
    learnt=$build/learnt/$name
    broken=$build/broken/$name
    log=$build/$name.log
    mkdir -p "$learnt" "$broken"
    corpora=("$learnt")
    for folder in "$seeds/$name" "$seeds/${name#fuzz_}"; do
        [ -d "$folder" ] && corpora+=("$folder")
    done
    printf '%-24s %s s ... ' "$name" "$seconds"
    if "$fuzzer" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$broken/" \
        "${corpora[@]}" >"$log" 2>&1; then
        runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
        memory=$(sed -n 's/^stat::peak_rss_mb: *//p' "$log")
        echo "ok, $runs inputs, at most $memory MB"
    else
        failed=1
        echo "BROKEN"
        tail -n 40 "$log" >&2
        echo "$name: the input is in $broken; run $fuzzer with it to see this again" >&2
    fi
done
exit "$failed"
