/// @file
/// What a timer has the reactor call. Internal.
///
/// It is an object of its own, counted by reference, so that a timer may be destroyed at any time:
/// by its own callback, or on another thread while the reactor is about to call.
#ifndef OSX_OSX_TIMERSCHEDULE_H
#define OSX_OSX_TIMERSCHEDULE_H

#include <condition_variable>
#include <mutex>

#include "osx/osxEventHandler.h"

class ACE_Reactor;
class osxTimeoutHandler;

namespace osx {

class TimerQueue;

class TimerSchedule : public osxEventHandler {
public:
    using Function = void (*)(const void*);

    /// Calls a timer's function; without one it writes a line.
    static void call(Function aFunction, const void* aAct);

    /// @param aOwner the timer; only referred to, so that one that a program leaves behind when it
    ///        ends can still be found through the reactor.
    TimerSchedule(const osxTimeoutHandler* aOwner, Function aFunction);
    ~TimerSchedule() override;

    /// Schedules the timer. @return its id; -1 on failure.
    long start(ACE_Reactor* aReactor, const void* aAct, const ACE_Time_Value& aDelay,
               const ACE_Time_Value& aInterval);

    /// Takes the timer out of the reactor. @return as `osxTimeoutHandler::cancel`.
    int cancel();

    /// Cancels, lets a callback that is under way on another thread finish, for a bounded time, and
    /// gives up the maker's reference.
    void retire();

    int handle_timeout(const ACE_Time_Value& aNow, const void* aAct) override;
    int handle_close(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) override;

private:
    long schedule(ACE_Reactor* aReactor, const void* aAct, const ACE_Time_Value& aDelay,
                  const ACE_Time_Value& aInterval);
    bool enter();
    void leave();
    ACE_Reactor* stop();
    void awaitCallbacks();

    [[maybe_unused]] const osxTimeoutHandler* const mOwner;
    const Function mFunction;
    std::mutex mMutex;
    std::condition_variable mIdle;
    ACE_Reactor* mReactor;
    TimerQueue* mQueue;
    long mTimerID;
    bool mPeriodic;
    bool mStopped;
    int mRunning;
};

}  // namespace osx

#endif
