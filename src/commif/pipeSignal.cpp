#include "commif/pipeSignal.h"

#include <cerrno>
#include <ctime>

#include "base/NoCancellation.h"

namespace osx {

namespace {

sigset_t onlyPipe() noexcept {
    sigset_t lSet;
    sigemptyset(&lSet);
    sigaddset(&lSet, SIGPIPE);
    return lSet;
}

bool isPending() noexcept {
    sigset_t lPending;
    return sigpending(&lPending) == 0 && sigismember(&lPending, SIGPIPE) == 1;
}

}  // namespace

PipeSignalGuard::PipeSignalGuard() noexcept : mFormerMask(), mWasPending(isPending()) {
    const sigset_t lPipe = onlyPipe();
    pthread_sigmask(SIG_BLOCK, &lPipe, &mFormerMask);
}

PipeSignalGuard::~PipeSignalGuard() {
    const NoCancellation lGuard;
    const int lErrno = errno;
    if (!mWasPending && isPending()) {
        const sigset_t lPipe = onlyPipe();
        const timespec lAtOnce{};
        sigtimedwait(&lPipe, nullptr, &lAtOnce);
    }
    pthread_sigmask(SIG_SETMASK, &mFormerMask, nullptr);
    errno = lErrno;
}

}  // namespace osx
