#include "osx/threadPoolReactor.h"

#include "ace/Reactor.h"
#include "osx/osxEventHandler.h"
#include "reactor/TimerQueue.h"

namespace osx {

ThreadPoolReactor::ThreadPoolReactor(TimerQueue& aTimers)
    : ACE_TP_Reactor(nullptr, &aTimers, true, ACE_Select_Reactor_Token::FIFO), mTimers(aTimers) {}

long ThreadPoolReactor::schedule_timer(ACE_Event_Handler* aHandler, const void* aAct,
                                       const ACE_Time_Value& aDelay,
                                       const ACE_Time_Value& aInterval) {
    if (timer_queue_ != &mTimers) {
        return ACE_TP_Reactor::schedule_timer(aHandler, aAct, aDelay, aInterval);
    }
    bool lIsNext = false;
    const long lTimerID = mTimers.start(aHandler, aAct, aDelay, aInterval, lIsNext);
    if (lIsNext) {
        // Who waits for events holds the lock, and gives it up when it is asked for.
        token_.acquire();
        token_.release();
    }
    return lTimerID;
}

int ThreadPoolReactor::reset_timer_interval(long aTimerID, const ACE_Time_Value& aInterval) {
    return timer_queue_ == &mTimers ? mTimers.reset_interval(aTimerID, aInterval)
                                    : ACE_TP_Reactor::reset_timer_interval(aTimerID, aInterval);
}

int ThreadPoolReactor::cancel_timer(ACE_Event_Handler* aHandler, int aDontCallHandleClose) {
    if (timer_queue_ != &mTimers) {
        return ACE_TP_Reactor::cancel_timer(aHandler, aDontCallHandleClose);
    }
    return aHandler == nullptr ? 0 : mTimers.cancel(aHandler, aDontCallHandleClose);
}

int ThreadPoolReactor::cancel_timer(long aTimerID, const void** aAct, int aDontCallHandleClose) {
    return timer_queue_ == &mTimers
               ? mTimers.cancel(aTimerID, aAct, aDontCallHandleClose)
               : ACE_TP_Reactor::cancel_timer(aTimerID, aAct, aDontCallHandleClose);
}

void ThreadPoolReactor::askAnewFrom(ACE_Reactor& aReactor) {
    if (auto* const lOwn = dynamic_cast<ThreadPoolReactor*>(aReactor.implementation())) {
        lOwn->mAsksAnew = true;
    }
}

/// An application may register handlers of its own, of which nothing is known.
int ThreadPoolReactor::register_handler_i(ACE_HANDLE aHandle, ACE_Event_Handler* aHandler,
                                          ACE_Reactor_Mask aMask) {
    if (dynamic_cast<osxEventHandler*>(aHandler) == nullptr) {
        mAsksAnew = true;
    }
    return ACE_TP_Reactor::register_handler_i(aHandle, aHandler, aMask);
}

/// Called, with the reactor's lock held, for a descriptor that is about to be served, or that is
/// suspended or removed.
void ThreadPoolReactor::clear_dispatch_mask(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) {
    if (mAsksAnew) {
        ACE_TP_Reactor::clear_dispatch_mask(aHandle, aMask);
        return;
    }
    ready_set_.rd_mask_.clr_bit(aHandle);
    ready_set_.wr_mask_.clr_bit(aHandle);
    ready_set_.ex_mask_.clr_bit(aHandle);
}

}  // namespace osx
