/// @file
/// The queue and the messages behind the message-queue calls.
#ifndef OSX_OSX_MESSAGEQUEUE_H
#define OSX_OSX_MESSAGEQUEUE_H

#include <cstddef>

#include "ace/Condition_Thread_Mutex.h"
#include "ace/Message_Block.h"
#include "ace/Message_Queue_T.h"
#include "ace/Monotonic_Time_Policy.h"
#include "ace/Synch_Traits.h"

namespace osx {

/// The part of a message that has to exist before its block.
struct MessageData {
    MessageData(const char* aBytes, std::size_t aSize);
    ACE_Data_Block mData;
};

/// A message block in one piece of memory with its data block and its bytes. Its size is exactly
/// the bytes, which is what the queue counts; `release()` frees everything.
class Message final : private MessageData, public ACE_Message_Block {
public:
    /// @return a message with a copy of the bytes; null with `errno` ENOMEM.
    static Message* create(const void* aData, std::size_t aSize) noexcept;

    /// What ACE's own comes to for a block in one piece, without the steps on the way.
    ACE_Message_Block* release() override;

    static void operator delete(void* aMemory) noexcept;

private:
    struct Payload {
        std::size_t size;
    };

    Message(const void* aData, std::size_t aSize);

    static void* operator new(std::size_t aSize, Payload aPayload) noexcept;
    static void operator delete(void* aMemory, Payload) noexcept;
};

/// ACE's queue, waiting by a clock that nobody sets, and without its lost wake-ups: when one
/// receive, or a flush, makes room for several senders, all of them go on. It signals only when
/// somebody waits.
class MessageQueue final : public ACE_Message_Queue<ACE_MT_SYNCH, ACE_Monotonic_Time_Policy> {
public:
    explicit MessageQueue(std::size_t aSize);

    /// `enqueue` for the messages of this library, which are single blocks of priority 0.
    /// @return the number of messages queued; -1, and the message stays the caller's, on failure.
    int put(Message& aMessage);

    /// @return the oldest message, to be released by the caller; null when none came in time.
    /// @param aTimeOutMs 0 and `OSX_INFINITE_TIMEOUT` mean no limit.
    ACE_Message_Block* take(unsigned long aTimeOutMs);

private:
    using Base = ACE_Message_Queue<ACE_MT_SYNCH, ACE_Monotonic_Time_Policy>;

    bool isDeactivated() const;
    void append(Message& aMessage);
    ACE_Message_Block* removeHead();
    int waitForMessage(unsigned long aTimeOutMs);

    int flush_i() override;
    int wait_not_full_cond(ACE_Time_Value* aDeadline) override;
    int wait_not_empty_cond(ACE_Time_Value* aDeadline) override;
    int signal_enqueue_waiters() override;
    int signal_dequeue_waiters() override;

    /// Senders and receivers that wait, guarded by the queue's lock.
    int mSenders = 0;
    int mReceivers = 0;
};

}  // namespace osx

#endif
