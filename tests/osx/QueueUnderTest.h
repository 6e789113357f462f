// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A message queue, by the library's calls and by ACE's operations.
#ifndef OSX_TESTS_OSX_QUEUEUNDERTEST_H
#define OSX_TESTS_OSX_QUEUEUNDERTEST_H

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>

#include "ace/Condition_Thread_Mutex.h"
#include "ace/Message_Block.h"
#include "ace/Message_Queue_T.h"
#include "ace/Synch_Traits.h"
#include "osx/osx.h"
#include "support/times.h"

namespace test {

using AceQueue = ACE_Message_Queue<ACE_MT_SYNCH>;

/// What a receive yields.
struct Received {
    unsigned int status = 99;
    std::string text;
    unsigned long size = 4711;
};

/// A queue for one test.
class Queue {
public:
    explicit Queue(unsigned long aSize = 1000, const char* aName = "queue") {
        EXPECT_EQ(OSX_OK, osxMsgQueueInit(aSize, 10, &mHandle, aName));
    }
    ~Queue() { EXPECT_EQ(OSX_OK, osxMsgQueueDelete(mHandle)); }
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    long send(const std::string& aText) {
        long lResult = -1;
        std::string lCopy = aText;
        EXPECT_EQ(OSX_OK, osxMsgSend(mHandle, lCopy.data(), lCopy.size(), &lResult));
        return lResult;
    }
    Received receive(unsigned long aMaxSize = 100, unsigned long aTimeOutMs = 0) {
        Received lReceived;
        std::string lBuffer(aMaxSize + 1, '#');
        lReceived.status =
            osxMsgRecv(mHandle, lBuffer.data(), aMaxSize, &lReceived.size, aTimeOutMs);
        EXPECT_EQ('#', lBuffer.back()) << "written past the buffer";
        if (lReceived.status == OSX_OK) {
            lReceived.text = lBuffer.substr(0, lReceived.size);
        }
        return lReceived;
    }
    unsigned int receiveStatus(unsigned long aTimeOutMs) { return receive(10, aTimeOutMs).status; }
    void* handle() const { return mHandle; }
    AceQueue& ace() const { return *static_cast<AceQueue*>(mHandle); }

private:
    void* mHandle = nullptr;
};

inline std::future<long> sendElsewhere(Queue& aQueue, const std::string& aText) {
    return std::async(std::launch::async, [&aQueue, aText] { return aQueue.send(aText); });
}

}  // namespace test

#endif
