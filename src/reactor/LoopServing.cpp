// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What the loop does at each event. All of it is compiled for speed; what happens seldom is in the
// other sources of the class.
//
// Each loop thread waits in the poll for itself, and serves what it is told. It takes several
// events at once, and leaves those that it has not come to in `ReadyQueue`, where others find them.
// Nobody is woken for an event that the kernel reports; a thread that leaves something behind wakes
// a sleeper, which does the same.
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstring>
#include <ctime>

#include "ace/Functor.h"
#include "base/NoCancellation.h"
#include "reactor/AcesTurn.h"
#include "reactor/LoopReactor.h"
#include "reactor/TimerQueue.h"

namespace osx {

namespace {

using Clock = std::chrono::steady_clock;

/// How long a thread waits for ACE's token. The thread that has it may itself run the loop, in a
/// `handle_close`, and must not be waited for.
constexpr std::chrono::milliseconds kTokenLimit(50);

time_t secondNow() {
    timespec lNow{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &lNow);
    return lNow.tv_sec;
}

/// Rounded up, so that a limit is waited for and not only nearly.
int toMilliseconds(const ACE_Time_Value& aTime) {
    if (aTime.sec() >= INT_MAX / 1000 - 1) {
        return INT_MAX;
    }
    return aTime <= ACE_Time_Value::zero
               ? 0
               : static_cast<int>(aTime.sec() * 1000 + (aTime.usec() + 999) / 1000);
}

/// ACE's queues do something before they call a timer: a reactor that holds its token gives it up.
/// Here nobody holds it.
class NothingBefore : public ACE_Command_Base {
public:
    int execute(void*) override { return 0; }
};

/// With a queue of the application's the alarm is set anew before the call, during which other
/// timers may become due.
template <class Function>
class AlarmBefore : public ACE_Command_Base {
public:
    explicit AlarmBefore(Function aSetAlarm) : mSetAlarm(aSetAlarm) {}
    int execute(void*) override {
        mSetAlarm();
        return 0;
    }

private:
    const Function mSetAlarm;
};

/// Counts the thread in, for as long as the object lives.
class CountedIn {
public:
    explicit CountedIn(std::atomic<int>& aCount) : mCount(aCount) { ++mCount; }
    ~CountedIn() { --mCount; }
    CountedIn(const CountedIn&) = delete;
    CountedIn& operator=(const CountedIn&) = delete;

private:
    std::atomic<int>& mCount;
};

}  // namespace

/// A thread may be cancelled when the kernel has given it events already, and the result of the
/// call is lost. What stands in the array tells which: no event has 0 for data. They are left to
/// the others, as is what the thread may have been woken for.
class LoopReactor::Wait {
public:
    Wait(LoopReactor& aLoop, epoll_event* aEvents, int aMost)
        : mLoop(aLoop), mEvents(aEvents), mMost(aMost) {
        std::memset(aEvents, 0, static_cast<std::size_t>(aMost) * sizeof *aEvents);
    }
    ~Wait() {
        if (!mHasEnded) {
            leaveAll();
        }
    }
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;

    void end() { mHasEnded = true; }

private:
    void leaveAll() {
        int lCount = 0;
        while (lCount < mMost && mEvents[lCount].data.u64 != 0) {
            ++lCount;
        }
        mLoop.mWaking = false;
        if (mLoop.leave(mEvents, lCount)) {
            mLoop.mSet.tellAgainTagged(mLoop.mTimer.descriptor(), ServedSet::kTimer, kTimerEvents);
        }
        mLoop.passOn();
    }

    LoopReactor& mLoop;
    epoll_event* const mEvents;
    const int mMost;
    bool mHasEnded = false;
};

/// @return what ACE's `handle_events` returns.
int LoopReactor::resultOf(Waited aWaited) {
    return aWaited == kServed ? 1 : aWaited == kFailed ? -1 : 0;
}

int LoopReactor::handle_events(ACE_Time_Value& aLimit) {
    return handle_events(&aLimit);
}

/// Goes on until something was served or the time is up. While `mReady` is not empty it goes on
/// even then: a late event, for which there was nothing to do, must not hide others that were taken
/// from the kernel in advance.
int LoopReactor::handle_events(ACE_Time_Value* aLimit) {
    Waited lWaited = kNothing;
    if (aLimit == nullptr) {
        while (lWaited == kNothing) {
            lWaited = attempt(-1);
        }
        return resultOf(lWaited);
    }
    const auto lStart = Clock::now();
    const ACE_Time_Value lLimit = *aLimit;
    do {
        lWaited = attempt(toMilliseconds(*aLimit));
        const ACE_Time_Value lElapsed(Clock::now() - lStart);
        *aLimit = lElapsed < lLimit ? lLimit - lElapsed : ACE_Time_Value::zero;
    } while (lWaited == kNothing && (*aLimit > ACE_Time_Value::zero || !mReady.empty()));
    return resultOf(lWaited);
}

int LoopReactor::serveOne(std::chrono::milliseconds aLimit) {
    return resultOf(attempt(static_cast<int>(aLimit.count())));
}

/// Serves an event that was left, or waits for one.
/// @param aLimitMs of the wait; -1 for none.
LoopReactor::Waited LoopReactor::attempt(int aLimitMs) {
    if (mEnded) {
        passOn();
        errno = ESHUTDOWN;
        return kFailed;
    }
    Waited lWaited = kNothing;
    if (serveReady(lWaited)) {
        return lWaited;
    }
    prepareToWait();
    std::array<epoll_event, ReadyQueue::kSize> lEvents;
    const int lCount = wait(lEvents.data(), aLimitMs);
    if (lCount == -1) {
        return errno == EINTR ? kInterrupted : kFailed;
    }
    return lCount == 0 ? kNothing : serveAll(lEvents.data(), lCount);
}

inline void LoopReactor::prepareToWait() {
    if (mHasToEnrol.load(std::memory_order_relaxed) && mHasToEnrol.exchange(false)) {
        mSet.enrolAll();
    }
    if (mQueue != &mTimers) {
        setAlarmOfOtherQueue();  // it may have been given timers without the reactor's knowledge
    }
    checkNumbers();
}

/// @param[out] aWaited what came of the event.
/// @return whether there was an event that a thread had taken before.
bool LoopReactor::serveReady(Waited& aWaited) {
    epoll_event lEvent{};
    if (!mReady.take(lEvent)) {
        return false;
    }
    passOn();
    aWaited = serve(lEvent);
    return true;
}

/// A thread that is about to sleep counts itself first, and then looks for work. One that leaves
/// work leaves it first, and then looks for sleepers: so one of the two sees the other.
int LoopReactor::wait(epoll_event* aEvents, int aLimitMs) {
    const int lMost =
        mSet.wantsFreshLook() ? 1 : std::min<int>(ReadyQueue::kSize, mSet.mostEvents());
    const CountedIn lSleeper(mSleepers);
    Wait lWait(*this, aEvents, lMost);
    const bool lMaySleep = mReady.empty() && !mEnded;
    const int lCount = ::epoll_wait(mSet.descriptor(), aEvents, lMost, lMaySleep ? aLimitMs : 0);
    lWait.end();
    return lCount;
}

/// A timer goes first. The other events are left, and found by other threads while this one is in a
/// callback.
LoopReactor::Waited LoopReactor::serveAll(epoll_event* aEvents, int aCount) {
    if (aCount == 1) {
        return serve(aEvents[0]);
    }
    if (leave(aEvents, aCount)) {
        passOn();
        return serveTimer() ? kServed : kNothing;
    }
    return serveLeft();
}

/// Leaves events to all threads. Those for which there is no room go back to the kernel, which
/// reports them again. So do the handlers', one at a time, if a handler that wants a fresh look has
/// come since the thread began to wait.
/// @return whether there was a timer's, which is the caller's.
bool LoopReactor::leave(epoll_event* aEvents, int aCount) {
    const bool lGiveBack = mSet.wantsFreshLook();
    bool lTimer = false;
    int lKept = 0;
    for (int lEvent = 0; lEvent < aCount; ++lEvent) {
        const std::uint64_t lTag = aEvents[lEvent].data.u64;
        if (lTag == ServedSet::kTimer) {
            lTimer = true;
        } else if (lTag == ServedSet::kWake) {
            mWaking = false;
        } else if (lGiveBack && lTag >= ServedSet::kTags) {
            mSet.giveBack(aEvents[lEvent]);
        } else {
            aEvents[lKept++] = aEvents[lEvent];
        }
    }
    for (int lLeft = mReady.add(aEvents, lKept); lLeft > 0; --lLeft) {
        giveBack(aEvents[lKept - lLeft]);
    }
    return lTimer;
}

/// A notification needs nothing: it is reported for as long as there is one.
void LoopReactor::giveBack(const epoll_event& aEvent) {
    if (aEvent.data.u64 >= ServedSet::kTags) {
        mSet.giveBack(aEvent);
    } else if (aEvent.data.u64 == ServedSet::kAces) {
        mReady.addAces();
    }
}

/// Serves an event that was left or, as this thread may not come by again, wakes another one.
LoopReactor::Waited LoopReactor::serveLeft() {
    Waited lWaited = kNothing;
    if (!serveReady(lWaited)) {
        passOn();
    }
    return lWaited;
}

LoopReactor::Waited LoopReactor::serve(const epoll_event& aEvent) {
    switch (aEvent.data.u64) {
        case ServedSet::kTimer:
            return serveTimer() ? kServed : kNothing;
        case ServedSet::kWake:
            mWaking = false;
            return serveLeft();
        case ServedSet::kNotify:
            return serveNotification() ? kServed : kNothing;
        case ServedSet::kAces:
            return serveAces() ? kServed : kNothing;
        default:
            return mSet.serve(aEvent) ? kServed : kNothing;
    }
}

bool LoopReactor::serveTimer() {
    ACE_Timer_Queue* const lQueue = mQueue;
    if (lQueue == &mTimers) {
        NothingBefore lNothing;
        return mTimers.expire_single(lNothing) != 0;
    }
    AlarmBefore lAlarm([this] { setAlarmOfOtherQueue(); });
    const bool lServed = lQueue != nullptr && lQueue->expire_single(lAlarm) > 0;
    setAlarmOfOtherQueue();
    return lServed;
}

/// One notification, as ACE's loop serves it. Each read of the pipe gets a whole one.
bool LoopReactor::serveNotification() {
    if (notify_handler_ == nullptr) {  // closed by a callback after the event was taken
        return false;
    }
    ACE_Notification_Buffer lNotification;
    while (notify_handler_->read_notify_pipe(notify_handler_->notify_handle(), lNotification) > 0) {
        if (notify_handler_->is_dispatchable(lNotification) > 0) {
            notify_handler_->dispatch_notify(lNotification);
            return true;
        }
    }
    return false;
}

/// Has ACE serve one handler of the application's.
/// @return whether there was one: ACE's own result is that of what it does after the callback.
bool LoopReactor::serveAces() {
    AcesTurn lTurn(*this);
    ACE_Time_Value lLimit(kTokenLimit);
    ACE_TP_Reactor::handle_events(&lLimit);
    return lTurn.hasServed();
}

/// ACE asks here what is ready, with its token, in `serveAces`.
int LoopReactor::wait_for_multiple_events(ACE_Select_Reactor_Handle_Set& aReady, ACE_Time_Value*) {
    const NoCancellation lGuard;
    ACE_Time_Value lNoWait(ACE_Time_Value::zero);
    const int lReady = ACE_TP_Reactor::wait_for_multiple_events(aReady, &lNoWait);
    AcesTurn::noteSelect();
    return lReady;
}

/// Wakes a thread for what this one leaves, events or the end of the loop. That one does the same.
/// While a thread is on its way it is enough: it looks for what was left when it has come.
void LoopReactor::passOn() {
    if ((mEnded || !mReady.empty()) && mSleepers != 0 && !mWaking.exchange(true)) {
        const NoCancellation lGuard;
        const std::uint64_t lOne = 1;
        ssize_t lWritten = -1;
        do {
            lWritten = ::write(mWake.get(), &lOne, sizeof lOne);
        } while (lWritten == -1 && errno == EINTR);
        if (lWritten == -1) {
            mWaking = false;  // nobody is on the way
        }
    }
}

/// Looks, once a second, whether the numbers of the application's handlers are still of the same
/// files. If another thread has the token it does without.
void LoopReactor::checkNumbers() {
    time_t lNext = mNextCheck.load(std::memory_order_relaxed);
    if (lNext == kNever) {
        return;
    }
    const time_t lNow = secondNow();
    if (lNow >= lNext && mNextCheck.compare_exchange_strong(lNext, lNow + 1) &&
        token_.tryacquire() == 0) {
        mAces.check();
        token_.release();
    }
}

}  // namespace osx
