// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "client/Event.h"

#include <algorithm>
#include <cstring>

#include "ace/Condition_Thread_Mutex.h"
#include "ace/Message_Queue.h"
#include "common/Failure.h"
#include "osx/osx.h"

namespace command {

namespace {

constexpr unsigned long kQueuedBytes = 1024UL * 1024UL;

/// Of a mark: addresses and reasons are shorter.
constexpr std::size_t kLongestReason = 1024;

/// What precedes the text in the queue.
struct Head {
    std::uint64_t count;
    std::int64_t time;
    std::uint32_t device;
    Kind kind;
};

}  // namespace

EventQueue::EventQueue(std::size_t aLongest)
    : mBuffer(sizeof(Head) + std::max(aLongest, kLongestReason)) {
    if (osxMsgQueueInit(kQueuedBytes, 0, &mQueue, "events") != OSX_OK) {
        fail("cannot start: no memory");
    }
}

EventQueue::~EventQueue() {
    osxMsgQueueDelete(mQueue);
}

void EventQueue::put(const Event& aEvent) {
    Head lHead{};
    lHead.count = aEvent.count;
    lHead.time = aEvent.time.time_since_epoch().count();
    lHead.device = aEvent.device;
    lHead.kind = aEvent.kind;
    std::string lMessage(reinterpret_cast<const char*>(&lHead), sizeof lHead);
    lMessage += aEvent.text;
    osxMsgSend(mQueue, lMessage.data(), lMessage.size(), nullptr);
}

bool EventQueue::take(Event& aEvent, unsigned long aLimitMs) {
    unsigned long lSize = 0;
    if (osxMsgRecv(mQueue, mBuffer.data(), mBuffer.size(), &lSize, aLimitMs) != OSX_OK) {
        return false;
    }
    Head lHead{};
    std::memcpy(&lHead, mBuffer.data(), sizeof lHead);
    aEvent.kind = lHead.kind;
    aEvent.device = lHead.device;
    aEvent.count = lHead.count;
    aEvent.time = Moment(std::chrono::microseconds(lHead.time));
    aEvent.text.assign(mBuffer.data() + sizeof lHead, lSize - sizeof lHead);
    return true;
}

bool EventQueue::isEmpty() const {
    return static_cast<ACE_Message_Queue<ACE_MT_SYNCH>*>(mQueue)->is_empty();
}

}  // namespace command
