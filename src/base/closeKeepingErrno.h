/// @file
/// Giving up a descriptor without hiding why.
#ifndef OSX_BASE_CLOSEKEEPINGERRNO_H
#define OSX_BASE_CLOSEKEEPINGERRNO_H

#include <unistd.h>

#include <cerrno>

#include "base/NoCancellation.h"

namespace osx {

/// Closes a descriptor on the way out of a failure, whose `errno` stays.
inline void closeKeepingErrno(int aDescriptor) noexcept {
    const NoCancellation lGuard;
    const int lErrno = errno;
    ::close(aDescriptor);
    errno = lErrno;
}

}  // namespace osx

#endif
