#include "osx/messageQueue.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include "base/milliseconds.h"

namespace osx {

MessageData::MessageData(const char* aBytes, std::size_t aSize)
    : mData(aSize, ACE_Message_Block::MB_DATA, aBytes, nullptr, nullptr,
            ACE_Message_Block::DONT_DELETE, nullptr) {}

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
    auto* const lMessage = new (Payload{aSize}) Message(aData, aSize);
    if (lMessage == nullptr) {
        errno = ENOMEM;
    }
    return lMessage;
}

void* Message::operator new(std::size_t aSize, Payload aPayload) noexcept {
    if (aPayload.size > PTRDIFF_MAX - aSize) {
        return nullptr;
    }
    return ::operator new(aSize + aPayload.size, std::nothrow);
}

void Message::operator delete(void* aMemory) noexcept {
    ::operator delete(aMemory);
}

void Message::operator delete(void* aMemory, Payload) noexcept {
    ::operator delete(aMemory);
}

MessageQueue::MessageQueue(std::size_t aSize) : Base(aSize, aSize, nullptr) {}

ACE_Message_Block* MessageQueue::take(unsigned long aTimeOutMs) {
    const bool lNoLimit = static_cast<std::uint32_t>(aTimeOutMs) == 0 || isNoLimit(aTimeOutMs);
    ACE_Message_Block* lMessage = nullptr;
    if (lNoLimit) {
        return dequeue(lMessage) == -1 ? nullptr : lMessage;
    }
    ACE_Time_Value lDeadline = gettimeofday() + toTimeValue(aTimeOutMs);
    return dequeue(lMessage, &lDeadline) == -1 ? nullptr : lMessage;
}

int MessageQueue::flush_i() {
    const int lFlushed = Base::flush_i();
    signal_enqueue_waiters();
    return lFlushed;
}

/// Runs after each enqueue, under the queue's lock: a sender that leaves room wakes the next one.
int MessageQueue::signal_dequeue_waiters() {
    if (!is_full_i()) {
        signal_enqueue_waiters();
    }
    return Base::signal_dequeue_waiters();
}

}  // namespace osx
