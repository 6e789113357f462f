# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# shellcheck shell=bash
# Makes Debian trees of another architecture or release from the machine's own package sources.

# shellcheck source-path=SCRIPTDIR source-path=SCRIPTDIR/lib source=common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# The address of the machine's package mirror, which has all releases. Only the main suite is used:
# the 32-bit index of the security suite can be out of step with the one of this machine.
mirror() {
    local address codename
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    # shellcheck disable=SC2016  # the dollar is apt's
    address=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' \
        "Codename: $codename" | head -n 1)
    [ -n "$address" ] || fail "apt knows no source for $codename"
    echo "$address"
}

# The machine's proxies, as options for apt.
proxy_options() {
    apt-config dump Acquire | sed -n 's/^\(Acquire::[a-z]*::Proxy "..*";\)$/--aptopt=\1/p'
}

# make_tree ARCH SUITE PACKAGES HOOK TARGET: a tree, as a directory or, named *.tar, as an archive.
# HOOK is a shell command that is given the tree to change it in the end.
make_tree() {
    local arch=$1 suite=$2 packages=$3 hook=$4 target=$5 proxies
    mapfile -t proxies < <(proxy_options)
    mmdebstrap --quiet --mode=root --arch="$arch" --variant=minbase --include="$packages" \
        --aptopt='Acquire::Retries "5"' --dpkgopt=force-unsafe-io "${proxies[@]}" \
        --customize-hook="$hook" "$suite" "$target" "$(mirror)"
}

# in_tree TREE BUILD BUILD_INSIDE COMMAND...: runs a command in a tree, with this source tree as /src,
# read-only, BUILD as BUILD_INSIDE, and a loopback of its own for a network.
in_tree() {
    local tree=$1
    shift
    unshare --mount --propagation private --pid --kill-child --net \
        "$device_dir/lib/inside.sh" "$tree" "$source_dir" "$@"
}
