#!/usr/bin/env bash
# Runs as the first process of a container: puts the source and build trees into a 32-bit root and
# runs a command there. Mounts and processes go with the container.
#
#   inside.sh ROOT SOURCE BUILD COMMAND...
set -euo pipefail

root=$1 source=$2 build=$3
shift 3
ccache_dir=${CCACHE_DIR:-$HOME/.cache/ccache}
mkdir -p "$root"/{src,build,ccache} "$build" "$ccache_dir"

# Itself a mount, to become the root of all: a mere chroot would hinder tests that mount, too.
mount --bind "$root" "$root"
mount --bind "$source" "$root/src"
mount -o remount,bind,ro "$root/src"
mount --bind "$build" "$root/build"
mount --bind "$ccache_dir" "$root/ccache"
mount -t proc proc "$root/proc"
mount -t sysfs -o ro sysfs "$root/sys"
mount --rbind /dev "$root/dev"
mount -t tmpfs tmpfs "$root/tmp"
mount -t tmpfs tmpfs "$root/run"
ip link set lo up

cd "$root"
pivot_root . mnt
cd /
umount -l mnt
/usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
    TERM="${TERM:-dumb}" CCACHE_DIR=/ccache CCACHE_BASEDIR=/src \
    /bin/bash -c 'cd /build && exec "$@"' inside "$@"
