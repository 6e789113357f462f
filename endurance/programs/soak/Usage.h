// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What a process uses.
#ifndef OSX_ENDURANCE_SOAK_USAGE_H
#define OSX_ENDURANCE_SOAK_USAGE_H

#include <sys/types.h>

namespace soak {

struct Usage {
    long ownKiB;       ///< Memory in use that holds no part of a file.
    long residentKiB;  ///< All memory in use, with what it shares.
    int descriptors;
    int threads;
};

Usage usageOf(pid_t aProcess);

}  // namespace soak

#endif
