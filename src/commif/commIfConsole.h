// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The process's standard output, as the console functions and the console channel use it.
#ifndef OSX_COMMIF_COMMIFCONSOLE_H
#define OSX_COMMIF_COMMIFCONSOLE_H

#include <sys/types.h>

#include <cstddef>

namespace osx {

/// Writes once to standard output, past the stream `stdout`: what that still holds comes later.
/// @return the number of bytes written; -1 with `errno`.
ssize_t writeToConsole(const void* aData, std::size_t aLength);

}  // namespace osx

#endif
