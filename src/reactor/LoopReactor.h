// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The library's own reactor. Internal.
#ifndef OSX_REACTOR_LOOPREACTOR_H
#define OSX_REACTOR_LOOPREACTOR_H

#include <sys/epoll.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <limits>
#include <memory>

#include "base/Descriptor.h"
#include "base/Mutex.h"
#include "reactor/AcePoll.h"
#include "reactor/LoopTimer.h"
#include "reactor/ReadyQueue.h"
#include "reactor/ServedSet.h"
#include "reactor/TimerQueue.h"
#include "reactor/UncancelledReactor.h"

namespace osx {

/// ACE's thread-pool reactor, which serves the library's own handlers, `Served`, in a way of its
/// own: without ACE's limit on descriptors, and without a token that threads hand on.
///
/// Each thread waits in the kernel's event poll for itself. The poll has the handlers' descriptors,
/// the timers' (`LoopTimer`), ACE's notification pipe, a descriptor that wakes a sleeper, and, once
/// the application has handlers of its own, one that stands for all of theirs (`AcePoll`). Those
/// are served by ACE, with the token. Nobody sleeps with it.
///
/// The loop runs until it is ended (`deactivate`), and again after ACE's `reset_event_loop`. Once
/// the reactor is closed it has no handlers and no timers, and takes none.
///
/// The class has a source for each of its subjects. `LoopReactor.cpp` makes and closes it and has
/// its timers, `LoopServing.cpp` waits and serves, `LoopHandlers.cpp` is ACE's interface of
/// handlers, and `LoopFork.cpp` is for the fork of the process.
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
    /// The thread that forks takes the locks first, so that what they guard is whole, and gives
    /// them back: the token before the others, as handlers of the application are closed with it.
    /// The child gets descriptors of its own, without which it would set its parent's alarm, wake
    /// its threads, take its events, and take its connections out; and a token of its own.
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
    int notify(ACE_Event_Handler* aHandler = nullptr,
               ACE_Reactor_Mask aMask = ACE_Event_Handler::EXCEPT_MASK,
               ACE_Time_Value* aLimit = nullptr) override;
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
    class Wait;
    class AcesTurn;
    class Token;

    LoopReactor(TimerQueue& aTimers, TimerQueue* aNone);

    /// What a wait came to.
    enum Waited {
        kServed,
        kNothing,      ///< The time is up, or the thread was woken for nothing that it could serve.
        kInterrupted,  ///< By a signal.
        kFailed        ///< `errno` says why, as ACE's `handle_events` promises.
    };

    static constexpr time_t kNever = std::numeric_limits<time_t>::max();
    static constexpr std::uint32_t kTimerEvents = EPOLLIN | EPOLLET;

    void makeToken();
    bool setUp();
    bool fillPoll() const;
    static Descriptor makeWakeUp();

    static int resultOf(Waited aWaited);
    Waited attempt(int aLimitMs);
    void prepareToWait();
    int wait(epoll_event* aEvents, int aLimitMs);
    bool serveReady(Waited& aWaited);
    Waited serveAll(epoll_event* aEvents, int aCount);
    bool leave(epoll_event* aEvents, int aCount);
    void giveBack(const epoll_event& aEvent);
    Waited serveLeft();
    Waited serve(const epoll_event& aEvent);
    bool serveTimer();
    bool serveNotification();
    bool serveAces();
    void passOn();

    void setAlarmOfOtherQueue();
    void askOtherQueue() OSX_REQUIRES(mAlarm);
    void closeQueue(ACE_Timer_Queue& aQueue);
    template <class Call>
    int withTokenUnlessOwn(const ACE_Timer_Queue& aQueue, Call aCall);

    void checkNumbers();
    int registerServed(ACE_HANDLE aHandle, Served& aServed);
    int registerAces(ACE_HANDLE aHandle, ACE_Event_Handler* aHandler, ACE_Reactor_Mask aMask);
    void resumeServedByOthers();

    /// The library's timers.
    TimerQueue& mTimers;
    /// Which queue has the timers: `mTimers`, one of the application's, or none once the reactor is
    /// closed. Written by the thread that installs a queue, read by any thread.
    std::atomic<ACE_Timer_Queue*> mQueue;
    /// Stays empty. ACE takes it for its queue, and so has no timer to call: the loop calls them.
    const std::unique_ptr<TimerQueue, TimerQueue::GiveBack> mNone;

    ServedSet mSet;
    LoopTimer mTimer;
    /// Held by the thread that sets the alarm for a queue of the application's. Nobody waits for
    /// it: the thread may have the queue's lock, for which the holder waits.
    Mutex mAlarm;
    /// Number of requests to set the alarm, counted by any thread. If it has grown, the holder of
    /// `mAlarm` asks again.
    std::atomic<unsigned int> mAlarmsAsked;
    /// An event counter, in the poll edge-triggered: written to, it wakes one sleeper.
    Descriptor mWake;
    AcePoll mAces;
    /// The second from which on a loop thread looks whether the numbers in `mAces` are still of the
    /// same files; kNever until there are any. Written and read by loop threads, and by a thread
    /// that registers a handler.
    std::atomic<time_t> mNextCheck;
    /// The handlers that ACE has suspended for their callbacks. With ACE's token.
    ACE_Handle_Set mInCall;
    ReadyQueue mReady;
    /// Loop threads that wait in the poll, or are about to: a thread that leaves work looks whether
    /// there is one to wake.
    std::atomic<int> mSleepers;
    /// Whether a thread was woken that has not come yet. Written and read by any thread: besides
    /// those of the loop, by one that ends the loop or marks a handle ready. Each that leaves work
    /// first, and then finds this set, is seen by the thread that comes, which clears it first and
    /// then looks for work.
    std::atomic<bool> mWaking;
    /// Whether the loop has been ended. Written by `deactivate`, read by loop threads: ACE's own
    /// mark is a plain word, which is read with the token.
    std::atomic<bool> mEnded;
    /// In the child of a fork: its poll has no handlers until a thread runs the loop. Written by
    /// the fork, and by the loop thread that enrols them.
    std::atomic<bool> mHasToEnrol;
    bool mClosed;
};

}  // namespace osx

#endif
