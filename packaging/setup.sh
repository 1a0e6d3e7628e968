#!/usr/bin/env bash
# Installs what packages.txt lists, if anything of it is missing. Needs root, or sudo, only then.
set -euo pipefail
cd "$(dirname "$0")"
mapfile -t wanted < <(sed -e 's/#.*//' -e 's/[[:space:]]//g' -e '/^$/d' packages.txt)
mapfile -t missing < <(
    comm -23 <(printf '%s\n' "${wanted[@]}" | sort) \
        <(dpkg-query -W -f '${db:Status-Abbrev}\t${Package}\n' "${wanted[@]}" 2>/dev/null | sed -n 's/^ii \t//p' | sort -u)
)
if [ "${#missing[@]}" -eq 0 ]; then
    exit 0
fi
echo "installing: ${missing[*]}"
root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "setup: these packages are missing, and installing them needs root or sudo: ${missing[*]}" >&2
        exit 1
    }
    root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${root[@]}" apt-get update -qq
"${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
