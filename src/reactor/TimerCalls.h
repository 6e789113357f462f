// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The calls of timers that are under way. Internal.
#ifndef OSX_REACTOR_TIMERCALLS_H
#define OSX_REACTOR_TIMERCALLS_H

#include <atomic>
#include <thread>

#include "ace/Event_Handler.h"
#include "base/Mutex.h"

namespace osx {

class TimerCalls;

/// The call of a timer's handler, from the moment when the timer is taken out of the queue:
///
///     about to begin --> begun --> released --> ended
///          |               +---------------------^
///          +--> called off
///
/// It stands on the stack of the thread that makes it. A callback may be left by an exception, or
/// by the end of its thread: the destructor ends the call then.
class TimerCall {
public:
    enum Phase {
        kAboutToBegin,  ///< May be called off.
        kCalledOff,
        kBegun,    ///< The handler is being used.
        kReleased  ///< What the handler calls is running; the handler itself may go.
    };

    TimerCall() = default;
    ~TimerCall() { end(); }
    TimerCall(const TimerCall&) = delete;
    TimerCall& operator=(const TimerCall&) = delete;

    /// @param aAct what the handler is called with.
    /// @param aIsCounted whether the call has a reference to the handler.
    void set(ACE_Event_Handler* aHandler, const void* aAct, bool aIsCounted) {
        mHandler = aHandler;
        mAct = aAct;
        mIsCounted = aIsCounted;
    }
    ACE_Event_Handler* handler() const { return mHandler; }
    bool isCounted() const { return mIsCounted; }

    /// Calls the handler, unless that has been called off. @return the handler's result; else 0.
    int make(const ACE_Time_Value& aNow);

    /// Takes the call from the list.
    void end();

    /// @return the one that the calling thread is making for a handler, when it is the innermost;
    ///         else null.
    static TimerCall* innermostOf(const ACE_Event_Handler& aHandler);

    /// Marks the calling thread's call: it no longer uses the handler.
    void release();

private:
    friend class TimerCalls;

    bool change(Phase aFrom, Phase aTo) { return mPhase.compare_exchange_strong(aFrom, aTo); }
    bool needsHandler(bool aAlsoReleased) const;

    ACE_Event_Handler* mHandler = nullptr;
    const void* mAct = nullptr;
    bool mIsCounted = false;
    /// Changed by the thread that makes the call, without the lock, and, to kCalledOff, by one that
    /// takes the timer out. Read by those that destroy the handler.
    std::atomic<Phase> mPhase{kAboutToBegin};
    std::thread::id mThread;
    TimerCalls* mCalls = nullptr;  ///< The list that it is in; null for none.
    TimerCall* mNext = nullptr;    ///< In the list.
    /// The call in whose callback this one is made, by an event loop.
    TimerCall* mOuter = nullptr;

    static thread_local TimerCall* mInnermost;
};

/// The calls of one queue, a list guarded by the queue's lock, which its owner holds when it asks
/// for anything here.
class TimerCalls {
public:
    /// @param aMutex the queue's lock.
    explicit TimerCalls(Mutex& aMutex) : mMutex(aMutex) {}
    TimerCalls(const TimerCalls&) = delete;
    TimerCalls& operator=(const TimerCalls&) = delete;

    bool empty() const { return mFirst == nullptr; }

    /// Notes a call that the calling thread is about to make.
    void note(TimerCall& aCall);

    /// Calls off what has not begun.
    void callOff(const ACE_Event_Handler& aHandler);

    /// @param aAlsoReleased whether a call counts that no longer needs the handler itself.
    /// @return whether another thread is calling the handler.
    bool isCalledElsewhere(const ACE_Event_Handler& aHandler, bool aAlsoReleased) const;

    /// Waits until no other thread is calling the handler, for at most 250 ms; if a call may still
    /// need the handler itself, for at most 2 s.
    /// @param aMutex the queue's lock.
    [[gnu::cold]] void await(const ACE_Event_Handler& aHandler, Mutex& aMutex) OSX_REQUIRES(aMutex);

    /// In the child of a fork: forgets the calls of threads that it does not have.
    void forgetOtherThreads();

    /// @name For the calls themselves: take the lock
    /// @{
    void forget(TimerCall& aCall) OSX_EXCLUDES(mMutex);
    /// Has those that wait look again.
    void wakeWaiting() OSX_EXCLUDES(mMutex);
    /// @}

private:
    Mutex& mMutex;
    TimerCall* mFirst = nullptr;
    Condition mChanged;
    /// Threads in `await`. Written with the lock; also read without it, so that a call that nobody
    /// waits for takes no lock more.
    std::atomic<int> mWaiting{0};
};

}  // namespace osx

#endif
