#!/usr/bin/env bash
# Runs what takes too long for every change, one line each with its result and its time. What cannot run because something is
# missing counts as not verified. Usage: verify.sh JOBS [NAME...]
set -uo pipefail
cd "$(dirname "$0")/.." || exit
jobs=$1
shift
logs=build/verify
mkdir -p "$logs"

# NAME|what it needs|COMMAND
checks=(
    "campaign||make -s campaign JOBS=$jobs"
    "arm64||make -s test ARCH=arm64 JOBS=$jobs"
    "packages||make -s deb JOBS=$jobs"
    "same-bytes||packaging/deb_again.sh $jobs"
    "chroot|root|packaging/chroot.sh"
    "page-sizes||packaging/inspector.sh sizes build/release/bin"
    "benches||make -s bench ONCE=yes JOBS=$jobs"
)

wanted() {
    local name
    [ "$#" -gt 1 ] || return 0
    for name in "${@:2}"; do
        [ "$name" != "$1" ] || return 0
    done
    return 1
}

failed=0
for check in "${checks[@]}"; do
    IFS='|' read -r name needs command <<<"$check"
    wanted "$name" "$@" || continue
    log=$logs/$name.log
    begin=$SECONDS
    if [ "$needs" = root ] && [ "$(id -u)" -ne 0 ]; then
        result="not verified: needs root"
    elif eval "$command" >"$log" 2>&1 </dev/null; then
        result=ok
    else
        result="FAILED, see $log"
    fi
    [ "$result" = ok ] || failed=1
    printf 'verify: %-10s  %4d s  %s\n' "$name" $((SECONDS - begin)) "$result"
done
exit "$failed"
