#!/usr/bin/env bash
# Tries the packages of build/deb in a fresh Debian, with the tests of debian/tests. Those that need root run a second time with
# systemd as the init, in namespaces of their own. Needs root. Usage: chroot.sh [TEST...]
# The machine's own mounts, processes and control groups are not touched: what is mounted goes with the namespaces.
set -euo pipefail
cd "$(dirname "$0")/.."
packages=$PWD/build/deb
kept=$PWD/build/chroot

# The first process of the namespaces: mounts what a system needs below $1, and becomes the command.
if [ "${1:-}" = --inside ]; then
    root=$2
    mount --make-rprivate /
    mount --bind "$root" "$root"
    mount --bind "$kept/archives" "$root/var/cache/apt/archives"
    mount -t proc proc "$root/proc"
    mount --bind "$root/proc/sys" "$root/proc/sys"
    mount -o remount,bind,ro "$root/proc/sys"
    mount -t sysfs -o ro sysfs "$root/sys"
    mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup"
    mount -t tmpfs -o mode=755 tmpfs "$root/run"
    mount -t tmpfs -o mode=755 tmpfs "$root/dev"
    for device in null:1:3 zero:1:5 full:1:7 random:1:8 urandom:1:9 tty:5:0; do
        IFS=: read -r name major minor <<<"$device"
        mknod -m 666 "$root/dev/$name" c "$major" "$minor"
    done
    mkdir "$root/dev/pts" "$root/dev/shm"
    mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
    ln -s pts/ptmx "$root/dev/ptmx"
    ln -s /proc/self/fd "$root/dev/fd"
    exec env -i container=chroot LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive PATH=/usr/sbin:/usr/bin:/sbin:/bin chroot "$root" "${@:3}"
fi
# Around that: a control group of its own, which a namespace can take for the whole tree.
if [ "${1:-}" = --grouped ]; then
    mount --make-rprivate /
    groups=$(mktemp -d)
    mount -t cgroup2 cgroup2 "$groups"
    own=$groups/hmx_chroot_$$
    mkdir "$own"
    echo $$ >"$own/cgroup.procs"
    code=0
    unshare --mount --pid --uts --ipc --cgroup --fork --kill-child "$PWD/packaging/chroot.sh" --inside "${@:2}" || code=$?
    echo $$ >"$groups/cgroup.procs"
    find "$own" -depth -type d -delete
    umount "$groups"
    rmdir "$groups"
    exit "$code"
fi

[ "$(id -u)" -eq 0 ] || { echo "chroot: needs root" >&2; exit 1; }
[ -e "$packages/build.log" ] || { echo "chroot: there are no packages; \`make deb\` builds them" >&2; exit 1; }
root=$kept/root
inside() {
    unshare --mount "$PWD/packaging/chroot.sh" --grouped "$root" "$@"
}

mkdir -p "$kept/archives/partial"
if [ ! -e "$kept/base.tar" ]; then
    echo "chroot: making a Debian"
    mmdebstrap --quiet --mode=root --variant=apt --include=dbus,python3,systemd-sysv bookworm "$kept/made.tar" \
        /etc/apt/sources.list.d/debian.sources
    mv "$kept/made.tar" "$kept/base.tar"
fi

# test_in NAME INIT: in a fresh copy, with the packages that it depends on
test_in() {
    local name=$1 init=$2 depends
    echo "chroot: $name, $init"
    rm -rf "$root"
    mkdir -p "$root"
    tar -C "$root" -xf "$kept/base.tar" --exclude='./dev/*'
    cp /etc/resolv.conf "$root/etc/"
    mkdir "$root/srv/packages"
    cp "$packages"/*.deb debian/tests/"$name" "$root/srv/packages/"
    (cd "$root/srv/packages" && dpkg-scanpackages . >Packages 2>/dev/null)
    echo 'deb [trusted=yes] file:/srv/packages ./' >"$root/etc/apt/sources.list.d/packages.list"
    depends=$(awk -v name="$name" '/^Tests:/ {found = $2 == name} found && /^Depends:/ {gsub(/Depends:|,/, ""); print}' debian/tests/control)
    case "$init" in
    "without an init")
        # shellcheck disable=SC2016 # expanded inside
        inside sh -c 'apt-get -qq update && apt-get -qq install -y --no-install-recommends $1 >/apt.log 2>&1 || { tail -n 20 /apt.log; exit 1; }
            exec "/srv/packages/$2"' sh "$depends" "$name"
        ;;
    "under systemd")
        cat >"$root/etc/systemd/system/packages-test.service" <<TEXT
[Unit]
After=multi-user.target
[Service]
Type=oneshot
Environment=LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive
ExecStart=/bin/sh -c 'apt-get -qq update && apt-get -qq install -y --no-install-recommends $depends && /srv/packages/$name; echo \$\$? >/result'
ExecStopPost=systemctl exit --no-block
StandardOutput=append:/output
StandardError=append:/output
[Install]
WantedBy=default.target
TEXT
        mkdir -p "$root/etc/systemd/system/graphical.target.wants"
        ln -s ../packages-test.service "$root/etc/systemd/system/graphical.target.wants/"
        inside /lib/systemd/systemd >"$kept/boot.log" 2>&1 || true
        cat "$root/output"
        [ "$(cat "$root/result")" = 0 ]
        ;;
    esac
}

mapfile -t tests < <(sed -n 's/^Tests: //p' debian/tests/control)
[ "$#" -eq 0 ] || tests=("$@")
for name in "${tests[@]}"; do
    test_in "$name" "without an init"
    if awk -v name="$name" '/^Tests:/ {found = $2 == name} found && /^Restrictions:.*needs-root/ {yes = 1} END {exit !yes}' debian/tests/control; then
        test_in "$name" "under systemd"
    fi
done
rm -rf "$root"
echo "chroot: ${#tests[@]} tests passed"
