// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A one-shot or periodic timer on the process-wide reactor; what a timer handle points at.
#ifndef OSX_OSX_OSXTIMEOUTHANDLER_H
#define OSX_OSX_OSXTIMEOUTHANDLER_H

#include <atomic>

#include "ace/Event_Handler.h"
#include "base/osxExport.h"

class ACE_Reactor;

namespace osx {
class TimerQueue;
}

/// A timer, from its construction to its destruction. See `osxCreateTimer` for what the arguments
/// mean, and for threads.
///
/// It is itself the handler that the reactor has for the timer: a class derived from it may
/// override `handle_timeout`, and `ACE_Reactor::cancel_timer` with the object stops it.
class OSX_EXPORT osxTimeoutHandler : public ACE_Event_Handler {
public:
    /// Schedules the timer. When that fails the timer never fires (with a line).
    /// @param aFunction called with `aArgument`.
    /// @param aArgument handed to `aFunction`; stays the caller's.
    /// @param aDelayMs time until the first call, and the period.
    /// @param aIntervalMs 0 for one call, any other value for a periodic timer.
    osxTimeoutHandler(void (*aFunction)(const void*), void* aArgument, long aDelayMs,
                      long aIntervalMs);

    /// Cancels the timer. On the library's own reactor no callback begins after it; one that is
    /// under way on another thread is waited for, for at most 250 ms, so that what it uses can be
    /// freed. For a class that overrides `handle_timeout` it comes too late, after that class's own
    /// members have gone: let such a class cancel, and see to it that no call is under way.
    ~osxTimeoutHandler() override;

    osxTimeoutHandler(const osxTimeoutHandler&) = delete;
    osxTimeoutHandler& operator=(const osxTimeoutHandler&) = delete;

    /// Calls the function; this is what firing does. Without a function it only writes a line.
    /// @param aNow not looked at.
    /// @param aAct handed to the function.
    /// @retval 0 always.
    int handle_timeout(const ACE_Time_Value& aNow, const void* aAct) override;

    /// Notes that the reactor goes, which is not asked any more.
    /// @param aHandle handed to the base.
    /// @param aMask handed to the base.
    /// @return what the base returns, -1.
    int handle_close(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) override;

    /// Stops the timer for good. No callback begins after it returns; one that is under way is not
    /// waited for.
    /// @retval 1 the timer was stopped.
    /// @retval 0 there was nothing to stop.
    /// @retval -1 a reactor of the application's own refused (with a line).
    int cancel();

private:
    /// By what a reactor that is not the library's can be asked to cancel the timer.
    enum Asked {
        kById,       ///< From the start on: the id is this timer's.
        kByHandler,  ///< From a one-shot timer's call on: its id may be another timer's by now.
        kNotAtAll    ///< Never scheduled, cancelled, or closed by the reactor.
    };

    bool isPeriodic() const;
    long start(void* aArgument);
    long startOnOwnReactor(void* aArgument, const ACE_Time_Value& aDelay,
                           const ACE_Time_Value& aInterval);
    long startOnOtherReactor(void* aArgument, const ACE_Time_Value& aDelay,
                             const ACE_Time_Value& aInterval);
    int stop();
    int stopOnOtherReactor();

    void (*mFnc)(const void*);  ///< What to call; null for a line only.
    long mDelay;                ///< Milliseconds; the period, too.
    long mInterval;             ///< 0 for one call, any other value for a periodic timer.
    long mTimerID;              ///< In the queue, or on the other reactor; -1 if not scheduled.
    osx::TimerQueue* mQueue;    ///< The library's; null for a timer of another reactor.
    ACE_Reactor* mReactor;      ///< The one that the timer was made on; null if there was none.

    /// Not used where the timer is the library's queue's. A thread that runs the reactor's loop
    /// writes it, when the timer fires, and any that cancels the timer; a cancellation reads it.
    std::atomic<Asked> mAsked;
};

#endif
