/// @file
/// The queue behind the message-queue calls.
#ifndef OSX_QUEUES_MESSAGEQUEUE_H
#define OSX_QUEUES_MESSAGEQUEUE_H

#include <cstddef>

#include "ace/Condition_Thread_Mutex.h"
#include "ace/Message_Block.h"
#include "ace/Message_Queue_T.h"
#include "ace/Synch_Traits.h"
#include "queues/MessageStore.h"
#include "queues/Waiters.h"

namespace osx {

/// ACE's queue with a store for the messages of this library. First come the blocks in ACE's list,
/// then the messages in the store. ACE's own operations find blocks: a message becomes one when it
/// comes to the head for one of them, or when one needs to see the whole queue. What is counted,
/// the marks, the state and the waiting are the same for both.
///
/// It is without ACE's lost wake-ups: when one receive, or a flush, makes room for several senders,
/// all of them go on. It signals only when somebody waits.
class MessageQueue final : public ACE_Message_Queue<ACE_MT_SYNCH> {
public:
    explicit MessageQueue(std::size_t aSize);

    /// `enqueue` of a copy, of priority 0.
    /// @return the number of messages queued; -1 on failure, with the cause in `errno`.
    int send(const void* aBytes, std::size_t aSize);

    /// `dequeue` into a buffer, by the monotonic clock.
    /// @param aTimeOutMs 0 and `OSX_INFINITE_TIMEOUT` mean no limit.
    /// @return false when no message came in time; then nothing is written.
    bool receive(void* aBuffer, std::size_t aMaxSize, unsigned long& aReceived,
                 unsigned long aTimeOutMs);

    int open(std::size_t aHighWaterMark, std::size_t aLowWaterMark,
             ACE_Notification_Strategy* aStrategy) override;
    int peek_dequeue_head(ACE_Message_Block*& aFirst, ACE_Time_Value* aDeadline) override;
    int flush_i() override;

private:
    using Base = ACE_Message_Queue<ACE_MT_SYNCH>;

    class Lock;

    int sendOwnMemory(const void* aBytes, std::size_t aSize);
    int announce(Lock& aLock, std::size_t aSize);
    std::size_t takeBlock(Lock& aLock, void* aBuffer, std::size_t aMaxSize);
    std::size_t takeOwnMemory(Lock& aLock, void* aBuffer, std::size_t aMaxSize);
    std::size_t takeSmall(void* aBuffer, std::size_t aMaxSize);
    ACE_Message_Block* removeHead();
    void uncount(std::size_t aBytes, std::size_t aLength);

    bool isDeactivated() const;
    bool mayEnqueue();
    bool mayDequeue(unsigned long aTimeOutMs);
    int waitForRoom(const Deadline* aDeadline);
    int waitForMessage(const Deadline* aDeadline);
    int waitForMessage(unsigned long aTimeOutMs);
    template <class Condition>
    int waitWhile(Condition aHolds, Waiters& aWaiters, const Deadline* aDeadline);
    void wakeSender();
    void wakeSenderAfterTaking();
    void wakeReceiver();

    bool frontToBlock();
    bool storeToBlocks();
    int outOfMemory();

    // What ACE's operations are made of. They run under the queue's lock.
    int enqueue_i(ACE_Message_Block* aBlock) override;
    int enqueue_deadline_i(ACE_Message_Block* aBlock) override;
    int enqueue_tail_i(ACE_Message_Block* aBlock) override;
    int dequeue_prio_i(ACE_Message_Block*& aBlock) override;
    int dequeue_tail_i(ACE_Message_Block*& aBlock) override;
    int dequeue_deadline_i(ACE_Message_Block*& aBlock) override;
    bool is_empty_i() override { return cur_count_ == 0; }
    bool is_full_i() override { return cur_bytes_ >= high_water_mark_; }
    int deactivate_i(int aPulse) override;
    int wait_not_full_cond(ACE_Time_Value* aDeadline) override;
    int wait_not_empty_cond(ACE_Time_Value* aDeadline) override;
    int signal_enqueue_waiters() override;
    int signal_dequeue_waiters() override;

    MessageStore mStore;
    Waiters mSenders;
    Waiters mReceivers;
    /// How often everybody who waited was sent away. The state alone does not tell: it may have
    /// changed back before a waiter looks at it, and a pulse leaves it changed for ever.
    unsigned int mDismissals = 0;
};

}  // namespace osx

#endif
