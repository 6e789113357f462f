// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Work that a cancelled thread finishes first.
#ifndef OSX_BASE_NOCANCELLATION_H
#define OSX_BASE_NOCANCELLATION_H

#include <pthread.h>

namespace osx {

/// While one lives, a cancellation of the calling thread waits. A cancellation unwinds the stack as
/// an exception does, so what may not throw, a destructor first of all, needs one around whatever
/// may be a cancellation point: waiting, reading, writing, closing, a diagnostic line.
class NoCancellation {
public:
    NoCancellation() noexcept { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mFormer); }
    ~NoCancellation() { ::pthread_setcancelstate(mFormer, nullptr); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;

private:
    int mFormer = PTHREAD_CANCEL_ENABLE;
};

}  // namespace osx

#endif
