#!/usr/bin/env bash
# Installs what the lists (packages.txt) name and this machine lacks; needs root or sudo only then. Usage: setup.sh [LIST...]
set -euo pipefail
cd "$(dirname "$0")"

mapfile -t wanted < <(sed -E 's/[[:space:]]*(#.*)?$//; /^$/d' "${@:-packages.txt}" | sort)
mapfile -t missing < <(comm -23 <(printf '%s\n' "${wanted[@]}") \
    <(dpkg-query -W -f '${db:Status-Abbrev} ${Package}\n' "${wanted[@]}" 2>/dev/null | sed -n 's/^.i  *//p' | sort -u))
if [ "${#missing[@]}" -eq 0 ]; then
    exit 0
fi

if ! command -v apt-get >/dev/null; then
    echo "setup: this is no Debian; install what corresponds to: ${missing[*]}" >&2
    exit 1
fi
as_root=(env DEBIAN_FRONTEND=noninteractive)
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "setup: neither root nor sudo; have somebody install: ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo "${as_root[@]}")
fi
echo "setup: installing ${missing[*]}"
"${as_root[@]}" apt-get -qq -o DPkg::Lock::Timeout=300 update
"${as_root[@]}" apt-get -qq -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 install --no-install-recommends -y "${missing[@]}" >/dev/null
