#!/usr/bin/env bash
# Installs those packages of some sets of packages.txt that this machine lacks; needs root or sudo only then. Usage: setup.sh [SET...]
set -euo pipefail
cd "$(dirname "$0")"

sets=$(IFS='|'; echo "${*:-run|test}")
mapfile -t wanted < <(awk -v sets="$sets" '!/^#/ && ("," $2 ",") ~ ",(" sets ")," {print $1}' packages.txt | sort)
# A package is also there when an installed one provides it, as some builds of nodejs do with npm.
mapfile -t missing < <(comm -23 <(printf '%s\n' "${wanted[@]}") \
    <(dpkg-query -W -f '${db:Status-Abbrev} ${Package}, ${Provides}\n' | sed -n 's/^.i  *//p' | tr ',' '\n' |
        sed 's/^ *//; s/ .*//' | sort -u))
if [ "${#missing[@]}" -eq 0 ]; then
    exit 0
fi

if ! command -v apt-get >/dev/null; then
    echo "setup: this is not Debian; install what corresponds to: ${missing[*]}" >&2
    exit 1
fi
as_root=(env DEBIAN_FRONTEND=noninteractive)
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "setup: neither root nor sudo; ask an administrator to install: ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo "${as_root[@]}")
    sudo true # asks for the password while nothing else is printed
fi
echo "setup: installing ${missing[*]}"
"${as_root[@]}" apt-get -qq -o DPkg::Lock::Timeout=300 update
# Progress goes to descriptor 3, and from there through the filter; what goes wrong is on standard error.
"${as_root[@]}" apt-get -qq -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 -o APT::Status-Fd=1 install --no-install-recommends -y \
    "${missing[@]}" | ./progress.sh setup
