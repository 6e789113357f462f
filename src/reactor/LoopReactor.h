/// @file
/// The library's own reactor. Internal.
#ifndef OSX_REACTOR_LOOPREACTOR_H
#define OSX_REACTOR_LOOPREACTOR_H

#include <sys/epoll.h>

#include <atomic>
#include <chrono>
#include <mutex>

#include "reactor/AcePoll.h"
#include "reactor/LoopTimer.h"
#include "reactor/ReadyQueue.h"
#include "reactor/ServedSet.h"
#include "reactor/UncancelledReactor.h"

namespace osx {

class TimerQueue;

/// ACE's thread-pool reactor, which serves the library's own handlers, `Served`, in a way of its
/// own: without ACE's limit on descriptors, and without a token that threads hand on.
///
/// Each thread waits in the kernel's event poll for itself. The poll has the handlers' descriptors,
/// the timers' (`LoopTimer`), ACE's notification pipe, a descriptor that wakes a sleeper, and, once
/// the application has handlers of its own, one that stands for all of theirs (`AcePoll`). Those
/// are served by ACE, with the token. Nobody sleeps with it.
class LoopReactor : public UncancelledReactor {
public:
    explicit LoopReactor(TimerQueue& aTimers);
    ~LoopReactor() override;

    LoopReactor(const LoopReactor&) = delete;
    LoopReactor& operator=(const LoopReactor&) = delete;

    /// @return whether the construction succeeded.
    bool usable();

    /// Waits for one event and serves it. May come back early, for nothing.
    /// @return 1; 0 when nothing was served; -1 on failure, and when the loop has been ended.
    int serveOne(std::chrono::milliseconds aLimit);

    /// @name The fork of the process
    /// Who forks takes the locks first, so that what they guard is whole, and gives them back: the
    /// token before the others, as handlers of the application are closed with it. The child gets
    /// descriptors of its own, without which it would set its parent's alarm, wake its threads,
    /// take its events, and take its connections out; and a token of its own.
    /// @{
    void lockTokenForFork();
    void unlockTokenAfterFork();
    void lockForFork();
    void unlockAfterFork();
    void renewInChild();
    /// @}

    /// @name ACE's interface
    /// @{
    int handle_events(ACE_Time_Value* aLimit = nullptr) override;
    int handle_events(ACE_Time_Value& aLimit) override;
    long schedule_timer(ACE_Event_Handler* aHandler, const void* aAct, const ACE_Time_Value& aDelay,
                        const ACE_Time_Value& aInterval) override;
    int reset_timer_interval(long aTimerID, const ACE_Time_Value& aInterval) override;
    int cancel_timer(ACE_Event_Handler* aHandler, int aDontCallHandleClose) override;
    int cancel_timer(long aTimerID, const void** aAct, int aDontCallHandleClose) override;
    int timer_queue(ACE_Timer_Queue* aQueue) override;
    ACE_Timer_Queue* timer_queue() const override;
    using UncancelledReactor::mask_ops;
    int mask_ops(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask, int aOperation) override;
    using UncancelledReactor::ready_ops;
    int ready_ops(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask, int aOperation) override;
    int suspend_handlers() override;
    int resume_handlers() override;
    int work_pending(const ACE_Time_Value& aLimit) override;
    int deactivated() override;
    void deactivate(int aEnd) override;
    int close() override;
    /// @}

protected:
    using ACE_TP_Reactor::register_handler_i;
    using ACE_TP_Reactor::remove_handler_i;
    int register_handler_i(ACE_HANDLE aHandle, ACE_Event_Handler* aHandler,
                           ACE_Reactor_Mask aMask) override;
    int remove_handler_i(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) override;
    ACE_Event_Handler* find_handler_i(ACE_HANDLE aHandle) override;
    int handler_i(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask,
                  ACE_Event_Handler** aHandler) override;
    int suspend_i(ACE_HANDLE aHandle) override;
    int resume_i(ACE_HANDLE aHandle) override;
    int is_suspended_i(ACE_HANDLE aHandle) override;
    int wait_for_multiple_events(ACE_Select_Reactor_Handle_Set& aReady,
                                 ACE_Time_Value* aLimit) override;

private:
    class Inside;
    class AcesTurn;
    class Token;

    LoopReactor(TimerQueue& aTimers, TimerQueue* aNone);

    /// What a wait came to.
    enum Waited { kServed, kNothing, kFailed };

    void makeToken();
    bool setUp();
    bool fillPoll() const;
    void checkNumbers();
    void setAlarmOfOtherQueue();
    int attempt(int aLimitMs, Waited& aWaited);
    bool serveReady(Waited& aWaited);
    int wait(epoll_event* aEvents, int aLimitMs);
    Waited serveAll(epoll_event* aEvents, int aCount);
    Waited serve(const epoll_event& aEvent);
    bool serveTimer();
    bool serveNotification();
    bool serveAces();
    void wakeOne() const;
    void passOn() const;

    TimerQueue& mTimers;
    std::atomic<ACE_Timer_Queue*> mQueue;  ///< `mTimers`, or one of the application's.
    TimerQueue* const mNone;  ///< What ACE takes for its queue: the loop has timers served.
    ServedSet mSet;
    LoopTimer mTimer;
    std::mutex mAlarm;  ///< Of `setAlarmOfOtherQueue`: what is asked last is set last.
    const int mWake;
    AcePoll mAces;
    std::atomic<time_t> mNextCheck;  ///< Of the numbers in `mAces`; kNever until it has some.
    ACE_Handle_Set mInCall;  ///< With the token: those that ACE has suspended for their callbacks.
    ReadyQueue mReady;
    std::atomic<int> mSleepers;     ///< Threads that wait in the poll, or are about to.
    std::atomic<int> mInside;       ///< Threads in `attempt`.
    unsigned int mForks;            ///< Forks that made this process's reactor what it is.
    std::atomic<bool> mEnded;       ///< ACE's own mark is a plain word, and is read with the token.
    std::atomic<bool> mHasToEnrol;  ///< In the child of a fork, until it runs the loop.
    bool mClosed;
};

}  // namespace osx

#endif
