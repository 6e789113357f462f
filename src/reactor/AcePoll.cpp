// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A poll of the application's descriptors. The application's handlers are ACE's to serve. The loop
// must not sleep in ACE's `select`, where nothing of its own would wake it; so it watches the same
// descriptors in a poll. Where the two differ, `select` is right: the poll may tell too much, and
// never too little.
#include "reactor/AcePoll.h"

#include <utility>

#include "base/NoCancellation.h"
#include "base/standardDescriptors.h"
#include "reactor/ServedSet.h"
#include "reactor/replaceDescriptor.h"

namespace osx {

namespace {

/// What an event of the always writable descriptor has for data.
constexpr int kNoHandle = -1;

constexpr std::uint32_t kEnds = EPOLLHUP | EPOLLERR;

int control(int aPoll, int aOperation, int aDescriptor, std::uint32_t aEvents, int aData) {
    epoll_event lEvent{};
    lEvent.events = aEvents;
    lEvent.data.fd = aData;
    return ::epoll_ctl(aPoll, aOperation, aDescriptor, &lEvent);
}

}  // namespace

AcePoll::AcePoll(const ACE_Select_Reactor_Handle_Set& aAces, const ServedSet& aSet,
                 int aAlwaysWritable)
    : mAces(aAces), mSet(aSet), mAlwaysWritable(aAlwaysWritable) {}

bool AcePoll::open() {
    if (!mPoll) {
        makeAnew();
    }
    return static_cast<bool>(mPoll);
}

void AcePoll::close() {
    closePoll();
    mWatched.fill(kNothing);
}

void AcePoll::closePoll() {
    mNumber = Descriptor::kNone;
    mPoll.reset();
}

bool AcePoll::canHold(ACE_HANDLE aHandle) {
    return aHandle >= 0 && aHandle < FD_SETSIZE;
}

bool AcePoll::isInPoll(unsigned int aWatched) {
    return aWatched != kNothing && (aWatched & kUnpollable) == 0;
}

std::uint32_t AcePoll::eventsOf(unsigned int aWatched) {
    return ((aWatched & kRead) != 0 ? EPOLLIN : 0U) | ((aWatched & kWrite) != 0 ? EPOLLOUT : 0U) |
           ((aWatched & kExcept) != 0 ? EPOLLPRI : 0U) | ((aWatched & kCalmed) != 0 ? EPOLLET : 0U);
}

/// A poll reports an end and errors whether one asks for them or not.
bool AcePoll::wouldSelectTell(std::uint32_t aEvents, unsigned int aWatched) {
    return (aEvents & eventsOf(aWatched & kWanted)) != 0 ||
           ((aWatched & kRead) != 0 && (aEvents & kEnds) != 0) ||
           ((aWatched & kWrite) != 0 && (aEvents & EPOLLERR) != 0);
}

unsigned int AcePoll::wantedOf(ACE_HANDLE aHandle) const {
    return (mAces.rd_mask_.is_set(aHandle) != 0 ? kRead : kNothing) |
           (mAces.wr_mask_.is_set(aHandle) != 0 ? kWrite : kNothing) |
           (mAces.ex_mask_.is_set(aHandle) != 0 ? kExcept : kNothing);
}

bool AcePoll::hasLost(ACE_HANDLE aHandle) const {
    if (!canHold(aHandle)) {
        return false;
    }
    const std::uint8_t lWatched = mWatched[static_cast<std::size_t>(aHandle)];
    return isInPoll(lWatched) &&
           control(mPoll.get(), EPOLL_CTL_MOD, aHandle, eventsOf(lWatched), aHandle) != 0;
}

void AcePoll::check() {
    for (std::size_t lHandle = 0; lHandle < mWatched.size(); ++lHandle) {
        if ((mWatched[lHandle] & kUnpollable) != 0 || hasLost(static_cast<ACE_HANDLE>(lHandle))) {
            makeAnew();
            return;
        }
    }
}

void AcePoll::watch(ACE_HANDLE aHandle) {
    if (canHold(aHandle)) {
        set(aHandle, wantedOf(aHandle));
    }
}

void AcePoll::forget(ACE_HANDLE aHandle) {
    if (canHold(aHandle)) {
        set(aHandle, kNothing);
    }
}

void AcePoll::set(ACE_HANDLE aHandle, unsigned int aWanted) {
    std::uint8_t& lWatched = mWatched[static_cast<std::size_t>(aHandle)];
    const unsigned int lFormer = lWatched;
    if ((lFormer & kWanted) == aWanted) {
        return;
    }
    lWatched = static_cast<std::uint8_t>(aWanted);
    if (!mPoll) {
        return;
    }
    if (isInPoll(lFormer)) {
        change(aHandle, aWanted);
        return;
    }
    if (lFormer != kNothing) {
        countUnpollable(-1);
    }
    if (aWanted != kNothing) {
        add(aHandle);
    }
}

void AcePoll::change(ACE_HANDLE aHandle, unsigned int aWanted) {
    const int lOperation = aWanted == kNothing ? EPOLL_CTL_DEL : EPOLL_CTL_MOD;
    if (control(mPoll.get(), lOperation, aHandle, eventsOf(aWanted), aHandle) != 0) {
        makeAnew();
    }
}

void AcePoll::add(ACE_HANDLE aHandle) {
    std::uint8_t& lWatched = mWatched[static_cast<std::size_t>(aHandle)];
    if (control(mPoll.get(), EPOLL_CTL_ADD, aHandle, eventsOf(lWatched), aHandle) != 0) {
        lWatched |= kUnpollable;
        countUnpollable(1);
    }
}

void AcePoll::countUnpollable(int aMore) {
    const bool lHadAny = mUnpollable != 0;
    mUnpollable += aMore;
    if ((mUnpollable != 0) != lHadAny) {
        control(mPoll.get(), lHadAny ? EPOLL_CTL_DEL : EPOLL_CTL_ADD, mAlwaysWritable, EPOLLOUT,
                kNoHandle);
    }
}

void AcePoll::arm() const {
    const int lPoll = mNumber;
    if (lPoll != Descriptor::kNone) {
        mSet.tellAgainTagged(lPoll, ServedSet::kAces, EPOLLIN | EPOLLONESHOT);
    }
}

void AcePoll::calm() {
    constexpr int kEvents = 16;
    std::array<epoll_event, kEvents> lEvents;
    const int lCount = !mPoll ? 0 : ::epoll_wait(mPoll.get(), lEvents.data(), kEvents, 0);
    for (int lIndex = 0; lIndex < lCount; ++lIndex) {
        calm(lEvents[static_cast<std::size_t>(lIndex)]);
    }
}

/// ACE may have changed its sets without telling, so that the sets are looked at again first.
void AcePoll::calm(const epoll_event& aEvent) {
    const int lHandle = aEvent.data.fd;
    if (lHandle == kNoHandle) {
        return;
    }
    std::uint8_t& lWatched = mWatched[static_cast<std::size_t>(lHandle)];
    if (lWatched == kNothing) {
        makeAnew();
        return;
    }
    watch(lHandle);
    const bool lIsCalmed = (lWatched & kCalmed) != 0;
    if (isInPoll(lWatched) && wouldSelectTell(aEvent.events, lWatched) == lIsCalmed) {
        lWatched = static_cast<std::uint8_t>(lWatched ^ kCalmed);
        control(mPoll.get(), EPOLL_CTL_MOD, lHandle, eventsOf(lWatched), lHandle);
    }
}

void AcePoll::renewInChild() {
    if (mPoll) {
        closePoll();
        makeAnew();
    }
}

/// Without a fresh poll the former one stays: what it has in excess costs time, and loses nothing.
void AcePoll::makeAnew() {
    const NoCancellation lGuard;
    Descriptor lFresh = makeDescriptor([] { return ::epoll_create1(EPOLL_CLOEXEC); });
    if (!lFresh) {
        return;
    }
    if (!mPoll) {
        mPoll = std::move(lFresh);
        mNumber = mPoll.get();
    } else {
        replaceDescriptor(mPoll, std::move(lFresh));
    }
    mUnpollable = 0;
    for (std::size_t lHandle = 0; lHandle < mWatched.size(); ++lHandle) {
        if (mWatched[lHandle] != kNothing) {
            mWatched[lHandle] &= kWanted;
            add(static_cast<ACE_HANDLE>(lHandle));
        }
    }
    if (mSet.addTagged(mPoll.get(), ServedSet::kAces, EPOLLIN | EPOLLONESHOT) != 0) {
        closePoll();
    }
}

}  // namespace osx
