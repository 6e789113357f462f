// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The names by which the system, `top -H` and debuggers show threads. Internal.
#ifndef OSX_THREADS_THREADNAME_H
#define OSX_THREADS_THREADNAME_H

#include <cstddef>

namespace osx {

/// As much of a name as the system keeps: 15 bytes, without a part of a character of UTF-8.
class ThreadName {
public:
    explicit ThreadName(const char* aName) noexcept;

    /// Gives the name to the calling thread, unless that is the main thread, whose name is the
    /// process's. A system that refuses it leaves the thread its former one; `errno` stays.
    void giveToCaller() const noexcept;

private:
    static constexpr std::size_t kSize = 16;

    char mText[kSize] = {};
};

}  // namespace osx

#endif
