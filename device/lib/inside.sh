#!/usr/bin/env bash
# Runs as the first process of a container: puts the source and build trees into a build root, as
# /src and as BUILD_INSIDE, and runs a command in the build tree. Mounts and processes go with the
# container.
#
#   inside.sh ROOT SOURCE BUILD BUILD_INSIDE COMMAND...
set -euo pipefail

# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

root=$1 source=$2 build=$3 build_inside=$4
shift 4
ccache_dir=${CCACHE_DIR:-$HOME/.cache/ccache}
mkdir -p "$root"/{src,build,ccache} "$build" "$ccache_dir"

# Itself a mount, to become the root of all: a mere chroot would hinder tests that mount, too.
mount --bind "$root" "$root"
mount --bind "$source" "$root/src"
mount -o remount,bind,ro "$root/src"
mount --bind "$build" "$root$build_inside"
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
    /bin/bash -c 'cd "$0" && exec "$@"' "$build_inside" "$@"
