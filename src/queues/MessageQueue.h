// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The queue behind the message-queue calls.
#ifndef OSX_QUEUES_MESSAGEQUEUE_H
#define OSX_QUEUES_MESSAGEQUEUE_H

#include <cstddef>
#include <memory>

#include "ace/Condition_Thread_Mutex.h"
#include "ace/Message_Block.h"
#include "ace/Message_Queue_T.h"
#include "ace/Synch_Traits.h"
#include "base/NoCancellation.h"
#include "base/threadAnnotations.h"
#include "queues/MessageStore.h"
#include "queues/QueueMutex.h"
#include "queues/Waiters.h"

namespace osx {

/// An ACE queue that keeps the messages of this library in a store, without a block for each.
///
/// The queue has two parts. First come the blocks in ACE's list, then the messages in the store.
/// ACE's own operations only know blocks. So a message becomes a block when it is at the head and
/// one of these operations takes it, or when an operation has to see the whole queue. The counts,
/// the marks, the state and the waiting are the same for both parts.
///
/// ACE's queue loses wake-ups: when one receive, or a flush, makes room for several senders, it
/// wakes one of them, or none. Here all of them go on. A thread signals only if another one waits.
class MessageQueue final : public ACE_Message_Queue<ACE_MT_SYNCH> {
public:
    explicit MessageQueue(std::size_t aSize);

    /// Copies a message into the queue, as `enqueue` does with a block of priority 0.
    /// @return the number of messages queued; -1 on failure, with the cause in `errno`.
    int send(const void* aBytes, std::size_t aSize) OSX_EXCLUDES(mMutex);

    /// Copies a message out of the queue, as `dequeue` does, but by the monotonic clock.
    /// @param[out] aReceived the number of bytes copied.
    /// @param aTimeOutMs 0 and `OSX_INFINITE_TIMEOUT` mean no limit.
    /// @return false when the time passed, or the queue was deactivated or pulsed; `errno` is
    ///         EWOULDBLOCK or ESHUTDOWN. Then nothing is written.
    bool receive(void* aBuffer, std::size_t aMaxSize, unsigned long& aReceived,
                 unsigned long aTimeOutMs) OSX_EXCLUDES(mMutex);

    int open(std::size_t aHighWaterMark, std::size_t aLowWaterMark,
             ACE_Notification_Strategy* aStrategy) override OSX_EXCLUDES(mMutex);
    int peek_dequeue_head(ACE_Message_Block*& aFirst, ACE_Time_Value* aDeadline) override
        OSX_EXCLUDES(mMutex);
    int flush_i() override OSX_REQUIRES(mMutex);

private:
    using Base = ACE_Message_Queue<ACE_MT_SYNCH>;

    /// For objects that ACE frees by a function of their own, which may come to locks and
    /// allocators of the application's. A destructor calls it, so a cancellation has to wait.
    struct Release {
        template <class T>
        void operator()(T* aObject) const {
            const NoCancellation lGuard;
            aObject->release();
        }
    };
    using Block = std::unique_ptr<ACE_Message_Block, Release>;
    using DataBlock = std::unique_ptr<ACE_Data_Block, Release>;

    /// What a sender needs after it has released the lock. From then on a receiver may delete the
    /// queue.
    struct Sent {
        std::size_t count;
        ACE_Notification_Strategy* strategy;
    };

    int sendInSegment(const void* aBytes, std::size_t aSize) OSX_RELEASE(mMutex);
    int sendOwnMemory(const void* aBytes, std::size_t aSize) OSX_EXCLUDES(mMutex);
    Sent countSent(std::size_t aSize) OSX_REQUIRES(mMutex);
    static int announce(const Sent& aSent);

    Block takeBlock() OSX_REQUIRES(mMutex);
    std::size_t takeOwnMemory(MessageStore::OwnMemory& aBytes) OSX_REQUIRES(mMutex);
    std::size_t takeFromSegment(void* aBuffer, std::size_t aMaxSize) OSX_REQUIRES(mMutex);
    Block removeHead() OSX_REQUIRES(mMutex);
    void uncount(std::size_t aBytes, std::size_t aLength) OSX_REQUIRES(mMutex);

    // Those that wait return 0, or the number of the error.
    int waitToEnqueue() OSX_REQUIRES(mMutex);
    int waitToDequeue(unsigned long aTimeOutMs) OSX_REQUIRES(mMutex);
    int waitForRoom(const Deadline* aDeadline) OSX_REQUIRES(mMutex);
    int waitForMessage(const Deadline* aDeadline) OSX_REQUIRES(mMutex);
    int waitForMessageMs(unsigned long aTimeOutMs) OSX_REQUIRES(mMutex);
    int waitWhile(bool (MessageQueue::*aHolds)(), Waiters& aWaiters, const Deadline* aDeadline)
        OSX_REQUIRES(mMutex);
    void wakeSenderIfRoom() OSX_REQUIRES(mMutex);
    void wakeSenderAfterTaking() OSX_REQUIRES(mMutex);
    void wakeReceiverIfMessage() OSX_REQUIRES(mMutex);

    static Block toBlock(const MessageStore::Message& aMessage);
    bool frontToBlock() OSX_REQUIRES(mMutex);
    bool storeToBlocks() OSX_REQUIRES(mMutex);
    int failForMemory() OSX_REQUIRES(mMutex);

    // What ACE's operations are made of. ACE calls them with the queue's lock.
    int enqueue_i(ACE_Message_Block* aBlock) override OSX_REQUIRES(mMutex);
    int enqueue_deadline_i(ACE_Message_Block* aBlock) override OSX_REQUIRES(mMutex);
    int enqueue_tail_i(ACE_Message_Block* aBlock) override OSX_REQUIRES(mMutex);
    int dequeue_prio_i(ACE_Message_Block*& aBlock) override OSX_REQUIRES(mMutex);
    int dequeue_tail_i(ACE_Message_Block*& aBlock) override OSX_REQUIRES(mMutex);
    int dequeue_deadline_i(ACE_Message_Block*& aBlock) override OSX_REQUIRES(mMutex);
    bool is_empty_i() override OSX_REQUIRES(mMutex) { return cur_count_ == 0; }
    bool is_full_i() override OSX_REQUIRES(mMutex) { return cur_bytes_ >= high_water_mark_; }
    int deactivate_i(int aPulse) override OSX_REQUIRES(mMutex);
    int wait_not_full_cond(ACE_Time_Value* aDeadline) override OSX_REQUIRES(mMutex);
    int wait_not_empty_cond(ACE_Time_Value* aDeadline) override OSX_REQUIRES(mMutex);
    int signal_enqueue_waiters() override OSX_REQUIRES(mMutex);
    int signal_dequeue_waiters() override OSX_REQUIRES(mMutex);

    /// ACE's lock of the queue, `lock_`. It guards the members below, and ACE's.
    QueueMutex mMutex;
    /// The messages behind ACE's blocks.
    MessageStore mStore OSX_GUARDED_BY(mMutex);
    /// Threads that wait for room.
    Waiters mSenders OSX_GUARDED_BY(mMutex);
    /// Threads that wait for a message.
    Waiters mReceivers OSX_GUARDED_BY(mMutex);
    /// How often all who waited were sent away, by a deactivation or a pulse. The state alone does
    /// not tell a waiter: it may have changed back before the waiter looks, and a pulse leaves it
    /// changed for ever.
    unsigned int mDismissals OSX_GUARDED_BY(mMutex) = 0;
};

}  // namespace osx

#endif
