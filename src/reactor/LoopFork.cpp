// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What the reactor is in the child of a fork: the same handlers and timers, descriptors of its own,
// and no thread in the loop.
#include <new>

#include "ace/Thread_Mutex.h"
#include "base/NoCancellation.h"
#include "reactor/AceNotifications.h"
#include "reactor/LoopReactor.h"
#include "reactor/TimerQueue.h"
#include "reactor/replaceDescriptor.h"

namespace osx {

// The locks are taken by one function and given back by another, which clang cannot follow.

void LoopReactor::lockTokenForFork() {
    const NoCancellation lGuard;
    token_.acquire();
}

void LoopReactor::unlockTokenAfterFork() {
    token_.release();
}

void LoopReactor::lockForFork() OSX_NO_THREAD_SAFETY_ANALYSIS {
    mSet.mutex().lock();
    mReady.mutex().lock();
    mTimers.mutex().lock();
    if (notify_handler_ != nullptr) {
        lockOfNotifications(*notify_handler_).acquire();
    }
}

void LoopReactor::unlockAfterFork() OSX_NO_THREAD_SAFETY_ANALYSIS {
    if (notify_handler_ != nullptr) {
        lockOfNotifications(*notify_handler_).release();
    }
    mTimers.mutex().unlock();
    mReady.mutex().unlock();
    mSet.mutex().unlock();
}

void LoopReactor::renewInChild() OSX_NO_THREAD_SAFETY_ANALYSIS {
    if (notify_handler_ != nullptr) {
        renewNotificationPipe(*notify_handler_);
    }
    mSet.renewInChild();
    mTimer.renew();
    replaceDescriptor(mWake, makeWakeUp());
    fillPoll();
    mAces.renewInChild();
    mReady.forget();
    mTimers.beginAnew();
    if (mQueue != &mTimers) {
        mTimer.set(0);  // its own lock may be held by a thread that is not here
    }
    new (&mAlarm) Mutex;  // the same
    mSleepers = 0;
    mWaking = false;
    mHasToEnrol = true;
    unlockAfterFork();
    // The token knows its owner by the thread id, and has waiters that are not here.
    makeToken();
    resumeServedByOthers();
}

/// Threads that are not here had handlers of the application's suspended, to serve them.
void LoopReactor::resumeServedByOthers() {
    ACE_Handle_Set_Iterator lServed(mInCall);
    for (ACE_HANDLE lHandle = lServed(); lHandle != ACE_INVALID_HANDLE; lHandle = lServed()) {
        ACE_TP_Reactor::resume_i(lHandle);
        mAces.watch(lHandle);
    }
    mInCall.reset();
}

}  // namespace osx
