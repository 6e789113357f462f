// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "reactor/PollModel.h"

#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>

#include "base/osxExport.h"
#include "reactor/ServedSet.h"
#include "support/waitUntil.h"

namespace {

std::atomic<int> gWanted{0};
std::atomic<bool> gCancels{false};
std::atomic<int> gInterruptedWakings{0};
std::atomic<bool> gRefusesPolls{false};
std::atomic<int> gRefused{-1};
std::atomic<int> gRefusals{0};
thread_local int gInterruptedWrites = 0;

template <class Function>
Function* original(const char* aName) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, aName));
}

using Wait = int(int, epoll_event*, int, int);

/// A semaphore, as a child of a fork can use it although a thread that is not there waits for it.
struct HeldWait {
    sem_t mayGo;
    test::Report report;
    int events;
    std::atomic<bool> woken;
};
std::array<HeldWait, 16> gHeldWaits;
std::atomic<int> gToHold{0};
std::atomic<int> gHeld{0};

/// @return the wait's place among the held ones; -1 if it is not to be held.
int placeOfWait() {
    int lToHold = gToHold;
    while (lToHold > 0) {
        if (gToHold.compare_exchange_weak(lToHold, lToHold - 1)) {
            return gHeld++;
        }
    }
    return -1;
}

bool isWoken(const epoll_event& aEvent) {
    return aEvent.data.u64 == osx::ServedSet::kWake || aEvent.data.u64 == osx::ServedSet::kNotify;
}

/// Fills an array up with events of a handler that has been taken out long ago.
void addLateOnes(epoll_event* aEvents, int aCount, int aNumber) {
    constexpr std::uint64_t kDescriptor = 1000;
    for (int lEvent = aCount; lEvent < aNumber; ++lEvent) {
        aEvents[lEvent].events = EPOLLIN;
        aEvents[lEvent].data.u64 = kDescriptor;
    }
}

int waitAs(HeldWait& aWait, Wait* aOriginal, int aPoll, epoll_event* aEvents, int aNumber,
           int aLimitMs) {
    int lCount = aOriginal(aPoll, aEvents, aWait.report == test::Report::kOne ? 1 : aNumber,
                           aWait.events > 0 ? -1 : aLimitMs);
    while (lCount - std::count_if(aEvents, aEvents + lCount, &isWoken) < aWait.events) {
        lCount += aOriginal(aPoll, aEvents + lCount, aNumber - lCount, -1);
    }
    aWait.woken = std::any_of(
        aEvents, aEvents + std::max(lCount, 0),
        [](const epoll_event& aEvent) { return aEvent.data.u64 == osx::ServedSet::kWake; });
    switch (aWait.report) {
        case test::Report::kThenLateOnes:
            addLateOnes(aEvents, lCount, aNumber);
            return aNumber;
        case test::Report::kAfterLateOnes:
            addLateOnes(aEvents, lCount, aNumber);
            std::rotate(aEvents, aEvents + lCount, aEvents + aNumber);
            return aNumber;
        case test::Report::kCancelled:
            ::pthread_cancel(::pthread_self());
            ::pthread_testcancel();
            return lCount;
        default:
            return lCount;
    }
}

bool isEventCounter(int aDescriptor) {
    const std::string lName = "/proc/self/fd/" + std::to_string(aDescriptor);
    std::array<char, 64> lTarget{};
    return ::readlink(lName.c_str(), lTarget.data(), lTarget.size() - 1) > 0 &&
           std::string(lTarget.data()).find("eventfd") != std::string::npos;
}

}  // namespace

extern "C" {

OSX_EXPORT int epoll_wait(int aPoll, epoll_event* aEvents, int aNumber, int aLimitMs) {
    static Wait* const gOriginal = original<Wait>("epoll_wait");
    gWanted = aNumber;
    const int lPlace = placeOfWait();
    if (lPlace != -1) {
        HeldWait& lHeld = gHeldWaits[static_cast<std::size_t>(lPlace)];
        while (::sem_wait(&lHeld.mayGo) != 0) {
        }
        return waitAs(lHeld, gOriginal, aPoll, aEvents, aNumber, aLimitMs);
    }
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
    if (gInterruptedWakings > 0 && isEventCounter(aDescriptor)) {
        --gInterruptedWakings;
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

void interruptWakings(int aNumber) {
    gInterruptedWakings = aNumber;
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

void holdWaits(int aNumber) {
    for (HeldWait& lHeld : gHeldWaits) {
        ::sem_init(&lHeld.mayGo, 0, 0);
    }
    gHeld = 0;
    gToHold = aNumber;
}

bool areHeld(int aNumber) {
    return waitUntil([aNumber] { return gHeld == aNumber; });
}

void letGo(int aWait, Report aReport, int aEvents) {
    HeldWait& lHeld = gHeldWaits[static_cast<std::size_t>(aWait)];
    lHeld.report = aReport;
    lHeld.events = aEvents;
    ::sem_post(&lHeld.mayGo);
}

bool wasWoken(int aWait) {
    return gHeldWaits[static_cast<std::size_t>(aWait)].woken;
}

}  // namespace test
