#include "queues/MessageQueue.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <new>
#include <optional>
#include <utility>

#include "ace/Malloc_Base.h"
#include "ace/Notification_Strategy.h"
#include "ace/Truncate.h"
#include "base/allocate.h"
#include "base/milliseconds.h"

namespace osx {

namespace {

/// @return null with `errno` ENOMEM for want of memory, of which there is never half of what can be
///         addressed: the sender's own bytes are there, too.
MessageStore::OwnMemory copyOf(const void* aBytes, std::size_t aSize) {
    if (aSize >= PTRDIFF_MAX) {
        errno = ENOMEM;
        return nullptr;
    }
    MessageStore::OwnMemory lCopy(allocateBytes(aSize));
    if (lCopy != nullptr) {
        copyBytes(lCopy.get(), aBytes, aSize);
    }
    return lCopy;
}

/// @return an ordinary block, in the pieces in which ACE frees it; null with `errno` ENOMEM. ACE's
///         own constructor would write a line, and under the queue's lock.
ACE_Message_Block* blockOf(const MessageStore::Message& aMessage) {
    ACE_Allocator* const lAllocator = ACE_Allocator::instance();
    void* const lMemory = lAllocator->malloc(sizeof(ACE_Data_Block));
    if (lMemory == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    auto* const lData = new (lMemory) ACE_Data_Block(aMessage.size, ACE_Message_Block::MB_DATA,
                                                     nullptr, lAllocator, nullptr, 0, lAllocator);
    // ACE's allocator gives nothing for no bytes.
    const bool lHasMemory = lData->base() != nullptr || aMessage.size == 0;
    auto* const lBlock = lHasMemory ? allocate<ACE_Message_Block>(lData).release() : nullptr;
    if (lBlock == nullptr) {
        lData->release();
        errno = ENOMEM;
        return nullptr;
    }
    copyBytes(lBlock->wr_ptr(), aMessage.bytes, aMessage.size);
    lBlock->wr_ptr(aMessage.size);
    return lBlock;
}

Deadline deadlineIn(unsigned long aMilliseconds) {
    Deadline lDeadline{CLOCK_MONOTONIC, {}};
    ::clock_gettime(CLOCK_MONOTONIC, &lDeadline.time);
    const ACE_Time_Value lDelay = toTimeValue(aMilliseconds);
    lDeadline.time.tv_sec += lDelay.sec();
    lDeadline.time.tv_nsec += lDelay.usec() * 1000L;
    if (lDeadline.time.tv_nsec >= 1000000000L) {
        lDeadline.time.tv_nsec -= 1000000000L;
        ++lDeadline.time.tv_sec;
    }
    return lDeadline;
}

/// @return the deadline of one of ACE's operations, which is by the wall clock.
std::optional<Deadline> deadlineAt(const ACE_Time_Value* aTime) {
    if (aTime == nullptr) {
        return std::nullopt;
    }
    return Deadline{CLOCK_REALTIME, *aTime};
}

}  // namespace

/// Holds the queue's lock, until it is released or its own end.
class MessageQueue::Lock {
public:
    explicit Lock(ACE_Thread_Mutex& aMutex) : mMutex(&aMutex.lock()) {
        ::pthread_mutex_lock(mMutex);
    }
    ~Lock() { release(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void release() {
        if (mMutex != nullptr) {
            ::pthread_mutex_unlock(std::exchange(mMutex, nullptr));
        }
    }

private:
    pthread_mutex_t* mMutex;
};

MessageQueue::MessageQueue(std::size_t aSize) : Base(aSize, aSize, nullptr) {}

// --- the calls of the library -----------------------------------------------------------------

int MessageQueue::send(const void* aBytes, std::size_t aSize) {
    if (mStore.wantsOwnMemory(aSize)) {
        return sendOwnMemory(aBytes, aSize);
    }
    Lock lLock(lock_);
    if (!mayEnqueue()) {
        return -1;
    }
    return mStore.append(aBytes, aSize) ? announce(lLock, aSize) : outOfMemory();
}

int MessageQueue::sendOwnMemory(const void* aBytes, std::size_t aSize) {
    // Freed also when the thread is cancelled while it waits for room.
    MessageStore::OwnMemory lCopy = copyOf(aBytes, aSize);
    if (lCopy == nullptr) {
        return -1;
    }
    Lock lLock(lock_);
    if (!mayEnqueue()) {
        return -1;
    }
    return mStore.append(lCopy, aSize) ? announce(lLock, aSize) : outOfMemory();
}

/// Counts a message that has been stored and tells those whom it concerns.
/// @return the number of messages queued.
inline int MessageQueue::announce(Lock& aLock, std::size_t aSize) {
    cur_bytes_ += aSize;
    cur_length_ += aSize;
    const std::size_t lCount = ++cur_count_;
    wakeSender();
    mReceivers.wakeOne();
    // Once the lock is free a receiver may delete the queue.
    ACE_Notification_Strategy* const lStrategy = notification_strategy_;
    aLock.release();
    if (lStrategy != nullptr) {
        lStrategy->notify();
    }
    return ACE_Utils::truncate_cast<int>(lCount);
}

bool MessageQueue::receive(void* aBuffer, std::size_t aMaxSize, unsigned long& aReceived,
                           unsigned long aTimeOutMs) {
    Lock lLock(lock_);
    if (!mayDequeue(aTimeOutMs)) {
        return false;
    }
    if (head_ != nullptr) {
        aReceived = takeBlock(lLock, aBuffer, aMaxSize);
    } else if (mStore.frontHasOwnMemory()) {
        aReceived = takeOwnMemory(lLock, aBuffer, aMaxSize);
    } else {
        aReceived = takeSmall(aBuffer, aMaxSize);
    }
    return true;
}

std::size_t MessageQueue::takeBlock(Lock& aLock, void* aBuffer, std::size_t aMaxSize) {
    ACE_Message_Block* const lBlock = removeHead();
    wakeSenderAfterTaking();
    aLock.release();
    const std::size_t lCopied = std::min(lBlock->length(), aMaxSize);
    copyBytes(aBuffer, lBlock->rd_ptr(), lCopied);
    lBlock->release();
    return lCopied;
}

std::size_t MessageQueue::takeOwnMemory(Lock& aLock, void* aBuffer, std::size_t aMaxSize) {
    MessageStore::OwnMemory lBytes;
    const std::size_t lSize = mStore.take(lBytes);
    uncount(lSize, lSize);
    wakeSenderAfterTaking();
    aLock.release();
    const std::size_t lCopied = std::min(lSize, aMaxSize);
    copyBytes(aBuffer, lBytes.get(), lCopied);
    return lCopied;
}

inline std::size_t MessageQueue::takeSmall(void* aBuffer, std::size_t aMaxSize) {
    const std::size_t lSize = mStore.take(aBuffer, aMaxSize);
    uncount(lSize, lSize);
    wakeSenderAfterTaking();
    return std::min(lSize, aMaxSize);
}

ACE_Message_Block* MessageQueue::removeHead() {
    ACE_Message_Block* const lBlock = head_;
    head_ = lBlock->next();
    if (head_ == nullptr) {
        tail_ = nullptr;
    } else {
        head_->prev(nullptr);
    }
    lBlock->next(nullptr);
    std::size_t lBytes = 0;
    std::size_t lLength = 0;
    lBlock->total_size_and_length(lBytes, lLength);
    uncount(lBytes, lLength);
    return lBlock;
}

void MessageQueue::uncount(std::size_t aBytes, std::size_t aLength) {
    cur_bytes_ -= aBytes;
    cur_length_ -= aLength;
    --cur_count_;
}

// --- waiting ----------------------------------------------------------------------------------

bool MessageQueue::isDeactivated() const {
    if (state_ != DEACTIVATED) {
        return false;
    }
    errno = ESHUTDOWN;
    return true;
}

bool MessageQueue::mayEnqueue() {
    return !isDeactivated() && (!is_full_i() || waitForRoom(nullptr) == 0);
}

bool MessageQueue::mayDequeue(unsigned long aTimeOutMs) {
    return !isDeactivated() && (!is_empty_i() || waitForMessage(aTimeOutMs) == 0);
}

int MessageQueue::waitForRoom(const Deadline* aDeadline) {
    return waitWhile([this] { return is_full_i(); }, mSenders, aDeadline);
}

int MessageQueue::waitForMessage(const Deadline* aDeadline) {
    return waitWhile([this] { return is_empty_i(); }, mReceivers, aDeadline);
}

int MessageQueue::waitForMessage(unsigned long aTimeOutMs) {
    if (static_cast<std::uint32_t>(aTimeOutMs) == 0 || isNoLimit(aTimeOutMs)) {
        return waitForMessage(nullptr);
    }
    const Deadline lDeadline = deadlineIn(aTimeOutMs);
    return waitForMessage(&lDeadline);
}

template <class Condition>
int MessageQueue::waitWhile(Condition aHolds, Waiters& aWaiters, const Deadline* aDeadline) {
    const unsigned int lDismissals = mDismissals;
    while (aHolds()) {
        const int lError = aWaiters.wait(lock_.lock(), aDeadline);
        if (mDismissals != lDismissals) {
            errno = ESHUTDOWN;
            return -1;
        }
        if (lError != 0 && aHolds()) {
            errno = lError == ETIMEDOUT ? EWOULDBLOCK : lError;
            return -1;
        }
    }
    return 0;
}

/// A sender that is woken and leaves room wakes the next one.
void MessageQueue::wakeSender() {
    if (mSenders.areThere() && !is_full_i()) {
        mSenders.wakeOne();
    }
}

void MessageQueue::wakeSenderAfterTaking() {
    if (mSenders.areThere() && cur_bytes_ <= low_water_mark_) {
        mSenders.wakeOne();
    }
}

void MessageQueue::wakeReceiver() {
    if (!is_empty_i()) {
        mReceivers.wakeOne();
    }
}

// --- messages as blocks -----------------------------------------------------------------------

bool MessageQueue::frontToBlock() {
    ACE_Message_Block* const lBlock = blockOf(mStore.front());
    if (lBlock == nullptr) {
        return false;
    }
    mStore.removeFront();
    lBlock->prev(tail_);
    if (tail_ == nullptr) {
        head_ = lBlock;
    } else {
        tail_->next(lBlock);
    }
    tail_ = lBlock;
    return true;
}

bool MessageQueue::storeToBlocks() {
    while (!mStore.isEmpty()) {
        if (!frontToBlock()) {
            return false;
        }
    }
    return true;
}

/// Whoever has been woken and does nothing for want of memory leaves it to the next one.
int MessageQueue::outOfMemory() {
    wakeSender();
    wakeReceiver();
    return -1;
}

// --- ACE's operations -------------------------------------------------------------------------

int MessageQueue::open(std::size_t aHighWaterMark, std::size_t aLowWaterMark,
                       ACE_Notification_Strategy* aStrategy) {
    const Lock lLock(lock_);
    flush_i();
    return Base::open(aHighWaterMark, aLowWaterMark, aStrategy);
}

/// What a thread was woken for is still there when it has only looked.
int MessageQueue::peek_dequeue_head(ACE_Message_Block*& aFirst, ACE_Time_Value* aDeadline) {
    const int lCount = Base::peek_dequeue_head(aFirst, aDeadline);
    const Lock lLock(lock_);
    wakeReceiver();
    return lCount;
}

int MessageQueue::flush_i() {
    int lFlushed = Base::flush_i();
    for (; !mStore.isEmpty(); ++lFlushed) {
        const std::size_t lSize = mStore.removeFront();
        uncount(lSize, lSize);
    }
    wakeSender();
    return lFlushed;
}

int MessageQueue::enqueue_i(ACE_Message_Block* aBlock) {
    return storeToBlocks() ? Base::enqueue_i(aBlock) : outOfMemory();
}

int MessageQueue::enqueue_deadline_i(ACE_Message_Block* aBlock) {
    return storeToBlocks() ? Base::enqueue_deadline_i(aBlock) : outOfMemory();
}

int MessageQueue::enqueue_tail_i(ACE_Message_Block* aBlock) {
    return storeToBlocks() ? Base::enqueue_tail_i(aBlock) : outOfMemory();
}

int MessageQueue::dequeue_prio_i(ACE_Message_Block*& aBlock) {
    return storeToBlocks() ? Base::dequeue_prio_i(aBlock) : outOfMemory();
}

int MessageQueue::dequeue_tail_i(ACE_Message_Block*& aBlock) {
    return storeToBlocks() ? Base::dequeue_tail_i(aBlock) : outOfMemory();
}

int MessageQueue::dequeue_deadline_i(ACE_Message_Block*& aBlock) {
    return storeToBlocks() ? Base::dequeue_deadline_i(aBlock) : outOfMemory();
}

int MessageQueue::deactivate_i(int aPulse) {
    const int lFormer = Base::deactivate_i(aPulse);
    if (lFormer != DEACTIVATED) {
        ++mDismissals;
        mSenders.wakeAll();
        mReceivers.wakeAll();
    }
    return lFormer;
}

int MessageQueue::wait_not_full_cond(ACE_Time_Value* aDeadline) {
    const auto lDeadline = deadlineAt(aDeadline);
    return waitForRoom(lDeadline ? &*lDeadline : nullptr);
}

/// Afterwards there is a block at the head.
int MessageQueue::wait_not_empty_cond(ACE_Time_Value* aDeadline) {
    const auto lDeadline = deadlineAt(aDeadline);
    if (waitForMessage(lDeadline ? &*lDeadline : nullptr) == -1) {
        return -1;
    }
    return head_ != nullptr || frontToBlock() ? 0 : outOfMemory();
}

int MessageQueue::signal_enqueue_waiters() {
    mSenders.wakeOne();
    return 0;
}

/// Runs after each enqueue of ACE's, which may have been one of several blocks.
int MessageQueue::signal_dequeue_waiters() {
    wakeSender();
    if (cur_count_ > 1) {
        mReceivers.wakeAll();
    } else {
        mReceivers.wakeOne();
    }
    return 0;
}

}  // namespace osx
