/// @file
/// The timer queue of the library's own reactor. Internal.
#ifndef OSX_OSX_TIMERQUEUE_H
#define OSX_OSX_TIMERQUEUE_H

#include <memory>
#include <vector>

#include "ace/Event_Handler_Handle_Timeout_Upcall.h"
#include "ace/Monotonic_Time_Policy.h"
#include "ace/Recursive_Thread_Mutex.h"
#include "ace/Timer_Heap_T.h"

namespace osx {

class TimerSchedule;

/// Timers by a clock that nobody sets.
///
/// It notes which of the library's timers each id belongs to, so that one can be cancelled by its
/// id, however often ids are used again: cancelling by the handler looks at every pending timer.
/// Starting and stopping need the queue's own lock only, and so not wait for the reactor's, which a
/// thread that waits for events holds.
class TimerQueue
    : public ACE_Timer_Heap_T<ACE_Event_Handler*, ACE_Event_Handler_Handle_Timeout_Upcall,
                              ACE_SYNCH_RECURSIVE_MUTEX, ACE_Monotonic_Time_Policy> {
public:
    TimerQueue();
    ~TimerQueue() override;

    /// Schedules a timer.
    /// @param aIsNext set to whether it is the first to expire, so that whoever waits for events
    ///        has to wait for less long.
    /// @return its id; -1 when memory is short.
    long start(TimerSchedule& aSchedule, const void* aAct, const ACE_Time_Value& aDelay,
               const ACE_Time_Value& aInterval, bool& aIsNext);

    /// Takes a timer out, unless it has expired for the last time.
    /// @param aTimerID what `start` gave.
    /// @return the number of timers taken out.
    int stop(const TimerSchedule& aSchedule, long aTimerID);

protected:
    using Node = ACE_Timer_Node_T<ACE_Event_Handler*>;

    long schedule_i(ACE_Event_Handler* const& aHandler, const void* aAct,
                    const ACE_Time_Value& aTime, const ACE_Time_Value& aInterval) override;
    Node* alloc_node() override;
    void reschedule(Node* aExpired) override;
    void free_node(Node* aNode) override;

private:
    bool note(TimerSchedule& aSchedule, long aTimerID);
    TimerSchedule* owner(long aTimerID) const;

    std::vector<TimerSchedule*> mOwners;
    std::unique_ptr<Node> mSpare;
};

}  // namespace osx

#endif
