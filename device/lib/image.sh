# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# shellcheck shell=bash
# Makes the board's first disc: kernel, system and the init of this project.

# shellcheck source-path=SCRIPTDIR source-path=SCRIPTDIR/lib source=debian.sh
. "$(dirname "${BASH_SOURCE[0]}")/debian.sh"

readonly board_zone=Europe/Amsterdam

image_dir() {
    echo "$cache_dir/board-$(fingerprint "$device_dir/packages/board" "$device_dir/onboard/init" \
        -- make_tree finish_tree make_image)"
}

# The modules that the board needs before its disc is there; with all of them, as is the default,
# the emulated machine takes twice as long to start.
finish_tree() {
    local tree=$1
    install -D "$device_dir/onboard/init" "$tree/sbin/board-init"
    mkdir -p "$tree/osx"
    ln -sf "/usr/share/zoneinfo/$board_zone" "$tree/etc/localtime"
    printf '127.0.0.1 localhost board\n' >"$tree/etc/hosts"
    printf 'MODULES=list\nCOMPRESS=lz4\n' >"$tree/etc/initramfs-tools/conf.d/board"
    printf '%s\n' ata_piix sd_mod ext4 >>"$tree/etc/initramfs-tools/modules"
    chroot "$tree" update-initramfs -u >/dev/null
}

make_image() {
    local target=$1 tree=$1/tree
    say "making the board's disc (once; two minutes or so)"
    mkdir -p "$target"
    retry make_tree i386 bookworm "$(packages_of "$device_dir/packages/board")" true \
        "$tree"
    finish_tree "$tree"
    cp "$tree"/boot/vmlinuz-* "$target/kernel"
    cp "$tree"/boot/initrd.img-* "$target/initrd"
    mke2fs -q -t ext4 -L system -d "$tree" "$target/disc" 900M >/dev/null
    rm -rf "$tree"
}

image() {
    cached "$(image_dir)" make_image
}
