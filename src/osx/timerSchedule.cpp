#include "osx/timerSchedule.h"

#include <chrono>
#include <utility>

#include "ace/Reactor.h"
#include "base/diagnosticLine.h"
#include "osx/eventLoop.h"
#include "osx/timerQueue.h"

namespace {

constexpr char kModule[] = "osxTimeoutHandler.cpp";
constexpr std::chrono::milliseconds kCallbackGrace(250);

/// The timer whose callback the thread is running.
thread_local const osx::TimerSchedule* tCurrent = nullptr;

constexpr long kNotScheduled = -1;

}  // namespace

namespace osx {

TimerSchedule::TimerSchedule(const osxTimeoutHandler* aOwner, Function aFunction)
    : mOwner(aOwner),
      mFunction(aFunction),
      mReactor(nullptr),
      mQueue(nullptr),
      mTimerID(kNotScheduled),
      mPeriodic(false),
      mStopped(false),
      mRunning(0) {}

TimerSchedule::~TimerSchedule() = default;

void TimerSchedule::call(Function aFunction, const void* aAct) {
    if (aFunction == nullptr) {
        DiagnosticLine(kModule).failure(LM_ERROR,
                                        "%t osxTimeoutHandler::handle_timeout: mFnc == 0\n");
        return;
    }
    aFunction(aAct);
}

long TimerSchedule::start(ACE_Reactor* aReactor, const void* aAct, const ACE_Time_Value& aDelay,
                          const ACE_Time_Value& aInterval) {
    mReactor = aReactor;
    mQueue = ownTimerQueue(aReactor);
    mPeriodic = aInterval > ACE_Time_Value::zero;
    mTimerID = schedule(aReactor, aAct, aDelay, aInterval);
    if (mTimerID == kNotScheduled) {
        stop();
    }
    return mTimerID;
}

/// A reactor of the application's own need know no more than ACE's interface.
long TimerSchedule::schedule(ACE_Reactor* aReactor, const void* aAct, const ACE_Time_Value& aDelay,
                             const ACE_Time_Value& aInterval) {
    if (mQueue == nullptr) {
        return aReactor->schedule_timer(this, aAct, aDelay, aInterval);
    }
    bool lIsNext = false;
    const long lTimerID = mQueue->start(*this, aAct, aDelay, aInterval, lIsNext);
    if (lIsNext) {
        recomputeWait(aReactor);
    }
    return lTimerID;
}

int TimerSchedule::cancel() {
    ACE_Reactor* const lReactor = stop();
    if (lReactor == nullptr) {
        return 0;
    }
    return mQueue != nullptr ? mQueue->stop(*this, mTimerID)
                             : lReactor->cancel_timer(mTimerID, nullptr, kDontCallHandleClose);
}

void TimerSchedule::retire() {
    cancel();
    awaitCallbacks();
    remove_reference();
}

int TimerSchedule::handle_timeout(const ACE_Time_Value&, const void* aAct) {
    if (enter()) {
        const TimerSchedule* const lFormer = std::exchange(tCurrent, this);
        call(mFunction, aAct);
        tCurrent = lFormer;
        leave();
    }
    if (mQueue != nullptr && mPeriodic) {
        remove_reference();  // which the queue gave with the call
    }
    return 0;
}

/// The reactor is going, and the timer with it.
int TimerSchedule::handle_close(ACE_HANDLE, ACE_Reactor_Mask) {
    stop();
    return 0;
}

bool TimerSchedule::enter() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    if (mStopped) {
        return false;
    }
    if (!mPeriodic) {
        mReactor = nullptr;
    }
    ++mRunning;
    return true;
}

void TimerSchedule::leave() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    --mRunning;
    mIdle.notify_all();
}

/// @return the reactor that may still hold the timer.
ACE_Reactor* TimerSchedule::stop() {
    const std::lock_guard<std::mutex> lGuard(mMutex);
    mStopped = true;
    return std::exchange(mReactor, nullptr);
}

void TimerSchedule::awaitCallbacks() {
    if (tCurrent == this) {
        return;
    }
    std::unique_lock<std::mutex> lLock(mMutex);
    if (mRunning != 0) {
        mIdle.wait_for(lLock, kCallbackGrace, [this] { return mRunning == 0; });
    }
}

}  // namespace osx
