#include "reactor/LoopReactor.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <ctime>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "ace/Functor.h"
#include "ace/Pipe.h"
#include "ace/Reactor.h"
#include "base/NoCancellation.h"
#include "reactor/Served.h"
#include "reactor/TimerQueue.h"
#include "reactor/replaceDescriptor.h"

namespace osx {

namespace {

using Clock = std::chrono::steady_clock;

constexpr ACE_Reactor_Mask kReading = ACE_Event_Handler::READ_MASK | ACE_Event_Handler::ACCEPT_MASK;

/// Who has the token may run the loop, too, in a `handle_close`: it has to be told in the end.
constexpr std::chrono::milliseconds kTokenLimit(50);

constexpr time_t kNever = std::numeric_limits<time_t>::max();

time_t secondNow() {
    timespec lNow{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &lNow);
    return lNow.tv_sec;
}

/// Rounded up, so that a limit is waited for and not only nearly.
int toMilliseconds(const ACE_Time_Value& aTime) {
    if (aTime.sec() >= INT_MAX / 1000 - 1) {
        return INT_MAX;
    }
    return aTime <= ACE_Time_Value::zero
               ? 0
               : static_cast<int>(aTime.sec() * 1000 + (aTime.usec() + 999) / 1000);
}

/// For a timer whose reactor holds no token to give up.
class NothingBefore : public ACE_Command_Base {
public:
    int execute(void*) override { return 0; }
};

/// For a timer of a queue of the application's: others may be due while it is called.
template <class Function>
class AlarmBefore : public ACE_Command_Base {
public:
    explicit AlarmBefore(Function aSetAlarm) : mSetAlarm(aSetAlarm) {}
    int execute(void*) override {
        mSetAlarm();
        return 0;
    }

private:
    const Function mSetAlarm;
};

/// An explicit instantiation may name what is private.
template <class Member, Member aMember>
struct QueueAccess {
    friend ACE_Thread_Mutex& lockOf(ACE_Notification_Queue& aQueue) { return aQueue.*aMember; }
};
ACE_Thread_Mutex& lockOf(ACE_Notification_Queue& aQueue);
template struct QueueAccess<ACE_Thread_Mutex ACE_Notification_Queue::*,
                            &ACE_Notification_Queue::notify_queue_lock_>;

class NotifyAccess : public ACE_Select_Reactor_Notify {
public:
    static ACE_Pipe& pipe(ACE_Reactor_Notify& aNotify) {
        return ofSelect(aNotify).*(&NotifyAccess::notification_pipe_);
    }
    static ACE_Thread_Mutex& lock(ACE_Reactor_Notify& aNotify) {
        return lockOf(ofSelect(aNotify).*(&NotifyAccess::notification_queue_));
    }

private:
    static ACE_Select_Reactor_Notify& ofSelect(ACE_Reactor_Notify& aNotify) {
        return static_cast<ACE_Select_Reactor_Notify&>(aNotify);
    }
};

/// Puts a pipe of the child's own in the place of one that it shares with its parent.
void replacePipe(const ACE_Pipe& aPipe) {
    std::array<int, 2> lEnds{-1, -1};
    [[maybe_unused]] const int lResult = ::pipe2(lEnds.data(), O_CLOEXEC | O_NONBLOCK);
    replaceDescriptor(aPipe.read_handle(), lEnds[0]);
    replaceDescriptor(aPipe.write_handle(), lEnds[1]);
    // ACE's list of notifications was copied, and is looked at when something is in the pipe.
    const ACE_Notification_Buffer lNone;
    [[maybe_unused]] const ssize_t lWritten = ::write(aPipe.write_handle(), &lNone, sizeof lNone);
}

/// Counts a thread for as long as it lives.
class Counted {
public:
    explicit Counted(std::atomic<int>& aCount) : mCount(aCount) { ++mCount; }
    ~Counted() { --mCount; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    std::atomic<int>& mCount;
};

}  // namespace

/// A thread in `attempt`. In a child that it has forked there it does not count: nobody knows how
/// many others were in.
class LoopReactor::Inside {
public:
    explicit Inside(LoopReactor& aLoop) : mLoop(aLoop), mForks(aLoop.mForks) { ++mLoop.mInside; }
    ~Inside() { mLoop.mInside -= mForks == mLoop.mForks ? 1 : 0; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

private:
    LoopReactor& mLoop;
    const unsigned int mForks;
};

/// Stands in the place of ACE's own. Nobody who has it sleeps, and need be woken for who waits.
class LoopReactor::Token : public ACE_Select_Reactor_Token {
public:
    using ACE_Select_Reactor_Token::ACE_Select_Reactor_Token;
    void sleep_hook() override;
};

/// Whoever had the former one is not looked at.
void LoopReactor::makeToken() {
    static_assert(sizeof(Token) == sizeof token_);
    new (&token_) Token(*this, ACE_Select_Reactor_Token::FIFO);
}

LoopReactor::LoopReactor(TimerQueue& aTimers) : LoopReactor(aTimers, TimerQueue::take()) {}

LoopReactor::LoopReactor(TimerQueue& aTimers, TimerQueue* aNone)
    : UncancelledReactor(nullptr, aNone, true, ACE_Select_Reactor_Token::FIFO),
      mTimers(aTimers),
      mQueue(&aTimers),
      mNone(aNone),
      mWake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      mAces(wait_set_, mSet, mWake),
      mNextCheck(kNever),
      mSleepers(0),
      mInside(0),
      mForks(0),
      mEnded(false),
      mHasToEnrol(false),
      mClosed(true) {
    std::destroy_at(&token_);
    makeToken();
    if (initialized()) {
        mClosed = !setUp();
        if (mClosed) {
            UncancelledReactor::close();
        }
    }
}

LoopReactor::~LoopReactor() {
    LoopReactor::close();
    mTimers.wakeWith(nullptr);
    if (mNone != nullptr) {
        TimerQueue::giveBack(mNone);
    }
    if (mWake != -1) {
        ::close(mWake);
    }
}

bool LoopReactor::usable() {
    return initialized();
}

bool LoopReactor::setUp() {
    const bool lOpened = fillPoll();
    if (lOpened) {
        // It is the poll that looks after the pipe.
        wait_set_.rd_mask_.clr_bit(notify_handler_->notify_handle());
        mTimers.wakeWith(&mTimer);
    }
    return lOpened;
}

/// Puts the loop's own descriptors into the poll.
bool LoopReactor::fillPoll() const {
    return mSet.usable() && mTimer.descriptor() != -1 && mWake != -1 &&
           notify_handler_ != nullptr &&
           mSet.addTagged(mTimer.descriptor(), ServedSet::kTimer, EPOLLIN | EPOLLET) == 0 &&
           mSet.addTagged(mWake, ServedSet::kWake, EPOLLIN | EPOLLET) == 0 &&
           mSet.addTagged(notify_handler_->notify_handle(), ServedSet::kNotify, EPOLLIN) == 0;
}

int LoopReactor::close() {
    if (!mClosed) {
        mClosed = true;
        mSet.close();
    }
    const int lResult = UncancelledReactor::close();
    mAces.close();
    if (ACE_Timer_Queue* const lQueue = mQueue.exchange(nullptr)) {
        lQueue->close();
    }
    return lResult;
}

// --- the fork of the process ---

void LoopReactor::lockTokenForFork() {
    const NoCancellation lGuard;
    token_.acquire();
}

void LoopReactor::unlockTokenAfterFork() {
    token_.release();
}

void LoopReactor::lockForFork() {
    mSet.mutex().lock();
    mReady.mutex().lock();
    mTimers.mutex().lock();
    if (notify_handler_ != nullptr) {
        NotifyAccess::lock(*notify_handler_).acquire();
    }
}

void LoopReactor::unlockAfterFork() {
    if (notify_handler_ != nullptr) {
        NotifyAccess::lock(*notify_handler_).release();
    }
    mTimers.mutex().unlock();
    mReady.mutex().unlock();
    mSet.mutex().unlock();
}

void LoopReactor::renewInChild() {
    if (notify_handler_ != nullptr) {
        replacePipe(NotifyAccess::pipe(*notify_handler_));
    }
    mSet.renewInChild();
    mTimer.renew();
    replaceDescriptor(mWake, ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    fillPoll();
    mAces.renewInChild();
    mReady.forget();
    mTimers.beginAnew();
    if (mQueue != &mTimers) {
        mTimer.set(0);  // its own lock may be held by a thread that is not here
    }
    new (&mAlarm) std::mutex;  // the same
    mSleepers = 0;
    mInside = 0;
    ++mForks;
    mHasToEnrol = true;
    unlockAfterFork();
    // The token knows its owner by the thread id, and has waiters that are not here.
    makeToken();
    // Those that other threads were serving.
    ACE_Handle_Set_Iterator lServed(mInCall);
    for (ACE_HANDLE lHandle = lServed(); lHandle != ACE_INVALID_HANDLE; lHandle = lServed()) {
        ACE_TP_Reactor::resume_i(lHandle);
        mAces.watch(lHandle);
    }
    mInCall.reset();
}

// --- waiting and serving ---

int LoopReactor::handle_events(ACE_Time_Value& aLimit) {
    return handle_events(&aLimit);
}

int LoopReactor::handle_events(ACE_Time_Value* aLimit) {
    Waited lWaited = kNothing;
    int lResult = 0;
    if (aLimit == nullptr) {
        while (lWaited == kNothing) {
            lResult = attempt(-1, lWaited);
        }
        return lResult;
    }
    const auto lStart = Clock::now();
    const ACE_Time_Value lLimit = *aLimit;
    do {
        lResult = attempt(toMilliseconds(*aLimit), lWaited);
        const ACE_Time_Value lElapsed(Clock::now() - lStart);
        *aLimit = lElapsed < lLimit ? lLimit - lElapsed : ACE_Time_Value::zero;
    } while (lWaited == kNothing && (*aLimit > ACE_Time_Value::zero || !mReady.empty()));
    return lResult;
}

int LoopReactor::serveOne(std::chrono::milliseconds aLimit) {
    Waited lWaited = kNothing;
    return attempt(static_cast<int>(aLimit.count()), lWaited);
}

/// @param aLimitMs of a wait; -1 for none.
/// @param[out] aWaited kNothing if the thread was woken for nothing that it could serve.
int LoopReactor::attempt(int aLimitMs, Waited& aWaited) {
    const Inside lInside(*this);
    aWaited = kFailed;
    if (mEnded) {
        passOn();
        errno = ESHUTDOWN;
        return -1;
    }
    if (serveReady(aWaited)) {
        return aWaited == kServed ? 1 : 0;
    }
    if (mHasToEnrol.load(std::memory_order_relaxed) && mHasToEnrol.exchange(false)) {
        mSet.enrolAll();
    }
    if (mQueue != &mTimers) {
        setAlarmOfOtherQueue();  // it may have been given timers behind the reactor's back
    }
    checkNumbers();
    std::array<epoll_event, ReadyQueue::kSize> lEvents;
    const int lCount = wait(lEvents.data(), aLimitMs);
    if (lCount == -1) {
        return errno == EINTR ? 0 : -1;
    }
    aWaited = lCount == 0 ? kNothing : serveAll(lEvents.data(), lCount);
    return aWaited == kServed ? 1 : 0;
}

/// @return whether there was an event that had been taken before.
bool LoopReactor::serveReady(Waited& aWaited) {
    epoll_event lEvent{};
    if (!mReady.take(lEvent)) {
        return false;
    }
    passOn();
    aWaited = serve(lEvent);
    return true;
}

/// Whoever is about to sleep is counted first and looks then, and whoever leaves something looks
/// for sleepers afterwards: one of the two sees the other.
int LoopReactor::wait(epoll_event* aEvents, int aLimitMs) {
    const bool lIsAlone = mInside.load(std::memory_order_relaxed) == 1 && !mSet.wantsFreshLook();
    const Counted lSleeper(mSleepers);
    const bool lMaySleep = mReady.empty() && !mEnded;
    return ::epoll_wait(mSet.descriptor(), aEvents, lIsAlone ? ReadyQueue::kSize : 1,
                        lMaySleep ? aLimitMs : 0);
}

/// Timers first: the others are kept, and may be served by another thread meanwhile.
LoopReactor::Waited LoopReactor::serveAll(epoll_event* aEvents, int aCount) {
    if (aCount == 1) {
        return serve(aEvents[0]);
    }
    bool lTimer = false;
    int lKept = 0;
    for (int lEvent = 0; lEvent < aCount; ++lEvent) {
        if (aEvents[lEvent].data.u64 == ServedSet::kTimer) {
            lTimer = true;
        } else {
            aEvents[lKept++] = aEvents[lEvent];
        }
    }
    const int lLeft = mReady.add(aEvents, lKept);
    for (int lEvent = lKept - lLeft; lEvent < lKept; ++lEvent) {
        serve(aEvents[lEvent]);
    }
    if (lTimer) {
        passOn();
        return serveTimer() ? kServed : kNothing;
    }
    Waited lWaited = kNothing;
    serveReady(lWaited);
    return lWaited;
}

LoopReactor::Waited LoopReactor::serve(const epoll_event& aEvent) {
    switch (aEvent.data.u64) {
        case ServedSet::kTimer:
            return serveTimer() ? kServed : kNothing;
        case ServedSet::kWake:
            passOn();  // this thread may not come by again
            return kNothing;
        case ServedSet::kNotify:
            return serveNotification() ? kServed : kNothing;
        case ServedSet::kAces:
            return serveAces() ? kServed : kNothing;
        default:
            return mSet.serve(aEvent) ? kServed : kNothing;
    }
}

bool LoopReactor::serveTimer() {
    ACE_Timer_Queue* const lQueue = mQueue;
    if (lQueue == &mTimers) {
        NothingBefore lNothing;
        return mTimers.expire_single(lNothing) != 0;
    }
    AlarmBefore lAlarm([this] { setAlarmOfOtherQueue(); });
    const bool lServed = lQueue != nullptr && lQueue->expire_single(lAlarm) > 0;
    setAlarmOfOtherQueue();
    return lServed;
}

/// As ACE's loop does it. Each read of the pipe gets a whole notification.
bool LoopReactor::serveNotification() {
    ACE_Notification_Buffer lNotification;
    while (notify_handler_->read_notify_pipe(notify_handler_->notify_handle(), lNotification) > 0) {
        if (notify_handler_->is_dispatchable(lNotification) > 0) {
            notify_handler_->dispatch_notify(lNotification);
            return true;
        }
    }
    return false;
}

/// A thread that was told of the application's handlers. Whatever comes of that, a cancellation or
/// an exception of a handler's too, others are told of the next event. Turns nest where a callback
/// runs the loop.
class LoopReactor::AcesTurn {
public:
    explicit AcesTurn(LoopReactor& aLoop) : mLoop(aLoop), mOuter(std::exchange(mInnermost, this)) {
        waitUncancelled();
    }
    ~AcesTurn() {
        mInnermost = mOuter;
        if (!mServes) {
            const NoCancellation lGuard;
            if (mHasLooked) {
                mLoop.token_.acquire();
                mLoop.mAces.calm();
                mLoop.token_.release();
            }
            mLoop.mAces.arm();
        }
        letBeCancelled();
    }
    AcesTurn(const AcesTurn&) = delete;
    AcesTurn& operator=(const AcesTurn&) = delete;

    /// @return the caller's turn, if its handler is about to be called; null otherwise.
    static AcesTurn* aboutToServe() {
        return mInnermost != nullptr && mInnermost->mHasLooked && !mInnermost->mServes ? mInnermost
                                                                                       : nullptr;
    }
    static void haveLooked() {
        if (mInnermost != nullptr) {
            mInnermost->mHasLooked = true;
        }
    }
    /// With the token, which ACE lets go then.
    void begin(ACE_HANDLE aHandle) {
        mServes = true;
        mLoop.mInCall.set_bit(aHandle);
        mLoop.mAces.arm();
        letBeCancelled();
    }
    bool serves() const { return mServes; }

    /// Has the caller, if it has a turn, not be cancelled until its handler is called, or the turn
    /// ends: it is about to wait for the token, before or after that call.
    static void waitUncancelled() {
        int lFormer = PTHREAD_CANCEL_DISABLE;
        if (mInnermost != nullptr) {
            ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &lFormer);
        }
        if (lFormer == PTHREAD_CANCEL_ENABLE) {
            mInnermost->mHoldsCancellation = true;
        }
    }

private:
    void letBeCancelled() {
        if (std::exchange(mHoldsCancellation, false)) {
            ::pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        }
    }

    LoopReactor& mLoop;
    AcesTurn* const mOuter;
    bool mHoldsCancellation = false;
    bool mHasLooked = false;  ///< Whether ACE has asked `select`.
    bool mServes = false;

    static thread_local AcesTurn* mInnermost;
};

thread_local LoopReactor::AcesTurn* LoopReactor::AcesTurn::mInnermost = nullptr;

void LoopReactor::Token::sleep_hook() {
    AcesTurn::waitUncancelled();
}

/// One handler of the application's. ACE suspends it, and then others may be told of.
/// @return whether there was one; ACE's own result is that of what it does after the callback.
bool LoopReactor::serveAces() {
    AcesTurn lTurn(*this);
    ACE_Time_Value lLimit(kTokenLimit);
    ACE_TP_Reactor::handle_events(&lLimit);
    return lTurn.serves();
}

/// Called by ACE, with the token.
int LoopReactor::wait_for_multiple_events(ACE_Select_Reactor_Handle_Set& aReady, ACE_Time_Value*) {
    const NoCancellation lGuard;
    ACE_Time_Value lNoWait(ACE_Time_Value::zero);
    const int lReady = ACE_TP_Reactor::wait_for_multiple_events(aReady, &lNoWait);
    AcesTurn::haveLooked();
    return lReady;
}

void LoopReactor::wakeOne() const {
    const NoCancellation lGuard;
    const std::uint64_t lOne = 1;
    [[maybe_unused]] const ssize_t lWritten = ::write(mWake, &lOne, sizeof lOne);
}

/// Wakes a thread for what this one leaves: events that wait, or the end. That one does the same.
void LoopReactor::passOn() const {
    if ((mEnded || !mReady.empty()) && mSleepers != 0) {
        wakeOne();
    }
}

// --- timers: without the token, with which ACE calls `handle_close` ---

long LoopReactor::schedule_timer(ACE_Event_Handler* aHandler, const void* aAct,
                                 const ACE_Time_Value& aDelay, const ACE_Time_Value& aInterval) {
    ACE_Timer_Queue* const lQueue = mQueue;
    if (lQueue == &mTimers) {
        return mTimers.start(aHandler, aAct, aDelay, aInterval);
    }
    if (lQueue == nullptr) {
        errno = ESHUTDOWN;
        return -1;
    }
    const long lId = lQueue->schedule(aHandler, aAct, lQueue->gettimeofday() + aDelay, aInterval);
    setAlarmOfOtherQueue();
    return lId;
}

int LoopReactor::reset_timer_interval(long aTimerID, const ACE_Time_Value& aInterval) {
    ACE_Timer_Queue* const lQueue = mQueue;
    if (lQueue == nullptr) {
        errno = ESHUTDOWN;
        return -1;
    }
    return lQueue->reset_interval(aTimerID, aInterval);
}

int LoopReactor::cancel_timer(ACE_Event_Handler* aHandler, int aDontCallHandleClose) {
    ACE_Timer_Queue* const lQueue = mQueue;
    return lQueue == nullptr || aHandler == nullptr
               ? 0
               : lQueue->cancel(aHandler, aDontCallHandleClose);
}

int LoopReactor::cancel_timer(long aTimerID, const void** aAct, int aDontCallHandleClose) {
    ACE_Timer_Queue* const lQueue = mQueue;
    return lQueue == nullptr ? 0 : lQueue->cancel(aTimerID, aAct, aDontCallHandleClose);
}

ACE_Timer_Queue* LoopReactor::timer_queue() const {
    return mQueue;
}

/// The former one is closed, as ACE does it.
int LoopReactor::timer_queue(ACE_Timer_Queue* aQueue) {
    if (ACE_Timer_Queue* const lFormer = mQueue.exchange(aQueue)) {
        lFormer->close();
    }
    const bool lIsOurs = aQueue == &mTimers;
    mTimers.wakeWith(lIsOurs ? &mTimer : nullptr);
    if (!lIsOurs) {
        setAlarmOfOtherQueue();
    }
    return 0;
}

/// A queue of the application's own keeps time by whatever clock: only how long there is left is
/// asked.
void LoopReactor::setAlarmOfOtherQueue() {
    const NoCancellation lGuard;
    const std::lock_guard<std::mutex> lLock(mAlarm);
    ACE_Timer_Queue* const lQueue = mQueue;
    ACE_Time_Value lLeft;
    if (lQueue != nullptr && lQueue->calculate_timeout(nullptr, &lLeft) != nullptr) {
        mTimer.setIn(lLeft);
    }
}

// --- handlers, with the token ---

/// Once a second, without waiting for the token.
void LoopReactor::checkNumbers() {
    time_t lNext = mNextCheck.load(std::memory_order_relaxed);
    if (lNext == kNever) {
        return;
    }
    const time_t lNow = secondNow();
    if (lNow >= lNext && mNextCheck.compare_exchange_strong(lNext, lNow + 1) &&
        token_.tryacquire() == 0) {
        mAces.check();
        token_.release();
    }
}

int LoopReactor::register_handler_i(ACE_HANDLE aHandle, ACE_Event_Handler* aHandler,
                                    ACE_Reactor_Mask aMask) {
    auto* const lServed = dynamic_cast<Served*>(aHandler);
    if (lServed != nullptr && (aMask & kReading) != 0) {
        const ACE_HANDLE lHandle = aHandle == ACE_INVALID_HANDLE ? lServed->get_handle() : aHandle;
        // The kernel has just given the descriptor anew: what is there was closed without a word.
        if (lHandle >= 0 && static_cast<std::size_t>(lHandle) < size() &&
            handler_rep_.find(lHandle) != nullptr) {
            remove_handler_i(lHandle, ACE_Event_Handler::ALL_EVENTS_MASK);
        }
        return mSet.add(lHandle, *lServed);
    }
    if (mSet.has(aHandle)) {
        return -1;
    }
    if (!mAces.open()) {
        return -1;
    }
    time_t lNever = kNever;
    mNextCheck.compare_exchange_strong(lNever, 0);
    const ACE_HANDLE lHandle =
        aHandle == ACE_INVALID_HANDLE && aHandler != nullptr ? aHandler->get_handle() : aHandle;
    // Closed without a word, and given anew: the former handler would close it if it were told.
    if (mAces.hasLost(lHandle)) {
        remove_handler_i(lHandle,
                         ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL);
    }
    const int lResult = ACE_TP_Reactor::register_handler_i(aHandle, aHandler, aMask);
    mAces.watch(lHandle);
    return lResult;
}

int LoopReactor::remove_handler_i(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) {
    if (mSet.has(aHandle)) {
        const bool lClose = (aMask & ACE_Event_Handler::DONT_CALL) == 0;
        return (aMask & kReading) == 0 || mSet.remove(aHandle, lClose) ? 0 : -1;
    }
    mAces.forget(aHandle);
    const int lResult = ACE_TP_Reactor::remove_handler_i(aHandle, aMask);
    mAces.watch(aHandle);
    if (lResult == 0 && handler_rep_.find(aHandle) == nullptr) {
        mInCall.clr_bit(aHandle);
    }
    return lResult;
}

ACE_Event_Handler* LoopReactor::find_handler_i(ACE_HANDLE aHandle) {
    Served* const lServed = mSet.find(aHandle);
    return lServed != nullptr ? lServed : ACE_TP_Reactor::find_handler_i(aHandle);
}

int LoopReactor::handler_i(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask,
                           ACE_Event_Handler** aHandler) {
    Served* const lServed = mSet.find(aHandle);
    if (lServed == nullptr) {
        return ACE_TP_Reactor::handler_i(aHandle, aMask, aHandler);
    }
    constexpr ACE_Reactor_Mask kOther =
        ACE_Event_Handler::WRITE_MASK | ACE_Event_Handler::EXCEPT_MASK;
    const bool lMatches =
        (aMask & kOther) == 0 && ((aMask & kReading) == 0 || !mSet.isSuspended(aHandle));
    if (lMatches && aHandler != nullptr) {
        *aHandler = lServed;
    } else {
        lServed->remove_reference();
    }
    return lMatches ? 0 : -1;
}

int LoopReactor::suspend_i(ACE_HANDLE aHandle) {
    if (aHandle < 0) {  // as the pipe tells it, which serves on
        return -1;
    }
    if (mSet.suspend(aHandle, true)) {
        return 0;
    }
    const int lResult = ACE_TP_Reactor::suspend_i(aHandle);
    mAces.watch(aHandle);
    if (AcesTurn* const lTurn = AcesTurn::aboutToServe()) {
        lTurn->begin(aHandle);
    }
    return lResult;
}

int LoopReactor::resume_i(ACE_HANDLE aHandle) {
    if (aHandle < 0) {
        return -1;
    }
    if (mSet.suspend(aHandle, false)) {
        return 0;
    }
    const int lResult = ACE_TP_Reactor::resume_i(aHandle);
    if (lResult == 0) {
        mInCall.clr_bit(aHandle);
        mAces.watch(aHandle);
    }
    return lResult;
}

int LoopReactor::is_suspended_i(ACE_HANDLE aHandle) {
    return mSet.has(aHandle) ? static_cast<int>(mSet.isSuspended(aHandle))
                             : ACE_TP_Reactor::is_suspended_i(aHandle);
}

/// What is not to be read is suspended.
int LoopReactor::mask_ops(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask, int aOperation) {
    if (!mSet.has(aHandle)) {
        const NoCancellation lGuard;
        const int lResult = UncancelledReactor::mask_ops(aHandle, aMask, aOperation);
        token_.acquire();
        mAces.watch(aHandle);
        token_.release();
        return lResult;
    }
    const int lFormer =
        mSet.isSuspended(aHandle) ? 0 : static_cast<int>(ACE_Event_Handler::READ_MASK);
    const bool lReads = (aMask & kReading) != 0;
    if (lReads && (aOperation == ACE_Reactor::ADD_MASK || aOperation == ACE_Reactor::SET_MASK)) {
        mSet.suspend(aHandle, false);
    } else if ((lReads && aOperation == ACE_Reactor::CLR_MASK) ||
               (!lReads && aOperation == ACE_Reactor::SET_MASK)) {
        mSet.suspend(aHandle, true);
    }
    return lFormer;
}

/// ACE asks each handler for its descriptor; the pipe has none to tell.
int LoopReactor::suspend_handlers() {
    const int lResult = UncancelledReactor::suspend_handlers();
    mSet.suspendAll(true);
    return lResult;
}

int LoopReactor::resume_handlers() {
    const int lResult = UncancelledReactor::resume_handlers();
    mSet.suspendAll(false);
    return lResult;
}

int LoopReactor::deactivated() {
    return mEnded ? 1 : 0;
}

void LoopReactor::deactivate(int aEnd) {
    mEnded = aEnd != 0;
    UncancelledReactor::deactivate(aEnd);
    passOn();  // ACE's notification wakes one thread
}

/// What ACE is told to be ready need not be so by the kernel.
int LoopReactor::ready_ops(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask, int aOperation) {
    const int lResult = UncancelledReactor::ready_ops(aHandle, aMask, aOperation);
    epoll_event lEvent{};
    lEvent.data.u64 = ServedSet::kAces;
    mReady.add(&lEvent, 1);
    passOn();
    return lResult;
}

int LoopReactor::work_pending(const ACE_Time_Value& aLimit) {
    if (mEnded) {
        return 0;
    }
    if (!mReady.empty()) {
        return 1;
    }
    pollfd lPoll{mSet.descriptor(), POLLIN, 0};
    const timespec lLimit = aLimit;
    return ::ppoll(&lPoll, 1, &lLimit, nullptr);
}

}  // namespace osx
