#include "osx/ActiveObject.h"

#include <cerrno>
#include <chrono>
#include <limits>
#include <memory>
#include <thread>

#include "ace/Message_Block.h"
#include "base/allocate.h"
#include "osx/startThread.h"

namespace {

thread_local const ActiveObject* gOwnObject = nullptr;

/// Not the activation queue's own `enqueue`, which goes on without the data block when only that
/// could not be allocated, and crashes.
ACE_Message_Block* messageBlockFor(ACE_Method_Request* aRequest) {
    auto* const lBlock = osx::allocate<ACE_Message_Block>(
        sizeof *aRequest,
        static_cast<ACE_Message_Block::ACE_Message_Type>(ACE_Message_Block::MB_DATA), nullptr,
        reinterpret_cast<const char*>(aRequest), nullptr, nullptr, aRequest->priority());
    if (lBlock != nullptr && lBlock->data_block() == nullptr) {
        delete lBlock;
        errno = ENOMEM;
        return nullptr;
    }
    return lBlock;
}

}  // namespace

ActiveObject::ActiveObject() : ACE_Task<ACE_MT_SYNCH>(nullptr, nullptr), mQueue(), mRunning(0) {
    if (mQueue.queue() != nullptr) {
        // At ACE's default mark an insert would block the inserting thread.
        mQueue.queue()->high_water_mark(std::numeric_limits<std::size_t>::max());
    }
}

ActiveObject::~ActiveObject() {
    if (mQueue.queue() == nullptr) {
        return;
    }
    // A thread that waited in the queue would keep its destruction waiting for ever.
    mQueue.queue()->deactivate();
    waitForEnd();
    mQueue.queue()->activate();
    while (!mQueue.is_empty()) {
        delete mQueue.dequeue();
    }
}

int ActiveObject::init() {
    return osx::startThread(*this);
}

int ActiveObject::insert(ACE_Method_Request* aRequest) {
    if (aRequest == nullptr || mQueue.queue() == nullptr) {
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
    gOwnObject = this;
    mRunning.store(1, std::memory_order_relaxed);
    do {
        const std::unique_ptr<ACE_Method_Request> lRequest(mQueue.dequeue());
        if (lRequest == nullptr) {
            mRunning.store(0, std::memory_order_relaxed);
            return -1;
        }
        lRequest->call();
    } while (mRunning.load(std::memory_order_relaxed) != 0);
    return 0;
}

void ActiveObject::stop() {
    // ACE would join the thread once for each waiter, which is undefined.
    std::unique_lock<std::mutex> lLock(mStopMutex, std::defer_lock);
    const bool lOwnThread = gOwnObject == this;
    if (!lOwnThread) {
        lLock.lock();
    }
    if (mRunning.load(std::memory_order_relaxed) == 0) {
        return;
    }
    auto* const lRequest = osx::allocate<StopRequest>(this);
    const bool lQueued = lRequest != nullptr && insert(lRequest) != -1;
    if (!lQueued) {
        delete lRequest;
        mQueue.queue()->deactivate();
    }
    if (!lOwnThread) {
        waitForEnd();
        mQueue.queue()->activate();
    }
}

void ActiveObject::waitForEnd() {
    // ACE allocates to wait, and does not wait if it cannot.
    while (wait() == -1 && errno == ENOMEM && thr_count() != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
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
