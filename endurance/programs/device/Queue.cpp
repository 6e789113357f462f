// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "Queue.h"

namespace device {

namespace {

constexpr unsigned long kCapacity = 4096;
constexpr unsigned long kSendEveryMs = 5;
constexpr unsigned long kReceiveLimitMs = 100;  // so that the receiver can be ended

}  // namespace

Queue::Queue() {
    osxMsgQueueInit(kCapacity, 0, &mHandle, "device");
    mReceiver = std::make_unique<Task>(receive, this, 0);
    mSender = std::make_unique<Task>(send, this, kSendEveryMs);
}

Queue::~Queue() {
    mSender.reset();
    mReceiver.reset();
    osxMsgQueueDelete(mHandle);
}

/// A message that could not be sent, for want of memory, is sent again.
void Queue::send(void* aQueue) {
    auto* const lQueue = static_cast<Queue*>(aQueue);
    unsigned int lNumber = lQueue->mSent + 1;
    long lResult = 0;
    if (osxMsgSend(lQueue->mHandle, &lNumber, sizeof lNumber, &lResult) == OSX_OK && lResult > 0) {
        lQueue->mSent = lNumber;
    }
}

void Queue::receive(void* aQueue) {
    auto* const lQueue = static_cast<Queue*>(aQueue);
    unsigned int lNumber = 0;
    unsigned long lReceived = 0;
    if (osxMsgRecv(lQueue->mHandle, &lNumber, sizeof lNumber, &lReceived, kReceiveLimitMs) ==
        OSX_OK) {
        lQueue->mWrong += lNumber == ++lQueue->mLast ? 0 : 1;
        lQueue->mLast = lNumber;
        ++lQueue->mReceived;
    }
}

}  // namespace device
