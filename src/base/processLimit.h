// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the process may use, as it is at the moment.
#ifndef OSX_BASE_PROCESSLIMIT_H
#define OSX_BASE_PROCESSLIMIT_H

#include <sys/resource.h>

namespace osx {

/// @param aResource one of RLIMIT_...
/// @return the limit; RLIM_INFINITY if it cannot be told.
rlim_t processLimit(int aResource) noexcept;

}  // namespace osx

#endif
