/// @file
/// A one-shot or periodic timer on the process-wide reactor; what a timer handle points at.
#ifndef OSX_OSX_OSXTIMEOUTHANDLER_H
#define OSX_OSX_OSXTIMEOUTHANDLER_H

#include "ace/Event_Handler.h"
#include "base/osxExport.h"

namespace osx {
class TimerSchedule;
}

/// A timer, from its construction to its destruction. See `osxCreateTimer` for what the arguments
/// mean, and for threads.
class OSX_EXPORT osxTimeoutHandler : public ACE_Event_Handler {
public:
    /// Schedules the timer. When that fails a line says so, and the timer never fires.
    /// @param aArgument handed to `aFunction`; stays the caller's.
    osxTimeoutHandler(void (*aFunction)(const void*), void* aArgument, long aDelayMs,
                      long aIntervalMs);

    /// Cancels the timer. No callback begins after it; one that is under way on another thread is
    /// waited for, for at most 250 ms, so that what it uses can be freed.
    ~osxTimeoutHandler() override;

    osxTimeoutHandler(const osxTimeoutHandler&) = delete;
    osxTimeoutHandler& operator=(const osxTimeoutHandler&) = delete;

    /// What firing does: calls the function with `aAct`. Without a function a line says so.
    /// @return 0 always.
    int handle_timeout(const ACE_Time_Value& aNow, const void* aAct) override;

    /// Stops the timer for good.
    /// @return 1 if a timer was stopped, 0 if there was none to stop, -1 on failure (with a line).
    int cancel();

private:
    void (*mFnc)(const void*);
    long mDelay;
    long mInterval;
    long mTimerID;
    osx::TimerSchedule* mSchedule;
};

#endif
