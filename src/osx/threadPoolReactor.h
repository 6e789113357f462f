/// @file
/// The library's own reactor. Internal.
#ifndef OSX_OSX_THREADPOOLREACTOR_H
#define OSX_OSX_THREADPOOLREACTOR_H

#include <atomic>

#include "ace/TP_Reactor.h"

namespace osx {

class TimerQueue;

/// A thread-pool reactor that serves all descriptors it has found ready before it asks the kernel
/// again. ACE's own forgets them after each event, and asks about every descriptor for each one.
///
/// By the time a descriptor is served somebody else may have taken what was there to read. The
/// library's handlers do not mind, as they read without waiting. From the first handler on that
/// may mind, the reactor asks anew for each event, as ACE's own does.
class ThreadPoolReactor : public ACE_TP_Reactor {
public:
    explicit ThreadPoolReactor(TimerQueue& aTimers);

    /// Announces a handler that relies on its descriptor being ready still when it is called. Call
    /// it before the handler is registered. Of no effect on other reactors.
    static void askAnewFrom(ACE_Reactor& aReactor);

    /// @name Timers, without the reactor's lock, which a thread that waits for events holds
    /// @{
    long schedule_timer(ACE_Event_Handler* aHandler, const void* aAct,
                        const ACE_Time_Value& aDelay, const ACE_Time_Value& aInterval) override;
    int reset_timer_interval(long aTimerID, const ACE_Time_Value& aInterval) override;
    int cancel_timer(ACE_Event_Handler* aHandler, int aDontCallHandleClose) override;
    int cancel_timer(long aTimerID, const void** aAct, int aDontCallHandleClose) override;
    /// @}

protected:
    using ACE_TP_Reactor::register_handler_i;
    int register_handler_i(ACE_HANDLE aHandle, ACE_Event_Handler* aHandler,
                           ACE_Reactor_Mask aMask) override;
    void clear_dispatch_mask(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) override;

private:
    TimerQueue& mTimers;
    std::atomic<bool> mAsksAnew{false};
};

}  // namespace osx

#endif
