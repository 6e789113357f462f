#include "reactor/LoopReactor.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <new>

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

/// Bits in ACE's sets that are the loop's own: the notification pipe's and the gate's.
constexpr int kOwnBits = 2;

constexpr ACE_Reactor_Mask kReading = ACE_Event_Handler::READ_MASK | ACE_Event_Handler::ACCEPT_MASK;

int bitsOf(const ACE_Select_Reactor_Handle_Set& aSet) {
    return aSet.rd_mask_.num_set() + aSet.wr_mask_.num_set() + aSet.ex_mask_.num_set();
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

class NotifyAccess : public ACE_Select_Reactor_Notify {
public:
    static ACE_Pipe& pipe(ACE_Select_Reactor_Notify& aNotify) {
        return aNotify.*(&NotifyAccess::notification_pipe_);
    }
};

/// Puts a pipe of the child's own in the place of one that it shares with its parent.
void replacePipe(const ACE_Pipe& aPipe) {
    std::array<int, 2> lEnds{-1, -1};
    [[maybe_unused]] const int lResult = ::pipe2(lEnds.data(), O_CLOEXEC | O_NONBLOCK);
    replaceDescriptor(aPipe.read_handle(), lEnds[0]);
    replaceDescriptor(aPipe.write_handle(), lEnds[1]);
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

LoopReactor::LoopReactor(TimerQueue& aTimers)
    : ACE_TP_Reactor(nullptr, &aTimers, true, ACE_Select_Reactor_Token::FIFO),
      mTimers(aTimers),
      mWake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      mGate(*this),
      mThroughAce(false),
      mSleepers(0),
      mInside(0),
      mForks(0),
      mEnded(false),
      mHasToEnrol(false),
      mClosed(true) {
    if (initialized()) {
        mClosed = !setUp();
        if (mClosed) {
            ACE_TP_Reactor::close();
        }
    }
}

LoopReactor::~LoopReactor() {
    LoopReactor::close();
    mTimers.wakeWith(nullptr);
    if (mWake != -1) {
        ::close(mWake);
    }
}

bool LoopReactor::usable() {
    return initialized();
}

bool LoopReactor::setUp() {
    const bool lOpened =
        fillPoll() && ACE_TP_Reactor::register_handler_i(mSet.descriptor(), &mGate,
                                                         ACE_Event_Handler::READ_MASK) == 0;
    if (lOpened) {
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
    return ACE_TP_Reactor::close();
}

// --- the fork of the process ---

/// The token first: who has it takes the others.
void LoopReactor::lockForFork() {
    token_.acquire();
    mSet.mutex().lock();
    mReady.mutex().lock();
    mTimers.mutex().lock();
}

void LoopReactor::unlockAfterFork() {
    mTimers.mutex().unlock();
    mReady.mutex().unlock();
    mSet.mutex().unlock();
    token_.release();
}

void LoopReactor::renewInChild() {
    if (auto* const lNotify = dynamic_cast<ACE_Select_Reactor_Notify*>(notify_handler_)) {
        replacePipe(NotifyAccess::pipe(*lNotify));
    }
    mSet.renewInChild();
    mTimer.renew();
    replaceDescriptor(mWake, ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    fillPoll();
    mReady.forget();
    mTimers.beginAnew();
    mSleepers = 0;
    mInside = 0;
    ++mForks;
    mHasToEnrol = true;
    mTimers.mutex().unlock();
    mReady.mutex().unlock();
    mSet.mutex().unlock();
    // The token knows its owner by the thread id, and has waiters that are not here.
    const int lQueueing = token_.queueing_strategy();
    new (&token_) ACE_Select_Reactor_Token(*this, lQueueing);
    // Those that other threads were serving.
    ACE_TP_Reactor::resume_handlers();
}

// --- the two ways ---

/// Called, with the token, after each change of ACE's sets. Who sleeps in the poll has to go to
/// ACE's loop once the application has a handler. The other way round nobody sleeps: who does has
/// the token.
void LoopReactor::chooseMode() {
    const bool lThroughAce =
        bitsOf(wait_set_) + bitsOf(suspend_set_) > kOwnBits || timer_queue_ != &mTimers;
    if (mThroughAce.exchange(lThroughAce) != lThroughAce && lThroughAce) {
        passOn();
    }
}

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
    if (mThroughAce) {
        passOn();
        ACE_Time_Value lLimit(std::chrono::milliseconds(aLimitMs < 0 ? 0 : aLimitMs));
        const int lResult = ACE_TP_Reactor::handle_events(aLimitMs < 0 ? nullptr : &lLimit);
        aWaited = lResult == 0 && !mThroughAce ? kNothing : kFailed;
        return lResult;
    }
    std::array<epoll_event, ReadyQueue::kSize> lEvents;
    const int lCount = wait(lEvents.data(), aLimitMs);
    if (lCount == -1) {
        return errno == EINTR ? 0 : -1;
    }
    aWaited = lCount == 0 ? kNothing : serveAll(lEvents.data(), lCount);
    return aWaited == kServed ? 1 : 0;
}

/// With the token. Who got it only after the last handler of the application's had gone must not
/// sleep with it: who wants it sends a notification, which those in the poll may take.
int LoopReactor::wait_for_multiple_events(ACE_Select_Reactor_Handle_Set& aReady,
                                          ACE_Time_Value* aLimit) {
    ACE_Time_Value lNoWait(ACE_Time_Value::zero);
    return ACE_TP_Reactor::wait_for_multiple_events(aReady, mThroughAce ? aLimit : &lNoWait);
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
    const bool lMaySleep = mReady.empty() && !mThroughAce && !mEnded;
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
        default:
            return mSet.serve(aEvent) ? kServed : kNothing;
    }
}

bool LoopReactor::serveTimer() {
    NothingBefore lNothing;
    return mTimers.expire_single(lNothing) != 0;
}

/// As ACE's loop does it. Each read of the pipe gets a whole notification. One that may have been
/// meant for a thread that sleeps in ACE's loop is sent again.
bool LoopReactor::serveNotification() {
    ACE_Notification_Buffer lNotification;
    while (!mThroughAce &&
           notify_handler_->read_notify_pipe(notify_handler_->notify_handle(), lNotification) > 0) {
        if (mThroughAce) {
            wakeup_all_threads();
        }
        if (notify_handler_->is_dispatchable(lNotification) > 0) {
            notify_handler_->dispatch_notify(lNotification);
            return true;
        }
    }
    return false;
}

void LoopReactor::wakeOne() const {
    const NoCancellation lGuard;
    const std::uint64_t lOne = 1;
    [[maybe_unused]] const ssize_t lWritten = ::write(mWake, &lOne, sizeof lOne);
}

/// Wakes a thread for what this one leaves: events that wait, the other way of waiting, or the end.
/// That one does the same.
void LoopReactor::passOn() const {
    const bool lSleeps = mSleepers != 0;
    if ((!mReady.empty() && (lSleeps || mThroughAce)) || ((mThroughAce || mEnded) && lSleeps)) {
        wakeOne();
    }
}

int LoopReactor::Gate::handle_input(ACE_HANDLE aHandle) {
    epoll_event lEvent{};
    const bool lTaken =
        mLoop.mReady.take(lEvent) || ::epoll_wait(mLoop.mSet.descriptor(), &lEvent, 1, 0) == 1;
    mLoop.resume_handler(aHandle);
    // ACE's loop, which is here, looks after its pipe by itself.
    if (lTaken && lEvent.data.u64 != ServedSet::kNotify) {
        mLoop.passOn();
        mLoop.serve(lEvent);
    }
    return 0;
}

// --- timers: without the token, which a thread that waits in ACE's loop holds ---

long LoopReactor::schedule_timer(ACE_Event_Handler* aHandler, const void* aAct,
                                 const ACE_Time_Value& aDelay, const ACE_Time_Value& aInterval) {
    return timer_queue_ == &mTimers
               ? mTimers.start(aHandler, aAct, aDelay, aInterval)
               : ACE_TP_Reactor::schedule_timer(aHandler, aAct, aDelay, aInterval);
}

int LoopReactor::reset_timer_interval(long aTimerID, const ACE_Time_Value& aInterval) {
    return timer_queue_ == &mTimers ? mTimers.reset_interval(aTimerID, aInterval)
                                    : ACE_TP_Reactor::reset_timer_interval(aTimerID, aInterval);
}

int LoopReactor::cancel_timer(ACE_Event_Handler* aHandler, int aDontCallHandleClose) {
    if (timer_queue_ != &mTimers) {
        return ACE_TP_Reactor::cancel_timer(aHandler, aDontCallHandleClose);
    }
    return aHandler == nullptr ? 0 : mTimers.cancel(aHandler, aDontCallHandleClose);
}

int LoopReactor::cancel_timer(long aTimerID, const void** aAct, int aDontCallHandleClose) {
    return timer_queue_ == &mTimers
               ? mTimers.cancel(aTimerID, aAct, aDontCallHandleClose)
               : ACE_TP_Reactor::cancel_timer(aTimerID, aAct, aDontCallHandleClose);
}

ACE_Timer_Queue* LoopReactor::timer_queue() const {
    return ACE_TP_Reactor::timer_queue();
}

/// Only ACE's loop knows how to wait for another queue's timers.
int LoopReactor::timer_queue(ACE_Timer_Queue* aQueue) {
    token_.acquire();
    const int lResult = ACE_TP_Reactor::timer_queue(aQueue);
    chooseMode();
    token_.release();
    return lResult;
}

// --- handlers, with the token ---

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
    const int lResult = ACE_TP_Reactor::register_handler_i(aHandle, aHandler, aMask);
    chooseMode();
    return lResult;
}

int LoopReactor::remove_handler_i(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask) {
    if (mSet.has(aHandle)) {
        const bool lClose = (aMask & ACE_Event_Handler::DONT_CALL) == 0;
        return (aMask & kReading) == 0 || mSet.remove(aHandle, lClose) ? 0 : -1;
    }
    const int lResult = ACE_TP_Reactor::remove_handler_i(aHandle, aMask);
    chooseMode();
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
    if (aHandle < 0) {  // as the gate and the pipe tell it, which serve on
        return -1;
    }
    return mSet.suspend(aHandle, true) ? 0 : ACE_TP_Reactor::suspend_i(aHandle);
}

int LoopReactor::resume_i(ACE_HANDLE aHandle) {
    if (aHandle < 0) {
        return -1;
    }
    return mSet.suspend(aHandle, false) ? 0 : ACE_TP_Reactor::resume_i(aHandle);
}

int LoopReactor::is_suspended_i(ACE_HANDLE aHandle) {
    return mSet.has(aHandle) ? static_cast<int>(mSet.isSuspended(aHandle))
                             : ACE_TP_Reactor::is_suspended_i(aHandle);
}

/// What is not to be read is suspended.
int LoopReactor::mask_ops(ACE_HANDLE aHandle, ACE_Reactor_Mask aMask, int aOperation) {
    if (!mSet.has(aHandle)) {
        const int lResult = ACE_TP_Reactor::mask_ops(aHandle, aMask, aOperation);
        token_.acquire();
        chooseMode();
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

/// ACE asks each handler for its descriptor; the gate and the pipe have none to tell.
int LoopReactor::suspend_handlers() {
    const int lResult = ACE_TP_Reactor::suspend_handlers();
    mSet.suspendAll(true);
    return lResult;
}

int LoopReactor::resume_handlers() {
    const int lResult = ACE_TP_Reactor::resume_handlers();
    mSet.suspendAll(false);
    return lResult;
}

int LoopReactor::deactivated() {
    return mEnded ? 1 : 0;
}

void LoopReactor::deactivate(int aEnd) {
    mEnded = aEnd != 0;
    ACE_TP_Reactor::deactivate(aEnd);
    passOn();  // ACE's notification wakes one thread
}

int LoopReactor::work_pending(const ACE_Time_Value& aLimit) {
    return mReady.empty() ? ACE_TP_Reactor::work_pending(aLimit) : 1;
}

}  // namespace osx
