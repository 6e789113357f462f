# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# shellcheck shell=bash
# What shell commands of this tree share, wherever they are.

readonly attempts=5

# free_port: a TCP port of this machine that is free at the moment.
free_port() {
    python3 "$(dirname "${BASH_SOURCE[0]}")/freeport.py"
}

# retry COMMAND...: downloads fail now and then; what failed once mostly works the next time.
retry() {
    local attempt
    for ((attempt = 1; attempt <= attempts; ++attempt)); do
        "$@" && return 0
        echo "attempt $attempt of $attempts failed: $1" >&2
        sleep $((attempt * 3))
    done
    return 1
}

# sources PATTERN...: what the tree holds; without git, as in an unpacked archive, all but the builds.
sources() {
    git ls-files -co --exclude-standard -- "$@" 2>/dev/null && return 0
    local pattern
    for pattern in "${@:-*}"; do
        find . \( -path ./build -o -name node_modules \) -prune -o -type f -path "./$pattern" -print | sed 's,^\./,,'
    done
}
