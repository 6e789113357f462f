// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The calls of timers that are under way. A handler may be destroyed at any moment, while other
// threads are about to call it or are calling it. So each call is noted under the lock of the timer
// queue, and the thread that destroys the handler looks at the notes under the same lock.
#include "reactor/TimerCalls.h"

#include <chrono>
#include <new>
#include <utility>

#include "base/NoCancellation.h"

namespace osx {

namespace {

constexpr std::chrono::milliseconds kCallGrace(250);
constexpr std::chrono::seconds kHandlerGrace(2);

}  // namespace

thread_local TimerCall* TimerCall::mInnermost = nullptr;

int TimerCall::make(const ACE_Time_Value& aNow) {
    if (!change(kAboutToBegin, kBegun)) {
        return 0;
    }
    mOuter = std::exchange(mInnermost, this);
    return mHandler->handle_timeout(aNow, mAct);
}

void TimerCall::end() {
    if (mInnermost == this) {
        mInnermost = mOuter;
    }
    if (TimerCalls* const lCalls = std::exchange(mCalls, nullptr)) {
        lCalls->forget(*this);
    }
}

TimerCall* TimerCall::innermostOf(const ACE_Event_Handler& aHandler) {
    TimerCall* const lCall = mInnermost;
    return lCall != nullptr && lCall->mHandler == &aHandler ? lCall : nullptr;
}

void TimerCall::release() {
    if (change(kBegun, kReleased)) {
        mCalls->wakeWaiting();
    }
}

bool TimerCall::needsHandler(bool aAlsoReleased) const {
    const Phase lPhase = mPhase;
    return lPhase == kBegun || (aAlsoReleased && lPhase == kReleased);
}

void TimerCalls::note(TimerCall& aCall) {
    aCall.mThread = std::this_thread::get_id();
    aCall.mCalls = this;
    aCall.mNext = std::exchange(mFirst, &aCall);
}

void TimerCalls::forget(TimerCall& aCall) {
    const MutexLock lLock(mMutex);
    TimerCall** lLink = &mFirst;
    while (*lLink != &aCall) {
        lLink = &(*lLink)->mNext;
    }
    *lLink = aCall.mNext;
    if (mWaiting != 0) {
        mChanged.wakeAll();
    }
}

void TimerCalls::callOff(const ACE_Event_Handler& aHandler) {
    for (TimerCall* lCall = mFirst; lCall != nullptr; lCall = lCall->mNext) {
        if (lCall->mHandler == &aHandler) {
            lCall->change(TimerCall::kAboutToBegin, TimerCall::kCalledOff);
        }
    }
}

bool TimerCalls::isCalledElsewhere(const ACE_Event_Handler& aHandler, bool aAlsoReleased) const {
    const std::thread::id lThread = std::this_thread::get_id();
    for (const TimerCall* lCall = mFirst; lCall != nullptr; lCall = lCall->mNext) {
        if (lCall->mHandler == &aHandler && lCall->mThread != lThread &&
            lCall->needsHandler(aAlsoReleased)) {
            return true;
        }
    }
    return false;
}

void TimerCalls::await(const ACE_Event_Handler& aHandler, Mutex& aMutex) {
    const NoCancellation lGuard;  // a destructor waits here
    const auto lNow = std::chrono::steady_clock::now();
    bool lInTime = true;
    ++mWaiting;
    while (lInTime && isCalledElsewhere(aHandler, false)) {
        lInTime = mChanged.waitUntil(aMutex, lNow + kHandlerGrace);
    }
    lInTime = true;
    while (lInTime && isCalledElsewhere(aHandler, true)) {
        lInTime = mChanged.waitUntil(aMutex, lNow + kCallGrace);
    }
    --mWaiting;
}

void TimerCalls::wakeWaiting() {
    if (mWaiting != 0) {
        const MutexLock lLock(mMutex);
        mChanged.wakeAll();
    }
}

void TimerCalls::forgetOtherThreads() {
    const std::thread::id lThread = std::this_thread::get_id();
    TimerCall** lLink = &mFirst;
    while (*lLink != nullptr) {
        TimerCall* const lCall = *lLink;
        if (lCall->mThread == lThread) {
            lLink = &lCall->mNext;
        } else {
            *lLink = lCall->mNext;
        }
    }
    // The destructor would wait for the threads that waited in it.
    new (&mChanged) Condition;
    mWaiting = 0;
}

}  // namespace osx
