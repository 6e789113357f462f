// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Asked before every line of a log file, and for each connection. The C library's `getrlimit` uses
// the system call `prlimit64`, which also checks the rights of one process over another, and takes
// twice as long. In 32 bits the plain system call does not tell limits beyond 4 GB.
#include "base/processLimit.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace osx {

rlim_t processLimit(int aResource) noexcept {
    rlimit lLimit{};
#if defined(__LP64__) && defined(SYS_getrlimit)
    const bool lIsTold = ::syscall(SYS_getrlimit, aResource, &lLimit) == 0;
#else
    const bool lIsTold = ::getrlimit(static_cast<__rlimit_resource_t>(aResource), &lLimit) == 0;
#endif
    return lIsTold ? lLimit.rlim_cur : RLIM_INFINITY;
}

}  // namespace osx
