#include "osx/ActiveObject.h"

#include <cerrno>
#include <limits>
#include <memory>

#include "ace/Message_Block.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "threads/RunningHere.h"
#include "threads/startThread.h"

namespace {

/// Set while the routine runs, however it ends: a request may be cancelled, or end the thread.
class RunningFlag {
public:
    explicit RunningFlag(std::atomic<int>& aFlag) : mFlag(aFlag) { set(1); }
    ~RunningFlag() { set(0); }
    RunningFlag(const RunningFlag&) = delete;
    RunningFlag& operator=(const RunningFlag&) = delete;

private:
    void set(int aValue) { mFlag.store(aValue, std::memory_order_relaxed); }
    std::atomic<int>& mFlag;
};

/// However the routine ends, the queue then takes requests again, though a stop for want of memory
/// has closed it.
class QueueOpener {
public:
    explicit QueueOpener(ACE_Activation_Queue& aQueue) : mQueue(aQueue) {}
    ~QueueOpener() { mQueue.queue()->activate(); }
    QueueOpener(const QueueOpener&) = delete;
    QueueOpener& operator=(const QueueOpener&) = delete;

private:
    ACE_Activation_Queue& mQueue;
};

/// Not the activation queue's own `enqueue`, which goes on without the data block when only that
/// could not be allocated, and crashes.
ACE_Message_Block* messageBlockFor(ACE_Method_Request* aRequest) {
    auto* const lBlock =
        osx::allocate<ACE_Message_Block>(
            sizeof *aRequest,
            static_cast<ACE_Message_Block::ACE_Message_Type>(ACE_Message_Block::MB_DATA), nullptr,
            reinterpret_cast<const char*>(aRequest), nullptr, nullptr, aRequest->priority())
            .release();
    if (lBlock != nullptr && lBlock->data_block() == nullptr) {
        delete lBlock;
        errno = ENOMEM;
        return nullptr;
    }
    return lBlock;
}

}  // namespace

ActiveObject::ActiveObject()
    : ACE_Task<ACE_MT_SYNCH>(nullptr, nullptr), mQueue(), mRunning(0), mQueuedStop(nullptr) {
    if (mQueue.queue() != nullptr) {
        // At ACE's default mark an insert would block the inserting thread.
        mQueue.queue()->high_water_mark(std::numeric_limits<std::size_t>::max());
    }
}

ActiveObject::~ActiveObject() {
    if (mQueue.queue() == nullptr) {
        return;
    }
    const osx::NoCancellation lGuard;
    // A thread that waited in the queue would keep its destruction waiting for ever.
    mQueue.queue()->deactivate();
    mJoiner.join(*this);
    mQueue.queue()->activate();
    while (!mQueue.is_empty()) {
        delete mQueue.dequeue();
    }
}

int ActiveObject::init() {
    if (!hasQueue()) {
        return -1;
    }
    const std::lock_guard<std::mutex> lGuard(mStartMutex);
    if (thr_count() == 0 && mRunning.load(std::memory_order_relaxed) == 0) {
        forgetStop();
    }
    return osx::startThread(*this);
}

/// What stopped the former thread may have come before a stop that was queued, which would end the
/// next one. While somebody still waits for that stop, it holds for the next thread.
void ActiveObject::forgetStop() {
    const std::unique_lock<std::mutex> lLock(mStopMutex, std::try_to_lock);
    if (!lLock.owns_lock()) {
        return;
    }
    if (StopRequest* const lStop = mQueuedStop.exchange(nullptr)) {
        lStop->mObject = nullptr;
    }
    mQueue.queue()->activate();
}

/// @return whether there was memory for a queue when the object was made; ENOMEM if not.
bool ActiveObject::hasQueue() {
    if (mQueue.queue() == nullptr) {
        errno = ENOMEM;
        return false;
    }
    return true;
}

int ActiveObject::insert(ACE_Method_Request* aRequest) {
    if (aRequest == nullptr || !hasQueue()) {
        return -1;
    }
    ACE_Message_Block* const lBlock = messageBlockFor(aRequest);
    if (lBlock == nullptr) {
        return -1;
    }
    const int lResult = mQueue.queue()->enqueue_prio(lBlock);
    if (lResult == -1) {
        lBlock->release();
    }
    return lResult;
}

int ActiveObject::svc() {
    if (!hasQueue()) {
        return -1;
    }
    const osx::RunningHere lRunning(this);
    const RunningFlag lFlag(mRunning);
    const QueueOpener lOpener(mQueue);
    mJoiner.beginThread();
    do {
        const std::unique_ptr<ACE_Method_Request> lRequest(mQueue.dequeue());
        if (lRequest == nullptr) {
            return -1;
        }
        noteDequeued(lRequest.get());
        lRequest->call();
    } while (mRunning.load(std::memory_order_relaxed) != 0);
    return 0;
}

void ActiveObject::noteDequeued(const ACE_Method_Request* aRequest) {
    if (aRequest == mQueuedStop.load(std::memory_order_relaxed)) {
        mQueuedStop.store(nullptr, std::memory_order_relaxed);
    }
}

/// @return whether a stop is in the queue.
bool ActiveObject::queueStop() {
    const std::lock_guard<std::mutex> lGuard(mStartMutex);
    if (mQueuedStop.load(std::memory_order_relaxed) != nullptr) {
        return true;
    }
    auto* const lRequest = osx::allocate<StopRequest>(this).release();
    mQueuedStop.store(lRequest, std::memory_order_relaxed);  // before the thread can take it out
    const bool lQueued = lRequest != nullptr && insert(lRequest) != -1;
    if (!lQueued) {
        mQueuedStop.store(nullptr, std::memory_order_relaxed);
        delete lRequest;
    }
    return lQueued;
}

void ActiveObject::stop() {
    // ACE would join the thread once for each waiter, which is undefined.
    std::unique_lock<std::mutex> lLock(mStopMutex, std::defer_lock);
    const bool lOwnThread = osx::RunningHere::isCaller(this);
    if (!lOwnThread) {
        lLock.lock();
    }
    if (mRunning.load(std::memory_order_relaxed) == 0) {
        return;
    }
    if (!queueStop()) {
        mQueue.queue()->deactivate();
    }
    if (!lOwnThread) {
        mJoiner.join(*this);
        mQueue.queue()->activate();
    }
}

StopRequest::StopRequest(ActiveObject* aObject) : ACE_Method_Request(0), mObject(aObject) {}

StopRequest::~StopRequest() = default;

int StopRequest::call() {
    if (mObject != nullptr) {
        mObject->mRunning.store(0, std::memory_order_relaxed);
    }
    return 0;
}
