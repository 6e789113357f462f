#include "osx/timerQueue.h"

#include <cerrno>
#include <new>
#include <utility>

#include "ace/Guard_T.h"
#include "base/allocate.h"
#include "osx/eventLoop.h"
#include "osx/timerSchedule.h"

namespace osx {

using Guard = ACE_Guard<ACE_SYNCH_RECURSIVE_MUTEX>;

TimerQueue::TimerQueue() = default;

TimerQueue::~TimerQueue() = default;

long TimerQueue::start(TimerSchedule& aSchedule, const void* aAct, const ACE_Time_Value& aDelay,
                       const ACE_Time_Value& aInterval, bool& aIsNext) {
    const Guard lGuard(mutex());
    const long lTimerID = schedule(&aSchedule, aAct, gettimeofday() + aDelay, aInterval);
    if (lTimerID != -1 && !note(aSchedule, lTimerID)) {
        cancel(lTimerID, nullptr, kDontCallHandleClose);
        return -1;
    }
    aIsNext = lTimerID != -1 && get_first()->get_timer_id() == lTimerID;
    return lTimerID;
}

int TimerQueue::stop(const TimerSchedule& aSchedule, long aTimerID) {
    const Guard lGuard(mutex());
    return owner(aTimerID) == &aSchedule ? cancel(aTimerID, nullptr, kDontCallHandleClose) : 0;
}

/// ACE looks for an id that is free until it ends the process, should there be none. So no id may
/// be lost for want of memory, and the last one not be used when ACE could not make room for more.
long TimerQueue::schedule_i(ACE_Event_Handler* const& aHandler, const void* aAct,
                            const ACE_Time_Value& aTime, const ACE_Time_Value& aInterval) {
    if (mSpare == nullptr) {
        mSpare.reset(allocate<Node>());
    }
    if (mSpare == nullptr) {
        return -1;
    }
    const int lFormerErrno = std::exchange(errno, 0);
    const long lTimerID = ACE_Timer_Heap_T::schedule_i(aHandler, aAct, aTime, aInterval);
    if (lTimerID != -1 && errno == ENOMEM) {
        aHandler->add_reference();  // which cancelling takes away
        cancel(lTimerID, nullptr, kDontCallHandleClose);
        errno = ENOMEM;
        return -1;
    }
    errno = lFormerErrno;
    return lTimerID;
}

TimerQueue::Node* TimerQueue::alloc_node() {
    return mSpare.release();
}

/// Called for a periodic timer that has expired, before its handler is called. The handler gets a
/// reference for the call, as the queue's own goes when another thread stops the timer meanwhile.
void TimerQueue::reschedule(Node* aExpired) {
    if (TimerSchedule* const lOwner = owner(aExpired->get_timer_id())) {
        lOwner->add_reference();
    }
    ACE_Timer_Heap_T::reschedule(aExpired);
}

/// Called when an id gets free, in whatever way.
void TimerQueue::free_node(Node* aNode) {
    const auto lTimerID = static_cast<std::size_t>(aNode->get_timer_id());
    if (lTimerID < mOwners.size()) {
        mOwners[lTimerID] = nullptr;
    }
    ACE_Timer_Heap_T::free_node(aNode);
}

/// @return false when memory is short.
bool TimerQueue::note(TimerSchedule& aSchedule, long aTimerID) {
    const auto lIndex = static_cast<std::size_t>(aTimerID);
    try {
        if (lIndex >= mOwners.size()) {
            mOwners.resize(lIndex + 1);
        }
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return false;
    }
    mOwners[lIndex] = &aSchedule;
    return true;
}

/// @return whose timer has that id; null if nobody's or another program part's.
TimerSchedule* TimerQueue::owner(long aTimerID) const {
    const auto lIndex = static_cast<std::size_t>(aTimerID);
    return lIndex < mOwners.size() ? mOwners[lIndex] : nullptr;
}

}  // namespace osx
