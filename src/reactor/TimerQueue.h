// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The timer queue of the library's own reactor. Internal.
#ifndef OSX_REACTOR_TIMERQUEUE_H
#define OSX_REACTOR_TIMERQUEUE_H

#include <cstddef>
#include <memory>
#include <vector>

#include "ace/Event_Handler.h"
#include "ace/Timer_Queue.h"
#include "ace/Timer_Queue_Iterator.h"
#include "base/Mutex.h"
#include "reactor/TimerCalls.h"
#include "reactor/TimerHeap.h"

namespace osx {

class LoopTimer;

/// Timers by the monotonic clock, behind ACE's interface.
///
/// Pending timers stand in a `TimerHeap`. Each id leads to its timer, so that one is taken out
/// without a search. One lock guards all; no handler is called with it held.
///
/// Each call of a handler that is under way, or about to be made, is noted under the same lock
/// (`TimerCalls`). So a handler can be destroyed at any time: `retire` takes its timer out, calls
/// off a call that has not begun, and waits for one that has.
class TimerQueue final : public ACE_Timer_Queue {
public:
    /// A queue for a reactor. It is never destroyed, so that a timer may ask long after its reactor
    /// has gone; one that was given back is used again. @return null (`errno` ENOMEM) when memory
    /// is short.
    static TimerQueue* take();
    /// Closes a queue that `take` gave.
    static void giveBack(TimerQueue* aQueue);
    /// For an owner.
    struct GiveBack {
        void operator()(TimerQueue* aQueue) const { giveBack(aQueue); }
    };

    /// Has the loop woken by a timer of the kernel's. It is set anew whenever a timer becomes the
    /// first one, and when one has expired. Null to set none any more.
    void wakeWith(const LoopTimer* aAlarm);

    /// @name The fork of the process
    /// @{
    Mutex& mutex() OSX_RETURN_CAPABILITY(mMutex) { return mMutex; }
    /// In the child: sets the alarm, and forgets the calls of threads that it does not have.
    void beginAnew() OSX_REQUIRES(mMutex);
    /// @}

    TimerQueue(const TimerQueue&) = delete;
    TimerQueue& operator=(const TimerQueue&) = delete;

    /// @name For handlers that know their timer's id
    /// @{

    /// Schedules a timer. @return its id; -1 when memory is short.
    long start(ACE_Event_Handler* aHandler, const void* aAct, const ACE_Time_Value& aDelay,
               const ACE_Time_Value& aInterval);

    /// Takes a timer out, and calls off a call that is about to be made. Ids are used again: a
    /// timer of another handler is left alone. @return the number of timers taken out.
    int stop(const ACE_Event_Handler& aHandler, long aTimerID);

    /// The same for a handler that is about to be destroyed: waits until a call that has begun on
    /// another thread has ended, for at most 250 ms. If the call may still need the handler itself,
    /// it waits up to 2 s.
    void retire(const ACE_Event_Handler& aHandler, long aTimerID);

    /// Said by a handler that is being called: this call will use nothing of it any more.
    static void release(const ACE_Event_Handler& aHandler);
    /// @}

    /// @name ACE's interface
    /// @{
    bool is_empty() const override;
    const ACE_Time_Value& earliest_time() const override;
    long schedule(ACE_Event_Handler* const& aHandler, const void* aAct, const ACE_Time_Value& aTime,
                  const ACE_Time_Value& aInterval = ACE_Time_Value::zero) override;
    int expire(const ACE_Time_Value& aNow) override;
    int expire() override;
    int expire_single(ACE_Command_Base& aBeforeTheCall) override;
    int reset_interval(long aTimerID, const ACE_Time_Value& aInterval) override;
    int cancel(ACE_Event_Handler* const& aHandler, int aDontCallHandleClose = 1) override;
    int cancel(long aTimerID, const void** aAct = nullptr, int aDontCallHandleClose = 1) override;
    int close() override;
    ACE_Time_Value gettimeofday() override;
    void gettimeofday(ACE_Time_Value (*aClock)()) override;
    ACE_Time_Value* calculate_timeout(ACE_Time_Value* aMax) override;
    ACE_Time_Value* calculate_timeout(ACE_Time_Value* aMax, ACE_Time_Value* aTimeout) override;
    ACE_Time_Value current_time() override;
    ITERATOR& iter() override;
    ACE_Timer_Node_T<ACE_Event_Handler*>* remove_first() override;
    ACE_Timer_Node_T<ACE_Event_Handler*>* get_first() override;
    void dump() const override;
    /// @}

private:
    class Iterator;

    TimerQueue();
    ~TimerQueue() override;

    void setAlarm() OSX_REQUIRES(mMutex);
    long add(ACE_Event_Handler* aHandler, const void* aAct, const ACE_Time_Value& aTime,
             const ACE_Time_Value& aInterval) OSX_EXCLUDES(mMutex);
    TimerNode* freeNode() OSX_REQUIRES(mMutex);
    TimerNode* makeNode() OSX_REQUIRES(mMutex);
    void setFree(TimerNode* aNode) OSX_REQUIRES(mMutex);
    void takeOut(TimerNode* aNode) OSX_REQUIRES(mMutex);
    TimerNode* pending(long aTimerID) const OSX_REQUIRES(mMutex);
    int stopLocked(const ACE_Event_Handler& aHandler, long aTimerID) OSX_REQUIRES(mMutex);
    std::size_t takeAll(const ACE_Event_Handler& aHandler) OSX_EXCLUDES(mMutex);

    bool takeExpired(Microseconds aNow, TimerCall& aCall) OSX_REQUIRES(mMutex);
    bool expireNext(Microseconds aNow, ACE_Command_Base* aBeforeTheCall) OSX_EXCLUDES(mMutex);
    void perform(TimerCall& aCall, const ACE_Time_Value& aNow) OSX_EXCLUDES(mMutex);

    mutable Mutex mMutex;
    TimerHeap mHeap OSX_GUARDED_BY(mMutex);
    /// By id. Never freed: an id stays its node's.
    std::vector<TimerNode*> mNodes OSX_GUARDED_BY(mMutex);
    /// The first of the nodes whose ids are nobody's.
    TimerNode* mFree OSX_GUARDED_BY(mMutex);
    TimerCalls mCalls OSX_GUARDED_BY(mMutex);
    const std::unique_ptr<Iterator> mIterator;
    /// What `calculate_timeout` without a place for its result points at.
    ACE_Time_Value mTimeout;
    const LoopTimer* mAlarm OSX_GUARDED_BY(mMutex);
    /// When the alarm comes next, or earlier.
    Microseconds mAlarmTime OSX_GUARDED_BY(mMutex);
    /// While the queue is in no use: the next such one. With the lock of these.
    TimerQueue* mNextUnused;
};

}  // namespace osx

#endif
