#include "osx/osxTimeoutHandler.h"

#include "ace/Reactor.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/milliseconds.h"
#include "osx/eventLoop.h"
#include "osx/timerSchedule.h"

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
      mTimerID(kNotScheduled),
      mSchedule(osx::allocate<osx::TimerSchedule>(this, aFunction)) {
    const osx::NoCancellation lGuard;
    const ACE_Time_Value lDelay = osx::toTimeValue(mDelay);
    ACE_Reactor* const lReactor = osx::processReactor();
    if (mSchedule != nullptr && lReactor != nullptr) {
        mTimerID = mSchedule->start(lReactor, aArgument, lDelay,
                                    mInterval == 0 ? ACE_Time_Value::zero : lDelay);
    }
    if (mTimerID == kNotScheduled) {
        osx::DiagnosticLine(kModule).failure(
            LM_ERROR,
            "%t osxTimeoutHandler::osxTimeoutHandler: Unable to schedule_timer with the reactor\n");
    }
}

osxTimeoutHandler::~osxTimeoutHandler() {
    const osx::NoCancellation lGuard;
    if (mSchedule != nullptr) {
        mSchedule->retire();
    }
}

int osxTimeoutHandler::handle_timeout(const ACE_Time_Value&, const void* aAct) {
    osx::TimerSchedule::call(mFnc, aAct);
    return 0;
}

int osxTimeoutHandler::cancel() {
    const int lResult = mSchedule == nullptr ? 0 : mSchedule->cancel();
    if (lResult == -1) {
        osx::DiagnosticLine(kModule).failure(
            LM_ERROR, "%t osxTimeoutHandler::cancel: Unable to cancel_timer mTimerID[%d]\n",
            mTimerID);
    }
    return lResult;
}
