#include "osx/messageQueue.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include "ace/Guard_T.h"
#include "ace/Malloc_Base.h"
#include "ace/Truncate.h"
#include "base/allocate.h"
#include "base/milliseconds.h"

namespace osx {

namespace {

/// Never asked for memory. A data block that is given none looks for ACE's own, each time.
ACE_Allocator* noAllocator() {
    static ACE_Allocator* const lAllocator = ACE_Allocator::instance();
    return lAllocator;
}

/// Counts a thread while it waits, also when it is cancelled there.
class Waiting {
public:
    explicit Waiting(int& aCount) : mCount(aCount) { ++mCount; }
    ~Waiting() { --mCount; }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

private:
    int& mCount;
};

}  // namespace

MessageData::MessageData(const char* aBytes, std::size_t aSize)
    : mData(aSize, ACE_Message_Block::MB_DATA, aBytes, noAllocator(), nullptr,
            ACE_Message_Block::DONT_DELETE, noAllocator()) {}

// The block's DONT_DELETE keeps it from releasing the data block, which is a part of this object.
Message::Message(const void* aData, std::size_t aSize)
    : MessageData(reinterpret_cast<const char*>(this + 1), aSize),
      ACE_Message_Block(&mData, ACE_Message_Block::DONT_DELETE) {
    if (aSize > 0) {
        std::memcpy(wr_ptr(), aData, aSize);
        wr_ptr(aSize);
    }
}

Message* Message::create(const void* aData, std::size_t aSize) noexcept {
    return new (Payload{aSize}) Message(aData, aSize);
}

ACE_Message_Block* Message::release() {
    delete this;
    return nullptr;
}

void* Message::operator new(std::size_t aSize, Payload aPayload) noexcept {
    if (aPayload.size > PTRDIFF_MAX - aSize) {
        errno = ENOMEM;
        return nullptr;
    }
    return allocateMemory(aSize + aPayload.size);
}

void Message::operator delete(void* aMemory) noexcept {
    ::operator delete(aMemory);
}

void Message::operator delete(void* aMemory, Payload) noexcept {
    ::operator delete(aMemory);
}

MessageQueue::MessageQueue(std::size_t aSize) : Base(aSize, aSize, nullptr) {}

int MessageQueue::put(Message& aMessage) {
    const ACE_Guard<ACE_Thread_Mutex> lGuard(lock_);
    if (isDeactivated() || (is_full_i() && wait_not_full_cond(nullptr) == -1)) {
        return -1;
    }
    append(aMessage);
    return signal_dequeue_waiters() == -1 ? -1 : ACE_Utils::truncate_cast<int>(cur_count_);
}

ACE_Message_Block* MessageQueue::take(unsigned long aTimeOutMs) {
    const ACE_Guard<ACE_Thread_Mutex> lGuard(lock_);
    if (isDeactivated() || (is_empty_i() && waitForMessage(aTimeOutMs) == -1)) {
        return nullptr;
    }
    ACE_Message_Block* const lMessage = removeHead();
    if (!is_full_i()) {
        signal_enqueue_waiters();
    }
    return lMessage;
}

bool MessageQueue::isDeactivated() const {
    if (state_ != DEACTIVATED) {
        return false;
    }
    errno = ESHUTDOWN;
    return true;
}

void MessageQueue::append(Message& aMessage) {
    aMessage.prev(tail_);
    if (tail_ == nullptr) {
        head_ = &aMessage;
    } else {
        tail_->next(&aMessage);
    }
    tail_ = &aMessage;
    cur_bytes_ += aMessage.length();
    cur_length_ += aMessage.length();
    ++cur_count_;
}

ACE_Message_Block* MessageQueue::removeHead() {
    ACE_Message_Block* const lMessage = head_;
    head_ = lMessage->next();
    if (head_ == nullptr) {
        tail_ = nullptr;
    } else {
        head_->prev(nullptr);
    }
    lMessage->next(nullptr);
    std::size_t lBytes = 0;
    std::size_t lLength = 0;
    lMessage->total_size_and_length(lBytes, lLength);
    cur_bytes_ -= lBytes;
    cur_length_ -= lLength;
    --cur_count_;
    return lMessage;
}

int MessageQueue::waitForMessage(unsigned long aTimeOutMs) {
    if (static_cast<std::uint32_t>(aTimeOutMs) == 0 || isNoLimit(aTimeOutMs)) {
        return wait_not_empty_cond(nullptr);
    }
    ACE_Time_Value lDeadline = gettimeofday() + toTimeValue(aTimeOutMs);
    return wait_not_empty_cond(&lDeadline);
}

int MessageQueue::flush_i() {
    const int lFlushed = Base::flush_i();
    signal_enqueue_waiters();
    return lFlushed;
}

int MessageQueue::wait_not_full_cond(ACE_Time_Value* aDeadline) {
    const Waiting lWaiting(mSenders);
    return Base::wait_not_full_cond(aDeadline);
}

int MessageQueue::wait_not_empty_cond(ACE_Time_Value* aDeadline) {
    const Waiting lWaiting(mReceivers);
    return Base::wait_not_empty_cond(aDeadline);
}

int MessageQueue::signal_enqueue_waiters() {
    return mSenders == 0 ? 0 : Base::signal_enqueue_waiters();
}

/// Runs after each enqueue, under the queue's lock: a sender that leaves room wakes the next one.
int MessageQueue::signal_dequeue_waiters() {
    if (!is_full_i()) {
        signal_enqueue_waiters();
    }
    return mReceivers == 0 ? 0 : Base::signal_dequeue_waiters();
}

}  // namespace osx
