/// @file
/// The timer queue of the library's own reactor. Internal.
#ifndef OSX_REACTOR_TIMERQUEUE_H
#define OSX_REACTOR_TIMERQUEUE_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "ace/Event_Handler.h"
#include "ace/Timer_Queue.h"
#include "ace/Timer_Queue_Iterator.h"

namespace osx {

class LoopTimer;

/// Timers by a clock that nobody sets, behind ACE's interface.
///
/// Pending timers stand in a heap of four branches, by the time at which they are due and, where
/// that is the same, in the order in which they were made. Each knows its place in it, and each id
/// the timer that has it, so that one is taken out without a search. One lock guards all; no
/// handler is called with it held.
///
/// Each call of a handler that is under way, or about to be made, is noted under the same lock. So
/// a handler can be destroyed at any time: `retire` takes its timer out, calls off a call that has
/// not begun, and waits for one that has.
class TimerQueue final : public ACE_Timer_Queue {
public:
    /// A queue for a reactor. It is never destroyed, so that a timer may ask long after its reactor
    /// has gone; one that was given back is used again. @return null when memory is short.
    static TimerQueue* take();
    /// Closes a queue that `take` gave.
    static void giveBack(TimerQueue* aQueue);

    /// Has the loop woken by a timer of the kernel's, which is set anew whenever the first timer is
    /// due earlier than it, and when one has expired; null to have it no more.
    void wakeWith(const LoopTimer* aAlarm);

    /// @name The fork of the process
    /// @{
    std::mutex& mutex() { return mMutex; }
    /// In the child, with the lock held: sets the alarm, and forgets the calls of threads that it
    /// does not have.
    void beginAnew();
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

    /// The same for a handler that is about to be destroyed: waits for a call that has begun on
    /// another thread until it has ended, for at most 250 ms. Only one that may still need the
    /// handler itself is waited for longer, up to 2 s.
    void retire(const ACE_Event_Handler& aHandler, long aTimerID);

    /// Said by a handler that is being called: nothing of it will be used any more.
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
    struct Node;
    struct Call;
    class Iterator;
    using Microseconds = std::int64_t;
    using Lock = std::unique_lock<std::mutex>;

    /// A place in the heap: the time is kept beside the node, which need not be looked at.
    struct Pending {
        Microseconds time;
        Node* node;
    };

    TimerQueue();
    ~TimerQueue() override;

    static bool isBefore(const Pending& aOne, const Pending& aOther);
    void put(std::size_t aPlace, const Pending& aPending);
    void riseFrom(std::size_t aPlace, const Pending& aPending);
    void sinkFrom(std::size_t aPlace, const Pending& aPending);
    void insert(Node* aNode);
    void takeOut(std::size_t aPlace);

    void setAlarm();
    Node* freeNode();
    void setFree(Node* aNode);
    Node* pending(long aTimerID) const;
    int stopLocked(const ACE_Event_Handler& aHandler, long aTimerID);
    std::size_t takeAll(const ACE_Event_Handler& aHandler);

    bool takeExpired(Microseconds aNow, Call& aCall);
    bool expireNext(Microseconds aNow, ACE_Command_Base* aBeforeTheCall);
    void perform(Call& aCall, const ACE_Time_Value& aNow);
    void note(Call& aCall);
    void forget(Call& aCall);
    void callOff(const ACE_Event_Handler& aHandler);
    bool isCalledElsewhere(const ACE_Event_Handler& aHandler, bool aAlsoReleased) const;
    [[gnu::cold]] void awaitCall(Lock& aLock, const ACE_Event_Handler& aHandler);
    void tellWaiting();

    mutable std::mutex mMutex;
    std::condition_variable mCallEnded;
    std::vector<Pending> mHeap;
    std::vector<Node*> mNodes;  ///< By id. Never freed: an id stays its node's.
    Node* mFree;
    std::uint32_t mTurn;
    Call* mCalls;
    std::atomic<int> mWaiting;  ///< Threads that wait for a call to end.
    std::unique_ptr<Iterator> mIterator;
    ACE_Time_Value mTimeout;
    const LoopTimer* mAlarm;
    Microseconds mAlarmTime;  ///< When the alarm comes next, or earlier.
    TimerQueue* mNextUnused;
};

}  // namespace osx

#endif
