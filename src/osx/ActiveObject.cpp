// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// An active object: its queue, its thread, and how the thread is stopped.
//
// The queue is ACE's activation queue, into which a stop goes as one more request. When there is no
// memory for that request, the stop closes the queue instead, which ends the thread as well.
#include "osx/ActiveObject.h"

#include <cerrno>
#include <limits>
#include <memory>

#include "ace/Message_Block.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "threads/RunningHere.h"
#include "threads/ThreadName.h"
#include "threads/startThread.h"

namespace {

/// The flag is set while the routine runs. It is cleared however that ends: a request may be
/// cancelled, or end the thread.
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

/// Opens the queue when the routine has ended: a stop without memory has closed it.
class QueueOpener {
public:
    explicit QueueOpener(ACE_Activation_Queue& aQueue) : mQueue(aQueue) {}
    ~QueueOpener() { mQueue.queue()->activate(); }
    QueueOpener(const QueueOpener&) = delete;
    QueueOpener& operator=(const QueueOpener&) = delete;

private:
    ACE_Activation_Queue& mQueue;
};

/// Done here because the activation queue's own `enqueue` crashes when it has no memory for a
/// message's data block.
/// @return null with `errno` ENOMEM when memory is short.
std::unique_ptr<ACE_Message_Block> messageBlockFor(ACE_Method_Request* aRequest) {
    auto lBlock = osx::allocate<ACE_Message_Block>(
        sizeof *aRequest,
        static_cast<ACE_Message_Block::ACE_Message_Type>(ACE_Message_Block::MB_DATA), nullptr,
        reinterpret_cast<const char*>(aRequest), nullptr, nullptr, aRequest->priority());
    if (lBlock != nullptr && lBlock->data_block() == nullptr) {
        lBlock.reset();
        errno = ENOMEM;
    }
    return lBlock;
}

/// @return the result of a call on an object that got no memory for its queue.
int failWithoutQueue() {
    errno = ENOMEM;
    return -1;
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
        return failWithoutQueue();
    }
    const osx::MutexLock lLock(mStartMutex);
    if (thr_count() == 0 && mRunning.load(std::memory_order_relaxed) == 0) {
        forgetStop();
    }
    return osx::startThread(*this);
}

/// A thread may end otherwise while a stop is queued for it, which would then end the next thread.
/// But if somebody still waits for that stop, it holds for the next thread.
void ActiveObject::forgetStop() {
    if (!mStopMutex.tryLock()) {
        return;
    }
    if (StopRequest* const lStop = mQueuedStop.exchange(nullptr)) {
        lStop->mObject = nullptr;
    }
    mQueue.queue()->activate();
    mStopMutex.unlock();
}

/// @return whether there was memory for a queue when the object was made.
bool ActiveObject::hasQueue() const {
    return mQueue.queue() != nullptr;
}

int ActiveObject::insert(ACE_Method_Request* aRequest) {
    if (aRequest == nullptr) {
        return -1;
    }
    if (!hasQueue()) {
        return failWithoutQueue();
    }
    std::unique_ptr<ACE_Message_Block> lBlock = messageBlockFor(aRequest);
    if (lBlock == nullptr) {
        return -1;
    }
    const int lResult = mQueue.queue()->enqueue_prio(lBlock.get());
    if (lResult != -1) {
        static_cast<void>(lBlock.release());
    }
    return lResult;
}

int ActiveObject::svc() {
    if (!hasQueue()) {
        return failWithoutQueue();
    }
    osx::ThreadName("osx-active").giveToCaller();
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

/// Queues a stop, unless there is one. @return whether one is in the queue.
bool ActiveObject::queueStop() {
    const osx::MutexLock lLock(mStartMutex);
    if (mQueuedStop.load(std::memory_order_relaxed) != nullptr) {
        return true;
    }
    std::unique_ptr<StopRequest> lRequest = osx::allocate<StopRequest>(this);
    mQueuedStop.store(lRequest.get(), std::memory_order_relaxed);  // the thread may be quick
    if (lRequest != nullptr && insert(lRequest.get()) != -1) {
        static_cast<void>(lRequest.release());
        return true;
    }
    mQueuedStop.store(nullptr, std::memory_order_relaxed);
    return false;
}

/// @return whether the thread was in its loop, and so will end.
bool ActiveObject::requestStop() {
    if (mRunning.load(std::memory_order_relaxed) == 0) {
        return false;
    }
    if (!queueStop()) {
        mQueue.queue()->deactivate();
    }
    return true;
}

/// The object's own thread only asks: it cannot wait for itself. Other threads wait for its end,
/// and then open the queue again, which a stop without memory may have closed.
void ActiveObject::stop() {
    if (osx::RunningHere::isCaller(this)) {
        requestStop();
        return;
    }
    const osx::MutexLock lLock(mStopMutex);
    if (requestStop()) {
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
