// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A timer, on the library's own reactor or on another one.
//
// The library's timer queue compares ids with handlers, and waits for calls that are under way: a
// timer there asks it directly. Another reactor, which the application has installed, knows ids
// only, and gives them to new timers. So a timer there remembers by what it may still be asked for.
#include "osx/osxTimeoutHandler.h"

#include <cstdint>

#include "ace/Reactor.h"
#include "base/NoCancellation.h"
#include "base/diagnosticLine.h"
#include "base/milliseconds.h"
#include "osx/OSX_Reactor.h"
#include "reactor/TimerQueue.h"
#include "reactor/processReactor.h"

namespace {
constexpr char kModule[] = "osxTimeoutHandler.cpp";
constexpr long kNotScheduled = -1;
}  // namespace

osxTimeoutHandler::osxTimeoutHandler(void (*aFunction)(const void*), void* aArgument, long aDelayMs,
                                     long aIntervalMs)
    : ACE_Event_Handler(nullptr, ACE_Event_Handler::LO_PRIORITY),
      mFnc(aFunction),
      mDelay(aDelayMs),
      mInterval(aIntervalMs),
      mTimerID(0),
      mQueue(nullptr),
      mReactor(OSX_Reactor::ofProcess()),
      mAsked(mReactor == nullptr ? kNotAtAll : kById) {
    mQueue = osx::ownTimerQueue(mReactor);
    mTimerID = start(aArgument);
    if (mTimerID == kNotScheduled) {
        osx::DiagnosticLine(kModule).failure(
            LM_ERROR,
            "%t osxTimeoutHandler::osxTimeoutHandler: Unable to schedule_timer with the reactor\n");
    }
}

osxTimeoutHandler::~osxTimeoutHandler() {
    if (mQueue != nullptr) {
        mQueue->retire(*this, mTimerID);
    } else {
        const osx::NoCancellation lGuard;
        stop();
    }
    if (mReactor != osx::installedReactor()) {
        reactor(nullptr);  // it may have gone, and the base would ask it to drop notifications
    }
}

/// @return the timer's id, or `kNotScheduled`.
long osxTimeoutHandler::start(void* aArgument) {
    if (mReactor == nullptr) {
        return kNotScheduled;
    }
    const ACE_Time_Value lDelay = osx::toTimeValue(mDelay);
    const ACE_Time_Value lInterval = isPeriodic() ? lDelay : ACE_Time_Value::zero;
    return mQueue != nullptr ? startOnOwnReactor(aArgument, lDelay, lInterval)
                             : startOnOtherReactor(aArgument, lDelay, lInterval);
}

/// Does what `ACE_Reactor::schedule_timer` does on the library's own reactor.
long osxTimeoutHandler::startOnOwnReactor(void* aArgument, const ACE_Time_Value& aDelay,
                                          const ACE_Time_Value& aInterval) {
    reactor(mReactor);
    return mQueue->start(this, aArgument, aDelay, aInterval);
}

long osxTimeoutHandler::startOnOtherReactor(void* aArgument, const ACE_Time_Value& aDelay,
                                            const ACE_Time_Value& aInterval) {
    const osx::NoCancellation lGuard;
    return mReactor->schedule_timer(this, aArgument, aDelay, aInterval);
}

bool osxTimeoutHandler::isPeriodic() const {
    return static_cast<std::int32_t>(mInterval) != 0;
}

int osxTimeoutHandler::handle_timeout(const ACE_Time_Value&, const void* aAct) {
    void (*const lFunction)(const void*) = mFnc;
    if (mQueue == nullptr && !isPeriodic() && mAsked == kById) {
        mAsked = kByHandler;
    }
    osx::TimerQueue::release(*this);
    // From here on nothing of this object is used: the function may destroy it.
    if (lFunction == nullptr) {
        osx::DiagnosticLine(kModule).failure(LM_ERROR,
                                             "%t osxTimeoutHandler::handle_timeout: mFnc == 0\n");
        return 0;
    }
    lFunction(aAct);
    return 0;
}

int osxTimeoutHandler::handle_close(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) {
    mAsked = kNotAtAll;
    return ACE_Event_Handler::handle_close(aHandle, aMask);
}

int osxTimeoutHandler::cancel() {
    const int lResult = stop();
    if (lResult == -1) {
        osx::DiagnosticLine(kModule).failure(
            LM_ERROR, "%t osxTimeoutHandler::cancel: Unable to cancel_timer mTimerID[%d]\n",
            mTimerID);
    }
    return lResult;
}

int osxTimeoutHandler::stop() {
    return mQueue != nullptr ? mQueue->stop(*this, mTimerID) : stopOnOtherReactor();
}

int osxTimeoutHandler::stopOnOtherReactor() {
    if (mAsked == kByHandler) {
        // The timer has fired. The reactor may have gone since, unless it is the installed one.
        return mReactor == osx::installedReactor()
                   ? mReactor->cancel_timer(this, osx::kDontCallHandleClose)
                   : 0;
    }
    if (mAsked == kNotAtAll) {
        return 0;
    }
    const int lResult = mReactor->cancel_timer(mTimerID, nullptr, osx::kDontCallHandleClose);
    if (lResult != -1) {
        mAsked = kNotAtAll;
    }
    return lResult;
}
