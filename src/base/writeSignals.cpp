// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A write can raise SIGPIPE or SIGXFSZ, which end a process that does not handle them. A library
// may not change a signal's disposition. So the signals are blocked for the calling thread, and one
// that a write has raised is taken back before they are unblocked. That takes four system calls,
// which are spared where no signal can come.
#include "base/writeSignals.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "base/ErrnoKeeper.h"
#include "base/NoCancellation.h"
#include "base/processLimit.h"

namespace osx {

namespace {

constexpr int kSignals[] = {SIGPIPE, SIGXFSZ};

}  // namespace

WriteSignalGuard::WriteSignalGuard() noexcept : mFormerMask(), mOwn() {
    sigset_t lPending;
    sigemptyset(&lPending);
    sigpending(&lPending);
    sigset_t lBlocked;
    sigemptyset(&lBlocked);
    sigemptyset(&mOwn);
    for (const int lSignal : kSignals) {
        sigaddset(&lBlocked, lSignal);
        if (sigismember(&lPending, lSignal) == 0) {
            sigaddset(&mOwn, lSignal);
        }
    }
    pthread_sigmask(SIG_BLOCK, &lBlocked, &mFormerMask);
}

WriteSignalGuard::~WriteSignalGuard() {
    const NoCancellation lGuard;
    const ErrnoKeeper lErrno;
    const timespec lAtOnce{};
    while (sigtimedwait(&mOwn, nullptr, &lAtOnce) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &mFormerMask, nullptr);
}

bool mayRaiseWriteSignal(int aDescriptor) noexcept {
    const ErrnoKeeper lErrno;
    struct stat lStatus{};
    const bool lIsOpen = ::fstat(aDescriptor, &lStatus) == 0;
    return lIsOpen && mayRaiseWriteSignalTo(lStatus.st_mode);
}

bool mayRaiseWriteSignalTo(mode_t aMode) noexcept {
    return !S_ISCHR(aMode) && (!S_ISREG(aMode) || processLimit(RLIMIT_FSIZE) != RLIM_INFINITY);
}

}  // namespace osx
