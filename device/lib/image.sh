# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# shellcheck shell=bash
# Makes the board's first disc: kernel, system, the init of this project, and the Debian packages of
# this tree, installed as on any machine.

# shellcheck source-path=SCRIPTDIR source-path=SCRIPTDIR/lib source=debian.sh
. "$(dirname "${BASH_SOURCE[0]}")/debian.sh"

readonly board_zone=Europe/Amsterdam
readonly board_packages=$source_dir/build/package/12-i386

# The system without our packages, which is the same for all that are tried on it.
system_dir() {
    echo "$cache_dir/system-$(fingerprint "$device_dir/packages/board" "$device_dir/onboard/init" \
        -- make_tree finish_tree make_system)"
}

# The disc belongs to what the packages are made of, so that it is never older than the sources.
image_dir() {
    local made_of
    made_of=$(cd "$source_dir" && sources 'src/*' 'examples/*' 'cmake/*' 'debian/*' 'packaging/*' \
        CMakeLists.txt | sort | xargs -d '\n' sha256sum 2>/dev/null)
    echo "$source_dir/build/board/image-$(fingerprint <(system_dir) <(echo "$made_of") -- make_image)"
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

make_system() {
    local target=$1 tree=$1/tree
    say "making the board's system (once; two minutes or so)"
    mkdir -p "$target"
    retry make_tree i386 bookworm "$(packages_of "$device_dir/packages/board")" true \
        "$tree"
    finish_tree "$tree"
    cp "$tree"/boot/vmlinuz-* "$target/kernel"
    cp "$tree"/boot/initrd.img-* "$target/initrd"
}

make_image() {
    local target=$1 tree=$1/tree
    say "building the packages that the board installs (build/package/build-12-i386.log)"
    "$source_dir/package" --only build-12-i386 >/dev/null || fail "the i386 packages do not build"
    cached "$(system_dir)" make_system
    rm -rf "$(dirname "$target")"/image-*[0-9a-f]
    mkdir -p "$target"
    cp -a "$(system_dir)/tree" "$tree"
    cp "$board_packages"/{libosx1,osx-gateway}_*.deb "$tree/var/cache/apt/archives/"
    chroot "$tree" sh -c 'dpkg --install /var/cache/apt/archives/*.deb && apt-get clean' >"$target/log" 2>&1 || {
        cat "$target/log"
        fail "the board does not take the packages"
    }
    mke2fs -q -t ext4 -L system -d "$tree" "$target/disc" 900M >/dev/null
    rm -rf "$tree"
}

image() {
    cached "$(system_dir)" make_system
    cached "$(image_dir)" make_image
}
