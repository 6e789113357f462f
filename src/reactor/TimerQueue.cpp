#include "reactor/TimerQueue.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <new>
#include <thread>
#include <utility>

#include "ace/Functor.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "process/atFork.h"
#include "reactor/LoopTimer.h"

namespace osx {

namespace {

constexpr std::size_t kBranches = 4;
constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);
constexpr std::int64_t kMicrosecondsPerSecond = 1000000;
constexpr std::int64_t kNever = INT64_MAX;
constexpr std::chrono::milliseconds kCallGrace(250);
constexpr std::chrono::seconds kHandlerGrace(2);

std::mutex gUnusedMutex;
TimerQueue* gUnused = nullptr;

const process::AtFork gAtFork(process::ForkOrder::kLeaf, process::kKeepAcrossFork<gUnusedMutex>);

/// Far more than any clock reaches, and still a number of microseconds.
constexpr std::int64_t kMaxSeconds = 4000000000000;

std::int64_t toMicroseconds(const ACE_Time_Value& aTime) {
    auto lSeconds = static_cast<std::int64_t>(aTime.sec());
    lSeconds = lSeconds > kMaxSeconds ? kMaxSeconds : lSeconds;
    lSeconds = lSeconds < -kMaxSeconds ? -kMaxSeconds : lSeconds;
    return lSeconds * kMicrosecondsPerSecond + aTime.usec();
}

ACE_Time_Value fromMicroseconds(std::int64_t aTime) {
    return ACE_Time_Value(static_cast<time_t>(aTime / kMicrosecondsPerSecond),
                          static_cast<suseconds_t>(aTime % kMicrosecondsPerSecond));
}

timespec clockTime() {
    timespec lTime{};
    ::clock_gettime(CLOCK_MONOTONIC, &lTime);
    return lTime;
}

/// The microsecond that has begun: what is due by it is due.
std::int64_t timeReached() {
    const timespec lTime = clockTime();
    return lTime.tv_sec * kMicrosecondsPerSecond + lTime.tv_nsec / 1000;
}

/// The microsecond that has not yet begun: nothing that is due at a time after it comes early.
/// The parts are carried here, because ACE normalises each time that it makes in a call.
ACE_Time_Value timeAfter(const ACE_Time_Value& aDelay) {
    const timespec lNow = clockTime();
    time_t lSeconds = lNow.tv_sec + aDelay.sec();
    std::int64_t lMicroseconds = (lNow.tv_nsec + 999) / 1000 + aDelay.usec();
    if (lMicroseconds >= kMicrosecondsPerSecond) {
        lMicroseconds -= kMicrosecondsPerSecond;
        ++lSeconds;
    } else if (lMicroseconds < 0) {
        lMicroseconds += kMicrosecondsPerSecond;
        --lSeconds;
    }
    ACE_Time_Value lTime;
    lTime.sec(lSeconds);
    lTime.usec(static_cast<suseconds_t>(lMicroseconds));
    return lTime;
}

bool isCounted(ACE_Event_Handler& aHandler) {
    return aHandler.reference_counting_policy().value() ==
           ACE_Event_Handler::Reference_Counting_Policy::ENABLED;
}

}  // namespace

/// A timer, and its id for good.
struct TimerQueue::Node : public ACE_Timer_Node_T<ACE_Event_Handler*> {
    std::size_t mPlace = kNowhere;
    std::uint32_t mTurn = 0;
    Node* mNextFree = nullptr;
};

/// The call of a handler, from the moment when its timer is taken out of the queue.
struct TimerQueue::Call {
    enum Phase {
        kAboutToBegin,  ///< May be called off.
        kCalledOff,
        kBegun,    ///< The handler is being used.
        kReleased  ///< What it calls is running; the handler itself may go.
    };

    ACE_Event_Handler* mHandler = nullptr;
    const void* mAct = nullptr;
    bool mIsCounted = false;
    std::atomic<Phase> mPhase{kAboutToBegin};
    std::thread::id mThread;
    TimerQueue* mQueue = nullptr;
    Call* mNext = nullptr;
    Call* mOuter = nullptr;  ///< That this one is made within, as by an event loop in a callback.

    Call() = default;
    /// A callback may be left by an exception, or by the end of its thread.
    ~Call() { end(); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    bool change(Phase aFrom, Phase aTo) { return mPhase.compare_exchange_strong(aFrom, aTo); }
    int make(const ACE_Time_Value& aNow);
    void end();

    static thread_local Call* mInnermost;
};

thread_local TimerQueue::Call* TimerQueue::Call::mInnermost = nullptr;

/// @return the handler's result.
int TimerQueue::Call::make(const ACE_Time_Value& aNow) {
    if (!change(kAboutToBegin, kBegun)) {
        return 0;
    }
    mOuter = std::exchange(mInnermost, this);
    return mHandler->handle_timeout(aNow, mAct);
}

void TimerQueue::Call::end() {
    if (mInnermost == this) {
        mInnermost = mOuter;
    }
    if (TimerQueue* const lQueue = std::exchange(mQueue, nullptr)) {
        lQueue->forget(*this);
    }
}

/// In the order of the heap. Whoever iterates keeps the queue from being changed.
class TimerQueue::Iterator : public ITERATOR {
public:
    explicit Iterator(const TimerQueue& aQueue) : mQueue(aQueue) {}
    void first() override { mPlace = 0; }
    void next() override { ++mPlace; }
    bool isdone() const override { return mPlace >= mQueue.mHeap.size(); }
    ACE_Timer_Node_T<ACE_Event_Handler*>* item() override {
        return isdone() ? nullptr : mQueue.mHeap[mPlace].node;
    }

private:
    const TimerQueue& mQueue;
    std::size_t mPlace = 0;
};

TimerQueue* TimerQueue::take() {
    {
        const std::lock_guard<std::mutex> lGuard(gUnusedMutex);
        if (TimerQueue* const lQueue = gUnused) {
            gUnused = lQueue->mNextUnused;
            return lQueue;
        }
    }
    try {
        if (auto* const lQueue = new (std::nothrow) TimerQueue) {
            return lQueue;
        }
    } catch (const std::bad_alloc&) {
    }
    errno = ENOMEM;
    return nullptr;
}

void TimerQueue::giveBack(TimerQueue* aQueue) {
    aQueue->close();
    const std::lock_guard<std::mutex> lGuard(gUnusedMutex);
    aQueue->mNextUnused = gUnused;
    gUnused = aQueue;
}

TimerQueue::TimerQueue()
    : mFree(nullptr),
      mTurn(0),
      mCalls(nullptr),
      mWaiting(0),
      mIterator(std::make_unique<Iterator>(*this)),
      mAlarm(nullptr),
      mAlarmTime(kNever),
      mNextUnused(nullptr) {}

TimerQueue::~TimerQueue() = default;

// --- the heap ---

bool TimerQueue::isBefore(const Pending& aOne, const Pending& aOther) {
    if (aOne.time != aOther.time) {
        return aOne.time < aOther.time;
    }
    return static_cast<std::int32_t>(aOne.node->mTurn - aOther.node->mTurn) < 0;
}

void TimerQueue::put(std::size_t aPlace, const Pending& aPending) {
    mHeap[aPlace] = aPending;
    aPending.node->mPlace = aPlace;
}

void TimerQueue::riseFrom(std::size_t aPlace, const Pending& aPending) {
    while (aPlace > 0) {
        const std::size_t lParent = (aPlace - 1) / kBranches;
        if (!isBefore(aPending, mHeap[lParent])) {
            break;
        }
        put(aPlace, mHeap[lParent]);
        aPlace = lParent;
    }
    put(aPlace, aPending);
}

void TimerQueue::sinkFrom(std::size_t aPlace, const Pending& aPending) {
    for (;;) {
        const std::size_t lFirst = aPlace * kBranches + 1;
        const std::size_t lEnd = std::min(lFirst + kBranches, mHeap.size());
        if (lFirst >= lEnd) {
            break;
        }
        std::size_t lLeast = lFirst;
        for (std::size_t lChild = lFirst + 1; lChild < lEnd; ++lChild) {
            if (isBefore(mHeap[lChild], mHeap[lLeast])) {
                lLeast = lChild;
            }
        }
        if (!isBefore(mHeap[lLeast], aPending)) {
            break;
        }
        put(aPlace, mHeap[lLeast]);
        aPlace = lLeast;
    }
    put(aPlace, aPending);
}

/// There is room: whoever has a node has made it.
void TimerQueue::insert(Node* aNode) {
    aNode->mTurn = mTurn++;
    mHeap.push_back({});
    riseFrom(mHeap.size() - 1, {toMicroseconds(aNode->get_timer_value()), aNode});
}

void TimerQueue::takeOut(std::size_t aPlace) {
    mHeap[aPlace].node->mPlace = kNowhere;
    const Pending lLast = mHeap.back();
    mHeap.pop_back();
    if (aPlace == mHeap.size()) {
        return;
    }
    if (aPlace > 0 && isBefore(lLast, mHeap[(aPlace - 1) / kBranches])) {
        riseFrom(aPlace, lLast);
    } else {
        sinkFrom(aPlace, lLast);
    }
}

// --- nodes and ids ---

/// @return a node out of use, with room for it in the heap; null when memory is short.
TimerQueue::Node* TimerQueue::freeNode() {
    if (mFree != nullptr) {
        return std::exchange(mFree, mFree->mNextFree);
    }
    try {
        if (mNodes.size() == mNodes.capacity()) {
            mNodes.reserve(mNodes.size() * 2 + kBranches);
        }
        mHeap.reserve(mNodes.capacity());
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
    Node* const lNode = allocate<Node>().release();
    if (lNode != nullptr) {
        lNode->set_timer_id(static_cast<long>(mNodes.size()));
        mNodes.push_back(lNode);
    }
    return lNode;
}

void TimerQueue::setFree(Node* aNode) {
    aNode->mNextFree = std::exchange(mFree, aNode);
}

/// @return the pending timer of an id; null if there is none.
TimerQueue::Node* TimerQueue::pending(long aTimerID) const {
    const auto lIndex = static_cast<std::size_t>(aTimerID);
    if (aTimerID < 0 || lIndex >= mNodes.size() || mNodes[lIndex]->mPlace == kNowhere) {
        return nullptr;
    }
    return mNodes[lIndex];
}

long TimerQueue::schedule(ACE_Event_Handler* const& aHandler, const void* aAct,
                          const ACE_Time_Value& aTime, const ACE_Time_Value& aInterval) {
    const bool lIsCounted = isCounted(*aHandler);
    if (lIsCounted) {
        aHandler->add_reference();
    }
    {
        const Lock lLock(mMutex);
        if (Node* const lNode = freeNode()) {
            const long lTimerID = lNode->get_timer_id();
            lNode->set(aHandler, aAct, aTime, aInterval, nullptr, lTimerID);
            insert(lNode);
            if (mHeap.front().time < mAlarmTime) {
                setAlarm();
            }
            return lTimerID;
        }
    }
    if (lIsCounted) {
        aHandler->remove_reference();
    }
    return -1;
}

long TimerQueue::start(ACE_Event_Handler* aHandler, const void* aAct, const ACE_Time_Value& aDelay,
                       const ACE_Time_Value& aInterval) {
    return schedule(aHandler, aAct, timeAfter(aDelay), aInterval);
}

int TimerQueue::stop(const ACE_Event_Handler& aHandler, long aTimerID) {
    const Lock lLock(mMutex);
    return stopLocked(aHandler, aTimerID);
}

int TimerQueue::stopLocked(const ACE_Event_Handler& aHandler, long aTimerID) {
    if (mCalls != nullptr) {
        callOff(aHandler);
    }
    Node* const lNode = pending(aTimerID);
    if (lNode == nullptr || lNode->get_type() != &aHandler) {
        return 0;
    }
    takeOut(lNode->mPlace);
    setFree(lNode);
    return 1;
}

void TimerQueue::retire(const ACE_Event_Handler& aHandler, long aTimerID) {
    Lock lLock(mMutex);
    stopLocked(aHandler, aTimerID);
    if (mCalls != nullptr && isCalledElsewhere(aHandler, true)) {
        awaitCall(lLock, aHandler);
    }
}

void TimerQueue::awaitCall(Lock& lLock, const ACE_Event_Handler& aHandler) {
    const NoCancellation lGuard;  // a destructor waits here
    const auto lNow = std::chrono::steady_clock::now();
    ++mWaiting;
    mCallEnded.wait_until(lLock, lNow + kHandlerGrace,
                          [&] { return !isCalledElsewhere(aHandler, false); });
    mCallEnded.wait_until(lLock, lNow + kCallGrace,
                          [&] { return !isCalledElsewhere(aHandler, true); });
    --mWaiting;
}

void TimerQueue::wakeWith(const LoopTimer* aAlarm) {
    const Lock lLock(mMutex);
    mAlarm = aAlarm;
    setAlarm();
}

/// An alarm for a timer that has been taken out comes all the same, and finds nothing to do.
void TimerQueue::setAlarm() {
    mAlarmTime = mHeap.empty() ? kNever : mHeap.front().time;
    if (mAlarm != nullptr && mAlarmTime != kNever) {
        mAlarm->set(mAlarmTime);
    }
}

void TimerQueue::beginAnew() {
    const std::thread::id lThread = std::this_thread::get_id();
    Call** lLink = &mCalls;
    while (*lLink != nullptr) {
        Call* const lCall = *lLink;
        if (lCall->mThread == lThread) {
            lLink = &lCall->mNext;
        } else {
            *lLink = lCall->mNext;
        }
    }
    // It would wait for those who waited in it.
    new (&mCallEnded) std::condition_variable;
    mWaiting = 0;
    setAlarm();
}

// --- calls ---

void TimerQueue::note(Call& aCall) {
    aCall.mThread = std::this_thread::get_id();
    aCall.mQueue = this;
    aCall.mNext = std::exchange(mCalls, &aCall);
}

void TimerQueue::forget(Call& aCall) {
    const Lock lLock(mMutex);
    Call** lLink = &mCalls;
    while (*lLink != &aCall) {
        lLink = &(*lLink)->mNext;
    }
    *lLink = aCall.mNext;
    if (mWaiting != 0) {
        mCallEnded.notify_all();
    }
}

void TimerQueue::callOff(const ACE_Event_Handler& aHandler) {
    for (Call* lCall = mCalls; lCall != nullptr; lCall = lCall->mNext) {
        if (lCall->mHandler == &aHandler) {
            lCall->change(Call::kAboutToBegin, Call::kCalledOff);
        }
    }
}

/// @param aAlsoReleased whether a call counts that no longer needs the handler itself.
bool TimerQueue::isCalledElsewhere(const ACE_Event_Handler& aHandler, bool aAlsoReleased) const {
    const std::thread::id lThread = std::this_thread::get_id();
    for (const Call* lCall = mCalls; lCall != nullptr; lCall = lCall->mNext) {
        const Call::Phase lPhase = lCall->mPhase;
        if (lCall->mHandler == &aHandler && lCall->mThread != lThread &&
            (lPhase == Call::kBegun || (aAlsoReleased && lPhase == Call::kReleased))) {
            return true;
        }
    }
    return false;
}

void TimerQueue::release(const ACE_Event_Handler& aHandler) {
    Call* const lCall = Call::mInnermost;
    if (lCall != nullptr && lCall->mHandler == &aHandler &&
        lCall->change(Call::kBegun, Call::kReleased)) {
        lCall->mQueue->tellWaiting();
    }
}

void TimerQueue::tellWaiting() {
    if (mWaiting != 0) {
        const Lock lLock(mMutex);
        mCallEnded.notify_all();
    }
}

/// Takes the first timer out if it is due; a periodic one goes back in for its next time, past
/// those that were missed.
bool TimerQueue::takeExpired(Microseconds aNow, Call& aCall) {
    if (mHeap.empty() || mHeap.front().time > aNow) {
        return false;
    }
    const Microseconds lTime = mHeap.front().time;
    Node* const lNode = mHeap.front().node;
    takeOut(0);
    aCall.mHandler = lNode->get_type();
    aCall.mAct = lNode->get_act();
    aCall.mIsCounted = isCounted(*aCall.mHandler);
    const Microseconds lInterval = toMicroseconds(lNode->get_interval());
    if (lInterval > 0) {
        if (aCall.mIsCounted) {
            aCall.mHandler->add_reference();  // the timer's own may go during the call
        }
        lNode->set_timer_value(fromMicroseconds(aNow + lInterval - (aNow - lTime) % lInterval));
        insert(lNode);
    } else {
        setFree(lNode);
    }
    return true;
}

bool TimerQueue::expireNext(Microseconds aNow, ACE_Command_Base* aBeforeTheCall) {
    Call lCall;
    {
        const Lock lLock(mMutex);
        const bool lExpired = takeExpired(aNow, lCall);
        setAlarm();
        if (!lExpired) {
            return false;
        }
        note(lCall);
    }
    if (aBeforeTheCall != nullptr) {
        aBeforeTheCall->execute();
    }
    perform(lCall, fromMicroseconds(aNow));
    return true;
}

/// The handler may be destroyed by the call, unless it is counted.
void TimerQueue::perform(Call& aCall, const ACE_Time_Value& aNow) {
    const ACE_Event_Handler_var lReference(aCall.mIsCounted ? aCall.mHandler : nullptr);
    const int lResult = aCall.make(aNow);
    aCall.end();
    if (lResult == -1) {
        cancel(aCall.mHandler, 0);
    }
}

// --- ACE's interface ---

bool TimerQueue::is_empty() const {
    const Lock lLock(mMutex);
    return mHeap.empty();
}

const ACE_Time_Value& TimerQueue::earliest_time() const {
    const Lock lLock(mMutex);
    return mHeap.empty() ? ACE_Time_Value::max_time : mHeap.front().node->get_timer_value();
}

int TimerQueue::expire(const ACE_Time_Value& aNow) {
    const Microseconds lNow = toMicroseconds(aNow);
    int lExpired = 0;
    while (expireNext(lNow, nullptr)) {
        ++lExpired;
    }
    return lExpired;
}

int TimerQueue::expire() {
    return expire(fromMicroseconds(timeReached()));
}

int TimerQueue::expire_single(ACE_Command_Base& aBeforeTheCall) {
    return expireNext(timeReached(), &aBeforeTheCall) ? 1 : 0;
}

int TimerQueue::reset_interval(long aTimerID, const ACE_Time_Value& aInterval) {
    const Lock lLock(mMutex);
    Node* const lNode = pending(aTimerID);
    if (lNode == nullptr) {
        return -1;
    }
    lNode->set_interval(aInterval);
    return 0;
}

/// @return how many there were.
std::size_t TimerQueue::takeAll(const ACE_Event_Handler& aHandler) {
    const Lock lLock(mMutex);
    std::size_t lTaken = 0;
    std::size_t lPlace = mHeap.size();
    while (lPlace-- > 0) {
        Node* const lNode = mHeap[lPlace].node;
        if (lNode->get_type() == &aHandler) {
            takeOut(lPlace);
            setFree(lNode);
            ++lTaken;
            // One that has not been looked at may have come here.
            lPlace = std::min(lPlace + 1, mHeap.size());
        }
    }
    callOff(aHandler);
    return lTaken;
}

int TimerQueue::cancel(ACE_Event_Handler* const& aHandler, int aDontCallHandleClose) {
    ACE_Event_Handler* const lHandler = aHandler;
    const bool lIsCounted = isCounted(*lHandler);
    const std::size_t lTaken = takeAll(*lHandler);
    if (aDontCallHandleClose == 0) {
        lHandler->handle_close(ACE_INVALID_HANDLE, ACE_Event_Handler::TIMER_MASK);
    }
    for (std::size_t lReference = 0; lIsCounted && lReference < lTaken; ++lReference) {
        lHandler->remove_reference();
    }
    return static_cast<int>(lTaken);
}

int TimerQueue::cancel(long aTimerID, const void** aAct, int aDontCallHandleClose) {
    ACE_Event_Handler* lHandler = nullptr;
    {
        const Lock lLock(mMutex);
        Node* const lNode = pending(aTimerID);
        if (lNode == nullptr) {
            return 0;
        }
        takeOut(lNode->mPlace);
        setFree(lNode);
        lHandler = lNode->get_type();
        if (aAct != nullptr) {
            *aAct = lNode->get_act();
        }
    }
    const bool lIsCounted = isCounted(*lHandler);
    if (aDontCallHandleClose == 0) {
        lHandler->handle_close(ACE_INVALID_HANDLE, ACE_Event_Handler::TIMER_MASK);
    }
    if (lIsCounted) {
        lHandler->remove_reference();
    }
    return 1;
}

int TimerQueue::close() {
    while (ACE_Timer_Node_T<ACE_Event_Handler*>* const lFirst = get_first()) {
        cancel(lFirst->get_timer_id(), nullptr, 0);
    }
    return 0;
}

ACE_Time_Value TimerQueue::gettimeofday() {
    return timeAfter(ACE_Time_Value::zero);
}

/// The clock is not anybody's to choose.
void TimerQueue::gettimeofday(ACE_Time_Value (*)()) {}

ACE_Time_Value* TimerQueue::calculate_timeout(ACE_Time_Value* aMax) {
    return calculate_timeout(aMax, &mTimeout);
}

ACE_Time_Value* TimerQueue::calculate_timeout(ACE_Time_Value* aMax, ACE_Time_Value* aTimeout) {
    Microseconds lFirst = 0;
    {
        const Lock lLock(mMutex);
        if (mHeap.empty()) {
            if (aMax == nullptr) {
                return nullptr;
            }
            *aTimeout = *aMax;
            return aTimeout;
        }
        lFirst = mHeap.front().time;
    }
    const Microseconds lLeft = lFirst - timeReached();
    *aTimeout = lLeft > 0 ? fromMicroseconds(lLeft) : ACE_Time_Value::zero;
    if (aMax != nullptr && *aMax < *aTimeout) {
        *aTimeout = *aMax;
    }
    return aTimeout;
}

ACE_Time_Value TimerQueue::current_time() {
    return gettimeofday();
}

TimerQueue::ITERATOR& TimerQueue::iter() {
    mIterator->first();
    return *mIterator;
}

/// The node's id is free from now on; what it holds stays until that is used again.
ACE_Timer_Node_T<ACE_Event_Handler*>* TimerQueue::remove_first() {
    const Lock lLock(mMutex);
    if (mHeap.empty()) {
        return nullptr;
    }
    Node* const lNode = mHeap.front().node;
    takeOut(0);
    setFree(lNode);
    return lNode;
}

ACE_Timer_Node_T<ACE_Event_Handler*>* TimerQueue::get_first() {
    const Lock lLock(mMutex);
    return mHeap.empty() ? nullptr : mHeap.front().node;
}

void TimerQueue::dump() const {}

}  // namespace osx
