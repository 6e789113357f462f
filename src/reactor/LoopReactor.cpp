// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Construction and destruction of the reactor, its timers, and what of ACE's interface concerns
// neither handlers nor the serving of events.
#include "reactor/LoopReactor.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <new>

#include "ace/Reactor.h"
#include "base/NoCancellation.h"
#include "reactor/AceNotifications.h"
#include "reactor/AcesTurn.h"
#include "reactor/HeldToken.h"
#include "reactor/TimerQueue.h"

namespace osx {

/// Stands in the place of ACE's own, which wakes a loop thread for each thread that waits for it.
/// Here no loop thread sleeps with the token.
class LoopReactor::Token : public ACE_Select_Reactor_Token {
public:
    using ACE_Select_Reactor_Token::ACE_Select_Reactor_Token;
    void sleep_hook() override;
};

void LoopReactor::Token::sleep_hook() {
    AcesTurn::holdCancellation();
}

/// In the place of the former one, whatever state that is in.
void LoopReactor::makeToken() {
    static_assert(sizeof(Token) == sizeof token_);
    new (&token_) Token(*this, ACE_Select_Reactor_Token::FIFO);
}

LoopReactor::LoopReactor(TimerQueue& aTimers) : LoopReactor(aTimers, TimerQueue::take()) {}

LoopReactor::LoopReactor(TimerQueue& aTimers, TimerQueue* aNone)
    : UncancelledReactor(nullptr, aNone, true, ACE_Select_Reactor_Token::FIFO),
      mTimers(aTimers),
      mQueue(&aTimers),
      mNone(aNone),
      mAlarmsAsked(0),
      mWake(makeWakeUp()),
      mAces(wait_set_, mSet, mWake.get()),
      mNextCheck(kNever),
      mSleepers(0),
      mWaking(false),
      mEnded(false),
      mHasToEnrol(false),
      mClosed(true) {
    std::destroy_at(&token_);
    makeToken();
    if (initialized()) {
        mClosed = !setUp();
        if (mClosed) {
            UncancelledReactor::close();
        }
    }
}

LoopReactor::~LoopReactor() {
    LoopReactor::close();
    mTimers.wakeWith(nullptr);
}

Descriptor LoopReactor::makeWakeUp() {
    return Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
}

bool LoopReactor::usable() {
    return initialized();
}

/// @return whether the loop has all that it waits for.
bool LoopReactor::setUp() {
    if (!fillPoll()) {
        return false;
    }
    // It is the poll that looks after the pipe.
    wait_set_.rd_mask_.clr_bit(notify_handler_->notify_handle());
    giveBackRoomForNotifications(*notify_handler_);
    mTimers.wakeWith(&mTimer);
    return true;
}

/// Puts the loop's own descriptors into the poll.
bool LoopReactor::fillPoll() const {
    return mSet.usable() && mTimer.descriptor() != -1 && mWake && notify_handler_ != nullptr &&
           mSet.addTagged(mTimer.descriptor(), ServedSet::kTimer, kTimerEvents) == 0 &&
           mSet.addTagged(mWake.get(), ServedSet::kWake, EPOLLIN | EPOLLET) == 0 &&
           mSet.addTagged(notify_handler_->notify_handle(), ServedSet::kNotify, EPOLLIN) == 0;
}

int LoopReactor::close() {
    if (!mClosed) {
        mClosed = true;
        mSet.close();
    }
    const int lResult = UncancelledReactor::close();
    mAces.close();
    if (ACE_Timer_Queue* const lQueue = mQueue.exchange(nullptr)) {
        closeQueue(*lQueue);
    }
    return lResult;
}

// --- timers ---
//
// ACE takes its token for each of these calls. Here only what may call `handle_close` takes it, and
// only with an ACE queue: that calls it with its lock, which therefore comes after the token, as in
// ACE. The library's queue calls it without its lock.

template <class Call>
int LoopReactor::withTokenUnlessOwn(const ACE_Timer_Queue& aQueue, Call aCall) {
    if (&aQueue == &mTimers) {
        return aCall();
    }
    const HeldToken lToken(token_);
    return aCall();
}

long LoopReactor::schedule_timer(ACE_Event_Handler* aHandler, const void* aAct,
                                 const ACE_Time_Value& aDelay, const ACE_Time_Value& aInterval) {
    ACE_Timer_Queue* const lQueue = mQueue;
    if (lQueue == &mTimers) {
        return mTimers.start(aHandler, aAct, aDelay, aInterval);
    }
    if (lQueue == nullptr) {
        errno = ESHUTDOWN;
        return -1;
    }
    const long lId = lQueue->schedule(aHandler, aAct, lQueue->gettimeofday() + aDelay, aInterval);
    setAlarmOfOtherQueue();
    return lId;
}

int LoopReactor::reset_timer_interval(long aTimerID, const ACE_Time_Value& aInterval) {
    ACE_Timer_Queue* const lQueue = mQueue;
    if (lQueue == nullptr) {
        errno = ESHUTDOWN;
        return -1;
    }
    return lQueue->reset_interval(aTimerID, aInterval);
}

int LoopReactor::cancel_timer(ACE_Event_Handler* aHandler, int aDontCallHandleClose) {
    ACE_Timer_Queue* const lQueue = mQueue;
    if (lQueue == nullptr || aHandler == nullptr) {
        return 0;
    }
    return withTokenUnlessOwn(*lQueue,
                              [&] { return lQueue->cancel(aHandler, aDontCallHandleClose); });
}

int LoopReactor::cancel_timer(long aTimerID, const void** aAct, int aDontCallHandleClose) {
    ACE_Timer_Queue* const lQueue = mQueue;
    if (lQueue == nullptr) {
        return 0;
    }
    return withTokenUnlessOwn(*lQueue,
                              [&] { return lQueue->cancel(aTimerID, aAct, aDontCallHandleClose); });
}

ACE_Timer_Queue* LoopReactor::timer_queue() const {
    return mQueue;
}

/// The former one is closed, as ACE does it.
int LoopReactor::timer_queue(ACE_Timer_Queue* aQueue) {
    if (ACE_Timer_Queue* const lFormer = mQueue.exchange(aQueue)) {
        closeQueue(*lFormer);
    }
    const bool lIsOurs = aQueue == &mTimers;
    mTimers.wakeWith(lIsOurs ? &mTimer : nullptr);
    if (!lIsOurs) {
        setAlarmOfOtherQueue();
    }
    return 0;
}

void LoopReactor::closeQueue(ACE_Timer_Queue& aQueue) {
    withTokenUnlessOwn(aQueue, [&] { return aQueue.close(); });
}

/// The latest request decides the alarm. A thread that finds another one setting the alarm leaves
/// it to that one, which sees it and asks again.
void LoopReactor::setAlarmOfOtherQueue() {
    const NoCancellation lGuard;
    ++mAlarmsAsked;
    unsigned int lAsked = 0;
    do {
        if (!mAlarm.tryLock()) {
            return;
        }
        lAsked = mAlarmsAsked;
        askOtherQueue();
        mAlarm.unlock();
    } while (lAsked != mAlarmsAsked);
}

/// A queue of the application's own keeps time by whatever clock: only how long there is left is
/// asked.
void LoopReactor::askOtherQueue() {
    ACE_Timer_Queue* const lQueue = mQueue;
    ACE_Time_Value lLeft;
    if (lQueue != nullptr && lQueue->calculate_timeout(nullptr, &lLeft) != nullptr) {
        mTimer.setIn(lLeft);
    }
}

int LoopReactor::deactivated() {
    return mEnded ? 1 : 0;
}

void LoopReactor::deactivate(int aEnd) {
    mEnded = aEnd != 0;
    UncancelledReactor::deactivate(aEnd);
    passOn();  // ACE's notification wakes one thread
}

/// Of the notifications in ACE's list only the first one is written to the pipe, which so always
/// has room: there is no need for a limit, with which ACE would wait for it. If that fails the
/// notification stays in the list, where the next ones would wait behind it, and ACE has given up
/// its reference to the handler.
int LoopReactor::notify(ACE_Event_Handler* aHandler, ACE_Reactor_Mask aMask, ACE_Time_Value*) {
    if (aHandler != nullptr) {
        aHandler->add_reference();
    }
    ACE_Event_Handler_var lReference(aHandler);
    const int lResult = UncancelledReactor::notify(aHandler, aMask);
    if (lResult == 0 || errno == ENOMEM || notify_handler_ == nullptr) {
        return lResult;
    }
    lReference.release();
    return wakeForNotifications(*notify_handler_) ? 0 : -1;
}

/// A handle marked ready through ACE may not be ready for the kernel, so an event is queued by
/// hand.
int LoopReactor::ready_ops(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask, int aOperation) {
    const int lResult = UncancelledReactor::ready_ops(aHandle, aMask, aOperation);
    mReady.addAces();
    passOn();
    return lResult;
}

int LoopReactor::work_pending(const ACE_Time_Value& aLimit) {
    if (mEnded) {
        return 0;
    }
    if (!mReady.empty()) {
        return 1;
    }
    pollfd lPoll{mSet.descriptor(), POLLIN, 0};
    const timespec lLimit = aLimit;
    return ::ppoll(&lPoll, 1, &lLimit, nullptr);
}

}  // namespace osx
