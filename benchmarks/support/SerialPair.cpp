// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "support/SerialPair.h"

#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

std::string linkOf(unsigned int aNumber) {
    return "/dev/ttyS" + std::to_string(aNumber);
}

std::string terminalOf(int aFarEnd) {
    std::array<char, 64> lName{};
    return ::grantpt(aFarEnd) == 0 && ::unlockpt(aFarEnd) == 0 &&
                   ::ptsname_r(aFarEnd, lName.data(), lName.size()) == 0
               ? lName.data()
               : "";
}

}  // namespace

/// Stands before the C library's for the whole process.
extern "C" __attribute__((visibility("default"))) int ioctl(int aDescriptor, unsigned long aRequest,
                                                            ...) noexcept {
    va_list lArguments;
    va_start(lArguments, aRequest);
    void* const lArgument = va_arg(lArguments, void*);
    va_end(lArguments);
    const long lResult = ::syscall(SYS_ioctl, aDescriptor, aRequest, lArgument);
    return aRequest == TIOCGICOUNT ? 0 : static_cast<int>(lResult);
}

namespace bench {

SerialPair::SerialPair()
    : mFarEnd(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)),
      mTerminal(terminalOf(mFarEnd)),
      mNearEnd(::open(mTerminal.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)),
      mNumber(1000 + static_cast<unsigned int>(::getpid())),
      mLinked(::symlink(mTerminal.c_str(), linkOf(mNumber).c_str()) == 0) {}

SerialPair::~SerialPair() {
    if (mLinked) {
        ::unlink(linkOf(mNumber).c_str());
    }
    ::close(mNearEnd);
    ::close(mFarEnd);
}

void SerialPair::send(const void* aBytes, std::size_t aSize) const {
    if (::write(mFarEnd, aBytes, aSize) != static_cast<ssize_t>(aSize)) {
        std::perror("pseudo terminal");
        std::exit(1);
    }
    int lArrived = 0;
    while (::ioctl(mNearEnd, FIONREAD, &lArrived) == 0 &&
           static_cast<std::size_t>(lArrived) < aSize) {
        ::sched_yield();
    }
}

}  // namespace bench
