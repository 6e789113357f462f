// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Keeps `errno` unchanged during clean-up.
#ifndef OSX_BASE_ERRNOKEEPER_H
#define OSX_BASE_ERRNOKEEPER_H

#include <cerrno>

namespace osx {

/// `errno` is afterwards what it was when the keeper was made.
class ErrnoKeeper {
public:
    ErrnoKeeper() noexcept : mErrno(errno) {}
    ~ErrnoKeeper() { errno = mErrno; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    const int mErrno;
};

}  // namespace osx

#endif
