// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "reactor/PollModel.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "base/osxExport.h"

namespace {

std::atomic<int> gWanted{0};
std::atomic<bool> gCancels{false};
std::atomic<bool> gRefusesPolls{false};
std::atomic<int> gRefused{-1};
std::atomic<int> gRefusals{0};
thread_local int gInterruptedWrites = 0;

template <class Function>
Function* original(const char* aName) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, aName));
}

}  // namespace

extern "C" {

OSX_EXPORT int epoll_wait(int aPoll, epoll_event* aEvents, int aNumber, int aLimitMs) {
    using Wait = int(int, epoll_event*, int, int);
    static Wait* const gOriginal = original<Wait>("epoll_wait");
    gWanted = aNumber;
    const int lCount = gOriginal(aPoll, aEvents, aNumber, aLimitMs);
    if (lCount > 0 && gCancels.exchange(false)) {
        ::pthread_cancel(::pthread_self());
    }
    return lCount;
}

OSX_EXPORT int epoll_ctl(int aPoll, int aOperation, int aDescriptor, epoll_event* aEvent) noexcept {
    using Control = int(int, int, int, epoll_event*);
    static Control* const gOriginal = original<Control>("epoll_ctl");
    if (aOperation == EPOLL_CTL_ADD && aDescriptor == gRefused && gRefusals > 0) {
        --gRefusals;
        errno = ENOMEM;
        return -1;
    }
    return gOriginal(aPoll, aOperation, aDescriptor, aEvent);
}

OSX_EXPORT ssize_t write(int aDescriptor, const void* aBytes, std::size_t aSize) {
    using Write = ssize_t(int, const void*, std::size_t);
    static Write* const gOriginal = original<Write>("write");
    if (gInterruptedWrites > 0) {
        --gInterruptedWrites;
        errno = EINTR;
        return -1;
    }
    return gOriginal(aDescriptor, aBytes, aSize);
}

OSX_EXPORT int epoll_create1(int aFlags) noexcept {
    using Create = int(int);
    static Create* const gOriginal = original<Create>("epoll_create1");
    if (gRefusesPolls) {
        errno = EMFILE;
        return -1;
    }
    return gOriginal(aFlags);
}

}  // extern "C"

namespace test {

void interruptWrites(int aNumber) {
    gInterruptedWrites = aNumber;
}

int eventsWanted() {
    return gWanted;
}

void cancelWithTheNextEvent() {
    gCancels = true;
}

void refusePolls(bool aRefuse) {
    gRefusesPolls = aRefuse;
}

void refuseToAdd(int aDescriptor, int aTimes) {
    gRefused = aDescriptor;
    gRefusals = aTimes;
}

int refusalsLeft() {
    return gRefusals;
}

}  // namespace test
