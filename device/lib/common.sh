# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# shellcheck shell=bash
# What every command of this folder shares: places, messages and the cache.
# shellcheck disable=SC2034  # used by those that read this file

[ -z "${source_dir:-}" ] || return 0
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
device_dir=$source_dir/device
cache_dir=${OSX_DEVICE_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/osx}
readonly source_dir device_dir cache_dir

# shellcheck source-path=SCRIPTDIR source=../../tools/shared.sh
. "$source_dir/tools/shared.sh"

say() {
    echo "== $*"
}

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

require_root() {
    [ "$(id -u)" = 0 ] || fail "has to run as root: it mounts and unpacks system trees"
}

# require_commands NAME...: installs the packages of these commands when one is missing.
require_commands() {
    local name
    for name in "$@"; do
        if ! command -v "$name" >/dev/null; then
            "$source_dir/tools/install-packages" board
            return
        fi
    done
}

# fingerprint FILE... -- FUNCTION...: one word that changes with what these files and functions hold.
fingerprint() {
    {
        while [ "$1" != -- ]; do
            cat "$1"
            shift
        done
        shift
        declare -f "$@"
    } | sha256sum | cut -c1-12
}

# packages_of LIST...: the names in package lists, joined by commas.
packages_of() {
    sed -e 's/#.*//' -e '/^\s*$/d' "$@" | paste -sd,
}

# cached PATH COMMAND...: unless PATH exists, makes it by "COMMAND... PARTIAL" under a lock, so that
# commands that start together make it once and what was left half made is never used.
cached() {
    local path=$1
    shift
    [ -e "$path" ] && return 0
    mkdir -p "$(dirname "$path")"
    (
        flock 9
        [ -e "$path" ] && exit 0
        rm -rf "$path.partial"
        "$@" "$path.partial" || exit 1
        mv "$path.partial" "$path"
    ) 9>"$path.lock"
}
