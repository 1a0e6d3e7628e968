#!/usr/bin/env bash
# Installs the packages of the given sets of packages.txt that this machine lacks. Needs root or sudo only if there are any.
# Usage: setup.sh [SET...]
set -euo pipefail
cd "$(dirname "$0")"

sets=$(IFS='|'; echo "${*:-run|test}")
mapfile -t wanted < <(awk -v sets="$sets" '!/^#/ && ("," $2 ",") ~ ",(" sets ")," {print $1}' packages.txt | sort)
# A package is also there when an installed one provides it, as some builds of nodejs do with npm.
mapfile -t missing < <(comm -23 <(printf '%s\n' "${wanted[@]}") \
    <(dpkg-query -W -f '${db:Status-Abbrev} ${Architecture} ${Package}, ${Provides}\n' | sed -n 's/^.i  *//p' |
        awk -v native="$(dpkg --print-architecture)" '{
            suffix = $1 == native || $1 == "all" ? "" : ":" $1
            sub(/^[^ ]* /, "")
            count = split($0, names, /, */)
            for (i = 1; i <= count; i++) { sub(/ .*/, "", names[i]); print names[i] suffix }
        }' | sort -u))
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
    sudo true # asks for the password before anything else is printed
fi
echo "setup: installing ${missing[*]}"
mapfile -t foreign < <(printf '%s\n' "${missing[@]}" | sed -n 's/.*://p' | sort -u |
    comm -23 - <(dpkg --print-foreign-architectures | sort))
for architecture in "${foreign[@]}"; do
    "${as_root[@]}" dpkg --add-architecture "$architecture"
done
"${as_root[@]}" apt-get -qq -o DPkg::Lock::Timeout=300 update
# APT reports its progress to the filter; errors go to standard error. The report has a descriptor of its own, because APT closes
# that descriptor for the packages' scripts, which want to write to their standard output.
"${as_root[@]}" sh -c 'exec "$@" 3>&1' sh apt-get -qq -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 -o APT::Status-Fd=3 install \
    --no-install-recommends -y "${missing[@]}" | ./progress.sh setup
