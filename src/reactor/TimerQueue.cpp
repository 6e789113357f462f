// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The timers of the library's own reactor. ACE's queues keep time by the wall clock, call handlers
// that are being destroyed, and may run out of ids when memory is short; hence this one.
#include "reactor/TimerQueue.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "ace/Functor.h"
#include "base/allocate.h"
#include "process/atFork.h"
#include "reactor/LoopTimer.h"
#include "reactor/monotonicTime.h"

namespace osx {

namespace {

constexpr Microseconds kNever = INT64_MAX;

Mutex gUnusedMutex;
TimerQueue* gUnused OSX_GUARDED_BY(gUnusedMutex) = nullptr;

const process::AtFork gAtFork(process::ForkOrder::kLeaf, process::kKeepAcrossFork<gUnusedMutex>);

bool isCounted(ACE_Event_Handler& aHandler) {
    return aHandler.reference_counting_policy().value() ==
           ACE_Event_Handler::Reference_Counting_Policy::ENABLED;
}

/// Calls `handle_close` and drops the references of removed timers. A handler that is not counted
/// may destroy itself in `handle_close`.
void letGo(ACE_Event_Handler& aHandler, std::size_t aTimers, int aDontCallHandleClose) {
    const std::size_t lReferences = isCounted(aHandler) ? aTimers : 0;
    if (aDontCallHandleClose == 0) {
        aHandler.handle_close(ACE_INVALID_HANDLE, ACE_Event_Handler::TIMER_MASK);
    }
    for (std::size_t lReference = 0; lReference < lReferences; ++lReference) {
        aHandler.remove_reference();
    }
}

}  // namespace

/// In the order of the heap. It takes no lock: as with ACE's queues, the thread that iterates sees
/// to it that nobody changes the queue meanwhile.
class TimerQueue::Iterator : public ITERATOR {
public:
    explicit Iterator(const TimerQueue& aQueue) : mQueue(aQueue) {}
    void first() override { mPlace = 0; }
    void next() override { ++mPlace; }
    bool isdone() const override OSX_NO_THREAD_SAFETY_ANALYSIS {
        return mPlace >= mQueue.mHeap.size();
    }
    ACE_Timer_Node_T<ACE_Event_Handler*>* item() override OSX_NO_THREAD_SAFETY_ANALYSIS {
        return isdone() ? nullptr : mQueue.mHeap.at(mPlace);
    }

private:
    const TimerQueue& mQueue;
    std::size_t mPlace = 0;
};

TimerQueue* TimerQueue::take() {
    {
        const MutexLock lLock(gUnusedMutex);
        if (TimerQueue* const lQueue = gUnused) {
            gUnused = lQueue->mNextUnused;
            return lQueue;
        }
    }
    // Not by `allocate`: nobody but this class makes a queue.
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
    const MutexLock lLock(gUnusedMutex);
    aQueue->mNextUnused = gUnused;
    gUnused = aQueue;
}

TimerQueue::TimerQueue()
    : mFree(nullptr),
      mCalls(mMutex),
      mIterator(std::make_unique<Iterator>(*this)),
      mAlarm(nullptr),
      mAlarmTime(kNever),
      mNextUnused(nullptr) {}

TimerQueue::~TimerQueue() = default;

// --- nodes and ids ---

/// @return an unused node, with room for it in the heap; null when memory is short.
TimerNode* TimerQueue::freeNode() {
    return mFree != nullptr ? std::exchange(mFree, mFree->mNextFree) : makeNode();
}

/// Leaves ENOMEM in `errno`, as `schedule` promises it, when memory is short.
TimerNode* TimerQueue::makeNode() {
    constexpr std::size_t kFirstNodes = 4;
    try {
        if (mNodes.size() == mNodes.capacity()) {
            mNodes.reserve(mNodes.size() * 2 + kFirstNodes);
        }
        mHeap.reserve(mNodes.capacity());
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
    std::unique_ptr<TimerNode> lNode = allocate<TimerNode>();
    if (lNode == nullptr) {
        return nullptr;
    }
    lNode->set_timer_id(static_cast<long>(mNodes.size()));
    mNodes.push_back(lNode.get());
    return lNode.release();  // the queue's, which is never destroyed
}

void TimerQueue::setFree(TimerNode* aNode) {
    aNode->mNextFree = std::exchange(mFree, aNode);
}

void TimerQueue::takeOut(TimerNode* aNode) {
    mHeap.takeOut(aNode->mPlace);
    setFree(aNode);
}

/// @return the pending timer of an id; null if there is none.
TimerNode* TimerQueue::pending(long aTimerID) const {
    const auto lIndex = static_cast<std::size_t>(aTimerID);
    if (aTimerID < 0 || lIndex >= mNodes.size() || !mNodes[lIndex]->isPending()) {
        return nullptr;
    }
    return mNodes[lIndex];
}

inline long TimerQueue::add(ACE_Event_Handler* aHandler, const void* aAct,
                            const ACE_Time_Value& aTime, const ACE_Time_Value& aInterval) {
    const bool lIsCounted = isCounted(*aHandler);
    if (lIsCounted) {
        aHandler->add_reference();
    }
    {
        const MutexLock lLock(mMutex);
        if (TimerNode* const lNode = freeNode()) {
            const long lTimerID = lNode->get_timer_id();
            lNode->set(aHandler, aAct, aTime, aInterval, nullptr, lTimerID);
            mHeap.insert(lNode);
            if (mHeap.firstTime() < mAlarmTime) {
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
    return add(aHandler, aAct, timeAfter(aDelay), aInterval);
}

int TimerQueue::stop(const ACE_Event_Handler& aHandler, long aTimerID) {
    const MutexLock lLock(mMutex);
    return stopLocked(aHandler, aTimerID);
}

int TimerQueue::stopLocked(const ACE_Event_Handler& aHandler, long aTimerID) {
    if (!mCalls.empty()) {
        mCalls.callOff(aHandler);
    }
    TimerNode* const lNode = pending(aTimerID);
    if (lNode == nullptr || lNode->get_type() != &aHandler) {
        return 0;
    }
    takeOut(lNode);
    return 1;
}

void TimerQueue::retire(const ACE_Event_Handler& aHandler, long aTimerID) {
    const MutexLock lLock(mMutex);
    stopLocked(aHandler, aTimerID);
    if (!mCalls.empty() && mCalls.isCalledElsewhere(aHandler, true)) {
        mCalls.await(aHandler, mMutex);
    }
}

void TimerQueue::wakeWith(const LoopTimer* aAlarm) {
    const MutexLock lLock(mMutex);
    mAlarm = aAlarm;
    setAlarm();
}

/// An alarm for a timer that has been taken out comes all the same, and finds nothing to do.
void TimerQueue::setAlarm() {
    mAlarmTime = mHeap.empty() ? kNever : mHeap.firstTime();
    if (mAlarm != nullptr && mAlarmTime != kNever) {
        mAlarm->set(mAlarmTime);
    }
}

void TimerQueue::beginAnew() {
    mCalls.forgetOtherThreads();
    setAlarm();
}

// --- calls ---

void TimerQueue::release(const ACE_Event_Handler& aHandler) {
    if (TimerCall* const lCall = TimerCall::innermostOf(aHandler)) {
        lCall->release();
    }
}

/// Takes the first timer out if it is due; a periodic one goes back in for its next time, past
/// those that were missed.
bool TimerQueue::takeExpired(Microseconds aNow, TimerCall& aCall) {
    if (mHeap.empty() || mHeap.firstTime() > aNow) {
        return false;
    }
    const Microseconds lTime = mHeap.firstTime();
    TimerNode* const lNode = mHeap.at(0);
    ACE_Event_Handler* const lHandler = lNode->get_type();
    aCall.set(lHandler, lNode->get_act(), isCounted(*lHandler));
    const Microseconds lInterval = toMicroseconds(lNode->get_interval());
    if (lInterval > 0) {
        mHeap.takeOut(0);
        if (aCall.isCounted()) {
            lHandler->add_reference();  // the timer's own may go during the call
        }
        lNode->set_timer_value(fromMicroseconds(aNow + lInterval - (aNow - lTime) % lInterval));
        mHeap.insert(lNode);
    } else {
        takeOut(lNode);
    }
    return true;
}

bool TimerQueue::expireNext(Microseconds aNow, ACE_Command_Base* aBeforeTheCall) {
    TimerCall lCall;
    {
        const MutexLock lLock(mMutex);
        const bool lExpired = takeExpired(aNow, lCall);
        setAlarm();
        if (!lExpired) {
            return false;
        }
        mCalls.note(lCall);
    }
    if (aBeforeTheCall != nullptr) {
        aBeforeTheCall->execute();
    }
    perform(lCall, fromMicroseconds(aNow));
    return true;
}

/// The handler may be destroyed by the call, unless it is counted.
void TimerQueue::perform(TimerCall& aCall, const ACE_Time_Value& aNow) {
    const ACE_Event_Handler_var lReference(aCall.isCounted() ? aCall.handler() : nullptr);
    const int lResult = aCall.make(aNow);
    aCall.end();
    if (lResult == -1) {
        cancel(aCall.handler(), 0);
    }
}

// --- ACE's interface ---

bool TimerQueue::is_empty() const {
    const MutexLock lLock(mMutex);
    return mHeap.empty();
}

const ACE_Time_Value& TimerQueue::earliest_time() const {
    const MutexLock lLock(mMutex);
    return mHeap.empty() ? ACE_Time_Value::max_time : mHeap.at(0)->get_timer_value();
}

long TimerQueue::schedule(ACE_Event_Handler* const& aHandler, const void* aAct,
                          const ACE_Time_Value& aTime, const ACE_Time_Value& aInterval) {
    return add(aHandler, aAct, aTime, aInterval);
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

/// Calls the first timer, if it is due. `aBeforeTheCall` is executed in between, without the lock:
/// the timer has been taken out, and the alarm is set for the next one.
int TimerQueue::expire_single(ACE_Command_Base& aBeforeTheCall) {
    return expireNext(timeReached(), &aBeforeTheCall) ? 1 : 0;
}

int TimerQueue::reset_interval(long aTimerID, const ACE_Time_Value& aInterval) {
    const MutexLock lLock(mMutex);
    TimerNode* const lNode = pending(aTimerID);
    if (lNode == nullptr) {
        return -1;
    }
    lNode->set_interval(aInterval);
    return 0;
}

/// @return how many there were.
std::size_t TimerQueue::takeAll(const ACE_Event_Handler& aHandler) {
    const MutexLock lLock(mMutex);
    std::size_t lTaken = 0;
    std::size_t lPlace = mHeap.size();
    while (lPlace-- > 0) {
        TimerNode* const lNode = mHeap.at(lPlace);
        if (lNode->get_type() == &aHandler) {
            takeOut(lNode);
            ++lTaken;
            // One that has not been looked at may have come here.
            lPlace = std::min(lPlace + 1, mHeap.size());
        }
    }
    mCalls.callOff(aHandler);
    return lTaken;
}

int TimerQueue::cancel(ACE_Event_Handler* const& aHandler, int aDontCallHandleClose) {
    ACE_Event_Handler* const lHandler = aHandler;
    const std::size_t lTaken = takeAll(*lHandler);
    letGo(*lHandler, lTaken, aDontCallHandleClose);
    return static_cast<int>(lTaken);
}

int TimerQueue::cancel(long aTimerID, const void** aAct, int aDontCallHandleClose) {
    ACE_Event_Handler* lHandler = nullptr;
    {
        const MutexLock lLock(mMutex);
        TimerNode* const lNode = pending(aTimerID);
        if (lNode == nullptr) {
            return 0;
        }
        takeOut(lNode);
        lHandler = lNode->get_type();
        if (aAct != nullptr) {
            *aAct = lNode->get_act();
        }
    }
    letGo(*lHandler, 1, aDontCallHandleClose);
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

/// The clock cannot be changed.
void TimerQueue::gettimeofday(ACE_Time_Value (*)()) {}

ACE_Time_Value* TimerQueue::calculate_timeout(ACE_Time_Value* aMax) {
    return calculate_timeout(aMax, &mTimeout);
}

ACE_Time_Value* TimerQueue::calculate_timeout(ACE_Time_Value* aMax, ACE_Time_Value* aTimeout) {
    Microseconds lFirst = 0;
    {
        const MutexLock lLock(mMutex);
        if (mHeap.empty()) {
            if (aMax == nullptr) {
                return nullptr;
            }
            *aTimeout = *aMax;
            return aTimeout;
        }
        lFirst = mHeap.firstTime();
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
    const MutexLock lLock(mMutex);
    if (mHeap.empty()) {
        return nullptr;
    }
    TimerNode* const lNode = mHeap.at(0);
    takeOut(lNode);
    return lNode;
}

ACE_Timer_Node_T<ACE_Event_Handler*>* TimerQueue::get_first() {
    const MutexLock lLock(mMutex);
    return mHeap.empty() ? nullptr : mHeap.at(0);
}

void TimerQueue::dump() const {}

}  // namespace osx
