#include "base/writeSignals.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <ctime>

#include "base/ErrnoKeeper.h"
#include "base/NoCancellation.h"

namespace osx {

namespace {

constexpr int kSignals[] = {SIGPIPE, SIGXFSZ};

bool isFileSizeLimited() noexcept {
    rlimit lLimit{};
    return ::getrlimit(RLIMIT_FSIZE, &lLimit) == 0 && lLimit.rlim_cur != RLIM_INFINITY;
}

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
    return !S_ISCHR(aMode) && (!S_ISREG(aMode) || isFileSizeLimited());
}

}  // namespace osx
