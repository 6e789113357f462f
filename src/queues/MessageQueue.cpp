// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A message queue: ACE's list of blocks with a store of messages behind it.
//
// The library's own `send` and `receive` copy straight into the store and out of it, which takes a
// fraction of the time that ACE needs for its three allocations a message. Whatever an application
// does with ACE's operations goes through the functions that ACE lets a queue override, and turns
// messages into blocks as far as it has to.
#include "queues/MessageQueue.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <new>
#include <optional>

#include "ace/Malloc_Base.h"
#include "ace/Notification_Strategy.h"
#include "ace/Truncate.h"
#include "base/allocate.h"
#include "base/milliseconds.h"

namespace osx {

namespace {

// In bytes. A large message has memory of its own, so that nobody waits for the lock while it is
// copied. So has a medium one where the lock is not free at once; where it is, an allocation would
// take longer than the copy.
constexpr std::size_t kMedium = 512;
constexpr std::size_t kLarge = 4096;

int failWith(int aError) {
    errno = aError;
    return -1;
}

/// @return null without memory. No message can be as large as half of what can be addressed,
///         because the sender's own bytes are there, too.
MessageStore::OwnMemory copyOf(const void* aBytes, std::size_t aSize) {
    if (aSize >= PTRDIFF_MAX) {
        return nullptr;
    }
    MessageStore::OwnMemory lCopy(allocateBytes(aSize));
    if (lCopy != nullptr) {
        copyBytes(lCopy.get(), aBytes, aSize);
    }
    return lCopy;
}

/// Copies as much of a message as there is room for.
/// @return the number of bytes copied.
std::size_t copyCut(void* aBuffer, std::size_t aMaxSize, const char* aBytes, std::size_t aSize) {
    const std::size_t lCopied = std::min(aSize, aMaxSize);
    copyBytes(aBuffer, aBytes, lCopied);
    return lCopied;
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

/// @return the deadline of an ACE operation, which is by the wall clock.
std::optional<Deadline> deadlineAt(const ACE_Time_Value* aTime) {
    if (aTime == nullptr) {
        return std::nullopt;
    }
    return Deadline{CLOCK_REALTIME, *aTime};
}

}  // namespace

MessageQueue::MessageQueue(std::size_t aSize) : Base(aSize, aSize, nullptr), mMutex(lock_) {}

// --- send -------------------------------------------------------------------------------------

int MessageQueue::send(const void* aBytes, std::size_t aSize) {
    if (aSize < kMedium) {
        mMutex.lock();
    } else if (aSize >= kLarge || !mMutex.tryLock()) {
        return sendOwnMemory(aBytes, aSize);
    }
    return sendInSegment(aBytes, aSize);
}

inline int MessageQueue::sendInSegment(const void* aBytes, std::size_t aSize) {
    QueueLock lLock(mMutex, QueueLock::kHeld);
    if (const int lError = waitToEnqueue(); lError != 0) {
        return failWith(lError);
    }
    if (!mStore.append(aBytes, aSize)) {
        return failForMemory();
    }
    const Sent lSent = countSent(aSize);
    lLock.unlock();
    return announce(lSent);
}

int MessageQueue::sendOwnMemory(const void* aBytes, std::size_t aSize) {
    // Freed also when the thread is cancelled while it waits for room.
    MessageStore::OwnMemory lCopy = copyOf(aBytes, aSize);
    if (lCopy == nullptr) {
        return failWith(ENOMEM);
    }
    QueueLock lLock(mMutex);
    if (const int lError = waitToEnqueue(); lError != 0) {
        return failWith(lError);
    }
    if (!mStore.append(lCopy, aSize)) {
        return failForMemory();
    }
    const Sent lSent = countSent(aSize);
    lLock.unlock();
    return announce(lSent);
}

/// Counts a message that has been stored, and wakes those whom it concerns.
inline MessageQueue::Sent MessageQueue::countSent(std::size_t aSize) {
    cur_bytes_ += aSize;
    cur_length_ += aSize;
    ++cur_count_;
    wakeSenderIfRoom();
    mReceivers.wakeOne();
    return {cur_count_, notification_strategy_};
}

/// @return the number of messages queued.
inline int MessageQueue::announce(const Sent& aSent) {
    if (aSent.strategy != nullptr) {
        aSent.strategy->notify();
    }
    return ACE_Utils::truncate_cast<int>(aSent.count);
}

// --- receive ----------------------------------------------------------------------------------

bool MessageQueue::receive(void* aBuffer, std::size_t aMaxSize, unsigned long& aReceived,
                           unsigned long aTimeOutMs) {
    QueueLock lLock(mMutex);
    if (const int lError = waitToDequeue(aTimeOutMs); lError != 0) {
        errno = lError;
        return false;
    }
    if (head_ != nullptr) {
        const Block lBlock = takeBlock();
        lLock.unlock();
        aReceived = copyCut(aBuffer, aMaxSize, lBlock->rd_ptr(), lBlock->length());
    } else if (mStore.frontHasOwnMemory()) {
        MessageStore::OwnMemory lBytes;
        const std::size_t lSize = takeOwnMemory(lBytes);
        lLock.unlock();
        aReceived = copyCut(aBuffer, aMaxSize, lBytes.get(), lSize);
    } else {
        aReceived = takeFromSegment(aBuffer, aMaxSize);
    }
    return true;
}

MessageQueue::Block MessageQueue::takeBlock() {
    Block lBlock = removeHead();
    wakeSenderAfterTaking();
    return lBlock;
}

/// @return the message's size.
std::size_t MessageQueue::takeOwnMemory(MessageStore::OwnMemory& aBytes) {
    const std::size_t lSize = mStore.take(aBytes);
    uncount(lSize, lSize);
    wakeSenderAfterTaking();
    return lSize;
}

/// @return the number of bytes copied.
inline std::size_t MessageQueue::takeFromSegment(void* aBuffer, std::size_t aMaxSize) {
    const std::size_t lSize = mStore.take(aBuffer, aMaxSize);
    uncount(lSize, lSize);
    wakeSenderAfterTaking();
    return std::min(lSize, aMaxSize);
}

MessageQueue::Block MessageQueue::removeHead() {
    Block lBlock(head_);
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

int MessageQueue::waitToEnqueue() {
    if (state_ == DEACTIVATED) {
        return ESHUTDOWN;
    }
    return is_full_i() ? waitForRoom(nullptr) : 0;
}

int MessageQueue::waitToDequeue(unsigned long aTimeOutMs) {
    if (state_ == DEACTIVATED) {
        return ESHUTDOWN;
    }
    return is_empty_i() ? waitForMessageMs(aTimeOutMs) : 0;
}

int MessageQueue::waitForRoom(const Deadline* aDeadline) {
    return waitWhile(&MessageQueue::is_full_i, mSenders, aDeadline);
}

int MessageQueue::waitForMessage(const Deadline* aDeadline) {
    return waitWhile(&MessageQueue::is_empty_i, mReceivers, aDeadline);
}

int MessageQueue::waitForMessageMs(unsigned long aTimeOutMs) {
    if (static_cast<std::uint32_t>(aTimeOutMs) == 0 || isNoLimit(aTimeOutMs)) {
        return waitForMessage(nullptr);
    }
    const Deadline lDeadline = deadlineIn(aTimeOutMs);
    return waitForMessage(&lDeadline);
}

/// Waits while a condition holds, until the deadline or a dismissal. A dismissal comes before the
/// condition, as in ACE: every thread that waited then leaves, even if a message or room has come
/// meanwhile. ACE's word for a time-out is EWOULDBLOCK.
int MessageQueue::waitWhile(bool (MessageQueue::*aHolds)(), Waiters& aWaiters,
                            const Deadline* aDeadline) {
    const unsigned int lDismissals = mDismissals;
    while ((this->*aHolds)()) {
        const int lError = aWaiters.wait(mMutex, aDeadline);
        if (mDismissals != lDismissals) {
            return ESHUTDOWN;
        }
        if (lError != 0 && (this->*aHolds)()) {
            return lError == ETIMEDOUT ? EWOULDBLOCK : lError;
        }
    }
    return 0;
}

/// A receive wakes one sender only. If that one leaves room, it wakes the next.
void MessageQueue::wakeSenderIfRoom() {
    if (mSenders.areThere() && !is_full_i()) {
        mSenders.wakeOne();
    }
}

void MessageQueue::wakeSenderAfterTaking() {
    if (mSenders.areThere() && cur_bytes_ <= low_water_mark_) {
        mSenders.wakeOne();
    }
}

void MessageQueue::wakeReceiverIfMessage() {
    if (!is_empty_i()) {
        mReceivers.wakeOne();
    }
}

// --- messages as blocks -----------------------------------------------------------------------

/// Makes an ordinary block. It does so piece by piece, because ACE's own constructor would write a
/// line when memory is short, and that with the queue's lock held. ACE frees the pieces.
/// @return null without memory.
MessageQueue::Block MessageQueue::toBlock(const MessageStore::Message& aMessage) {
    ACE_Allocator* const lAllocator = ACE_Allocator::instance();
    void* const lMemory = lAllocator->malloc(sizeof(ACE_Data_Block));
    if (lMemory == nullptr) {
        return nullptr;
    }
    DataBlock lData(new (lMemory) ACE_Data_Block(aMessage.size, ACE_Message_Block::MB_DATA, nullptr,
                                                 lAllocator, nullptr, 0, lAllocator));
    if (lData->base() == nullptr && aMessage.size != 0) {
        return nullptr;
    }
    Block lBlock(allocate<ACE_Message_Block>(lData.get()).release());
    if (lBlock == nullptr) {
        return nullptr;
    }
    static_cast<void>(lData.release());  // the block's from now on
    copyBytes(lBlock->wr_ptr(), aMessage.bytes, aMessage.size);
    lBlock->wr_ptr(aMessage.size);
    return lBlock;
}

/// Moves the first message of the store to the end of ACE's list.
/// @return false without memory.
bool MessageQueue::frontToBlock() {
    Block lBlock = toBlock(mStore.front());
    if (lBlock == nullptr) {
        return false;
    }
    mStore.removeFront();
    lBlock->prev(tail_);
    if (tail_ == nullptr) {
        head_ = lBlock.get();
    } else {
        tail_->next(lBlock.get());
    }
    tail_ = lBlock.release();
    return true;
}

/// @return false without memory; messages that did not become blocks are still in the store.
bool MessageQueue::storeToBlocks() {
    while (!mStore.isEmpty()) {
        if (!frontToBlock()) {
            return false;
        }
    }
    return true;
}

/// A thread that was woken, but cannot go on without memory, wakes the next one instead.
/// @return -1 with `errno` ENOMEM.
int MessageQueue::failForMemory() {
    wakeSenderIfRoom();
    wakeReceiverIfMessage();
    return failWith(ENOMEM);
}

// --- ACE's operations -------------------------------------------------------------------------

int MessageQueue::open(std::size_t aHighWaterMark, std::size_t aLowWaterMark,
                       ACE_Notification_Strategy* aStrategy) {
    const QueueLock lLock(mMutex);
    flush_i();
    return Base::open(aHighWaterMark, aLowWaterMark, aStrategy);
}

/// A thread that has only looked leaves the message that it was woken for, so it wakes the next.
int MessageQueue::peek_dequeue_head(ACE_Message_Block*& aFirst, ACE_Time_Value* aDeadline) {
    const int lCount = Base::peek_dequeue_head(aFirst, aDeadline);
    const QueueLock lLock(mMutex);
    wakeReceiverIfMessage();
    return lCount;
}

int MessageQueue::flush_i() {
    int lFlushed = Base::flush_i();
    for (; !mStore.isEmpty(); ++lFlushed) {
        const std::size_t lSize = mStore.removeFront();
        uncount(lSize, lSize);
    }
    wakeSenderIfRoom();
    return lFlushed;
}

int MessageQueue::enqueue_i(ACE_Message_Block* aBlock) {
    return storeToBlocks() ? Base::enqueue_i(aBlock) : failForMemory();
}

int MessageQueue::enqueue_deadline_i(ACE_Message_Block* aBlock) {
    return storeToBlocks() ? Base::enqueue_deadline_i(aBlock) : failForMemory();
}

int MessageQueue::enqueue_tail_i(ACE_Message_Block* aBlock) {
    return storeToBlocks() ? Base::enqueue_tail_i(aBlock) : failForMemory();
}

int MessageQueue::dequeue_prio_i(ACE_Message_Block*& aBlock) {
    return storeToBlocks() ? Base::dequeue_prio_i(aBlock) : failForMemory();
}

int MessageQueue::dequeue_tail_i(ACE_Message_Block*& aBlock) {
    return storeToBlocks() ? Base::dequeue_tail_i(aBlock) : failForMemory();
}

int MessageQueue::dequeue_deadline_i(ACE_Message_Block*& aBlock) {
    return storeToBlocks() ? Base::dequeue_deadline_i(aBlock) : failForMemory();
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
    const int lError = waitForRoom(lDeadline ? &*lDeadline : nullptr);
    return lError == 0 ? 0 : failWith(lError);
}

/// ACE's operations that wait here take the block at the head, so there has to be one.
int MessageQueue::wait_not_empty_cond(ACE_Time_Value* aDeadline) {
    const auto lDeadline = deadlineAt(aDeadline);
    if (const int lError = waitForMessage(lDeadline ? &*lDeadline : nullptr); lError != 0) {
        return failWith(lError);
    }
    return head_ != nullptr || frontToBlock() ? 0 : failForMemory();
}

int MessageQueue::signal_enqueue_waiters() {
    mSenders.wakeOne();
    return 0;
}

/// ACE calls it after each of its enqueues, which may have brought a chain of several blocks.
int MessageQueue::signal_dequeue_waiters() {
    wakeSenderIfRoom();
    if (cur_count_ > 1) {
        mReceivers.wakeAll();
    } else {
        mReceivers.wakeOne();
    }
    return 0;
}

}  // namespace osx
