// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <future>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ace/Condition_Thread_Mutex.h"
#include "ace/Message_Block.h"
#include "ace/Message_Queue_T.h"
#include "ace/Synch_Traits.h"
#include "osx/FakeHost.h"
#include "osx/QueueUnderTest.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/cancellation.h"
#include "support/logMatchers.h"
#include "support/sleeps.h"
#include "support/waitUntil.h"

using std::chrono::milliseconds;
using test::isStillWaiting;
using test::Queue;
using test::Received;
using test::sendElsewhere;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(MessageQueue, DeliversInTheOrderOfTheSends) {
    Queue lQueue;
    EXPECT_EQ(1, lQueue.send("first"));
    EXPECT_EQ(2, lQueue.send("second"));
    EXPECT_EQ(3, lQueue.send("third"));
    EXPECT_EQ("first", lQueue.receive().text);
    EXPECT_EQ("second", lQueue.receive().text);
    EXPECT_EQ(2, lQueue.send("fourth"));
    EXPECT_EQ("third", lQueue.receive().text);
    EXPECT_EQ("fourth", lQueue.receive().text);
}

TEST(MessageQueue, CopiesTheBytesOfTheSender) {
    Queue lQueue;
    std::string lText = "before";
    EXPECT_EQ(OSX_OK, osxMsgSend(lQueue.handle(), lText.data(), lText.size(), nullptr));
    lText = "after!";
    EXPECT_EQ("before", lQueue.receive().text);
}

TEST(MessageQueue, KeepsEveryByteValue) {
    Queue lQueue;
    std::string lText(256, '\0');
    std::iota(lText.begin(), lText.end(), '\0');
    lQueue.send(lText);
    EXPECT_EQ(lText, lQueue.receive(1000).text);
}

TEST(MessageQueue, CutsALongMessageToTheBuffer) {
    Queue lQueue;
    lQueue.send("hello");
    lQueue.send("next");
    const Received lReceived = lQueue.receive(3);
    EXPECT_EQ(OSX_OK, lReceived.status);
    EXPECT_EQ(3U, lReceived.size);
    EXPECT_EQ("hel", lReceived.text);
    EXPECT_EQ("next", lQueue.receive(3 + 1).text);
}

TEST(MessageQueue, CarriesMessagesOfNoBytes) {
    Queue lQueue;
    long lResult = -1;
    EXPECT_EQ(OSX_OK, osxMsgSend(lQueue.handle(), nullptr, 0, &lResult));
    EXPECT_EQ(1, lResult);
    const Received lReceived = lQueue.receive();
    EXPECT_EQ(OSX_OK, lReceived.status);
    EXPECT_EQ(0U, lReceived.size);
}

TEST(MessageQueue, TakesAMessageIntoNoBufferAtAll) {
    Queue lQueue;
    lQueue.send("hello");
    unsigned long lSize = 99;
    EXPECT_EQ(OSX_OK, osxMsgRecv(lQueue.handle(), nullptr, 0, &lSize, 0));
    EXPECT_EQ(0U, lSize);
    EXPECT_EQ(OSX_ERR_QUEUE_RECV, lQueue.receiveStatus(1));
}

TEST(MessageQueue, CountsExactlyTheBytesOfItsMessages) {
    Queue lQueue;
    lQueue.send("12345");
    lQueue.send("");
    lQueue.send("123");
    EXPECT_EQ(8U, lQueue.ace().message_bytes());
    EXPECT_EQ(8U, lQueue.ace().message_length());
    lQueue.receive();
    EXPECT_EQ(3U, lQueue.ace().message_bytes());
}

TEST(MessageQueue, TakesOneMessageOfAnySizeAndThenHoldsTheNextSender) {
    Queue lQueue(10);
    EXPECT_EQ(1, lQueue.send(std::string(50, 'x')));
    auto lSender = sendElsewhere(lQueue, "next");
    EXPECT_TRUE(isStillWaiting(lSender));
    EXPECT_EQ(50U, lQueue.receive().size);
    EXPECT_EQ(1, lSender.get());
    EXPECT_EQ("next", lQueue.receive().text);
}

TEST(MessageQueue, IsFullAtExactlyItsSize) {
    Queue lQueue(10);
    EXPECT_EQ(1, lQueue.send("123456789"));
    EXPECT_EQ(2, lQueue.send("0"));
    auto lSender = sendElsewhere(lQueue, "");
    EXPECT_TRUE(isStillWaiting(lSender));
    lQueue.receive();
    EXPECT_EQ(2, lSender.get());
}

TEST(MessageQueue, LetsEverySenderGoOnThatOneReceiveMadeRoomFor) {
    Queue lQueue(10);
    lQueue.send(std::string(50, 'x'));
    std::vector<std::future<long>> lSenders;
    for (int lCount = 0; lCount < 5; ++lCount) {
        lSenders.push_back(sendElsewhere(lQueue, "y"));
    }
    EXPECT_TRUE(isStillWaiting(lSenders.back()));
    lQueue.receive();
    for (auto& lSender : lSenders) {
        EXPECT_LT(0, lSender.get());
    }
}

TEST(MessageQueue, FlushDiscardsEverythingAndLetsEverySenderGoOn) {
    Queue lQueue(10);
    lQueue.send("123456");
    lQueue.send("7890");
    auto lFirst = sendElsewhere(lQueue, "a");
    auto lSecond = sendElsewhere(lQueue, "a");
    EXPECT_TRUE(isStillWaiting(lFirst));
    EXPECT_TRUE(isStillWaiting(lSecond));
    EXPECT_EQ(OSX_OK, osxMsgQueueFlush(lQueue.handle()));
    EXPECT_EQ(3, lFirst.get() + lSecond.get());
    EXPECT_EQ("a", lQueue.receive().text);
    EXPECT_EQ("a", lQueue.receive().text);
    EXPECT_EQ(OSX_ERR_QUEUE_RECV, lQueue.receiveStatus(1));
}

TEST(MessageQueue, FlushOfAnEmptyOneLeavesItUsable) {
    Queue lQueue;
    EXPECT_EQ(OSX_OK, osxMsgQueueFlush(lQueue.handle()));
    lQueue.send("x");
    EXPECT_EQ("x", lQueue.receive().text);
}

TEST(MessageQueue, TakesMessagesOfAllSizesThatFindItsLockTaken) {
    Queue lQueue;
    for (const std::size_t lSize : {1U, 511U, 512U, 4095U, 4096U}) {
        const std::string lText(lSize, 'x');
        std::atomic<pid_t> lSender{0};
        lQueue.ace().lock().acquire();
        std::thread lSending([&] {
            lSender = ::gettid();
            EXPECT_EQ(1, lQueue.send(lText));
        });
        EXPECT_TRUE(test::waitUntil([&] { return lSender != 0 && test::sleeps(lSender); }));
        lQueue.ace().lock().release();
        lSending.join();
        EXPECT_EQ(lText, lQueue.receive(5000).text);
    }
}

TEST(MessageQueue, FreesWhatItHoldsWhenFlushedAndDeleted) {
    constexpr std::size_t kHeld = 100UL * 1000UL;
    const auto lFill = [](Queue& aQueue) {
        for (std::size_t lSent = 0; lSent < kHeld; lSent += 6000) {
            aQueue.send(std::string(1000, 'x'));
            aQueue.send(std::string(5000, 'y'));
        }
    };
    const std::size_t lBefore = ::mallinfo2().uordblks;
    {
        Queue lQueue(1 << 20);
        lFill(lQueue);
        osxMsgQueueFlush(lQueue.handle());
        lFill(lQueue);
    }
    // A sanitizer's allocator shows nothing here, and finds what is lost itself.
    EXPECT_LT(::mallinfo2().uordblks, lBefore + kHeld / 2);
}

TEST(MessageQueue, ASenderThatIsCancelledOnAFullOneFreesItsMessage) {
    constexpr int kSenders = 50;
    constexpr std::size_t kSize = 100UL * 1000UL;
    Queue lQueue(1);
    lQueue.send("x");
    std::string lData(kSize, 'y');
    const auto lSend = [&] {
        long lResult = 0;
        osxMsgSend(lQueue.handle(), lData.data(), lData.size(), &lResult);
    };
    EXPECT_TRUE(test::isCancelledIn(lSend));
    const auto lUsed = [] { return ::mallinfo2().uordblks + ::mallinfo2().hblkhd; };
    const std::size_t lBefore = lUsed();
    for (int lSender = 0; lSender < kSenders; ++lSender) {
        EXPECT_TRUE(test::isCancelledIn(lSend));
    }
    // A sanitizer's allocator shows nothing here, and finds what is lost itself.
    EXPECT_LT(lUsed(), lBefore + kSenders * kSize / 2);
    EXPECT_EQ("x", lQueue.receive().text);
    EXPECT_EQ(1, lQueue.send("y"));
    EXPECT_EQ("y", lQueue.receive().text);
}

TEST(MessageQueue, AReceiverThatIsCancelledTakesNothingAway) {
    Queue lQueue;
    for (const unsigned long lTimeOut : {0UL, 3600000UL}) {
        EXPECT_TRUE(test::isCancelledIn([&] { lQueue.receiveStatus(lTimeOut); }));
        auto lReceiver =
            std::async(std::launch::async, [&] { return lQueue.receive(10, lTimeOut); });
        EXPECT_EQ(1, lQueue.send("x"));
        EXPECT_EQ("x", lReceiver.get().text);
    }
}

TEST(MessageQueue, ReceiveGivesUpAfterItsTimeOutAndTouchesNothing) {
    Queue lQueue;
    constexpr milliseconds kTimeOut(100);
    const auto lBegin = std::chrono::steady_clock::now();
    const Received lReceived = lQueue.receive(10, kTimeOut.count());
    EXPECT_EQ(OSX_ERR_QUEUE_RECV, lReceived.status);
    EXPECT_EQ(4711U, lReceived.size);
    EXPECT_GE(test::elapsedSince(lBegin), kTimeOut - test::kRounding);
}

/// Zero is no limit, as is the value that says so; the others are long.
TEST(MessageQueue, ReceiveWithoutLimitOrWithALongOneWaitsForTheMessage) {
    for (const unsigned long lTimeOut :
         {0UL, OSX_INFINITE_TIMEOUT, ~0UL, 3600000UL, 0x7FFFFFFFUL, 0xFFFFFFFEUL}) {
        SCOPED_TRACE(lTimeOut);
        Queue lQueue;
        auto lReceiver =
            std::async(std::launch::async, [&] { return lQueue.receive(10, lTimeOut); });
        EXPECT_TRUE(isStillWaiting(lReceiver));
        lQueue.send("late");
        EXPECT_EQ("late", lReceiver.get().text);
    }
}

namespace {
/// Steps the wall clock to and fro, from before its construction ends until its destruction.
class RestlessWallClock {
public:
    explicit RestlessWallClock(time_t aStep) : mStep(aStep) {
        test::stepWallClock(mStep);
        mThread = std::thread([this] {
            while (!mDone) {
                test::stepWallClock(-mStep);
                std::this_thread::yield();
                test::stepWallClock(mStep);
                std::this_thread::yield();
            }
        });
    }
    ~RestlessWallClock() {
        mDone = true;
        mThread.join();
        test::stepWallClock(-mStep);
    }
    RestlessWallClock(const RestlessWallClock&) = delete;
    RestlessWallClock& operator=(const RestlessWallClock&) = delete;

private:
    const time_t mStep;
    std::atomic<bool> mDone{false};
    std::thread mThread;
};

constexpr time_t kYear = 365 * 24 * 3600;

/// @return how long a receive of 300 ms has waited in vain.
milliseconds vainWait() {
    Queue lQueue;
    const auto lBegin = std::chrono::steady_clock::now();
    EXPECT_EQ(OSX_ERR_QUEUE_RECV, lQueue.receiveStatus(300));
    return test::elapsedSince(lBegin);
}
}  // namespace

TEST(MessageQueue, WaitsAsLongThoughTheWallClockIsStepped) {
    for (const time_t lStep : {kYear, -kYear}) {
        test::stepWallClock(lStep);
        EXPECT_GE(vainWait().count(), 299);
        test::stepWallClock(-lStep);
        const RestlessWallClock lClock(lStep);
        EXPECT_GE(vainWait().count(), 299);
    }
}

TEST(MessageQueue, TracesATimeOutFromLevelNine) {
    const test::LogCapture lLog;
    Queue lQueue;
    {
        const test::TraceLevel lTrace(8);
        lQueue.receiveStatus(1);
    }
    EXPECT_THAT(lLog.lines(), IsEmpty());
    const test::TraceLevel lTrace(9);
    lQueue.receiveStatus(1);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t Queue timeout\n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(0, lLog.lines()[0].status);
    EXPECT_EQ("osxMsgACE.cpp", lLog.lines()[0].module);
}

TEST(MessageQueue, DeactivatedFailsBothWays) {
    Queue lQueue;
    lQueue.send("kept");
    lQueue.ace().deactivate();
    EXPECT_EQ(OSX_ERR_QUEUE_RECV, lQueue.receiveStatus(0));

    const test::LogCapture lLog;
    EXPECT_EQ(OSX_OK, osxMsgSend(lQueue.handle(), nullptr, 0, nullptr));
    EXPECT_THAT(lLog.lines(), IsEmpty());
    EXPECT_EQ(0, lQueue.send("lost"));
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxMsgSend: lQueue->enqueue failed \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(-1, lLog.lines()[0].status);
}

TEST(MessageQueue, DeactivationWakesEverybodyWhoWaits) {
    Queue lEmpty;
    Queue lFull(1);
    lFull.send("x");
    std::vector<std::future<unsigned int>> lReceivers;
    std::vector<std::future<long>> lSenders;
    constexpr int kEach = 3;
    lReceivers.reserve(kEach);
    lSenders.reserve(kEach);
    for (int lCount = 0; lCount < kEach; ++lCount) {
        lReceivers.push_back(
            std::async(std::launch::async, [&] { return lEmpty.receiveStatus(0); }));
        lSenders.push_back(sendElsewhere(lFull, "y"));
    }
    EXPECT_TRUE(isStillWaiting(lSenders.back()));
    lEmpty.ace().deactivate();
    lFull.ace().deactivate();
    for (auto& lReceiver : lReceivers) {
        EXPECT_EQ(OSX_ERR_QUEUE_RECV, lReceiver.get());
    }
    for (auto& lSender : lSenders) {
        EXPECT_EQ(0, lSender.get());
    }
}

TEST(MessageQueue, TheCallsAndAcesOwnOperationsWakeEachOther) {
    Queue lQueue(1);
    auto lReceiver = std::async(std::launch::async, [&] { return lQueue.receive(); });
    EXPECT_TRUE(isStillWaiting(lReceiver));
    auto* const lSent = new ACE_Message_Block(3);
    lSent->copy("ace", 3);
    EXPECT_EQ(1, lQueue.ace().enqueue(lSent));
    EXPECT_EQ("ace", lReceiver.get().text);
    EXPECT_EQ(0U, lQueue.ace().message_bytes());

    lQueue.send("osx");
    auto lSender = sendElsewhere(lQueue, "y");
    EXPECT_TRUE(isStillWaiting(lSender));
    ACE_Message_Block* lTaken = nullptr;
    EXPECT_NE(-1, lQueue.ace().dequeue(lTaken));
    EXPECT_EQ("osx", std::string(lTaken->rd_ptr(), lTaken->length()));
    lTaken->release();
    EXPECT_EQ(1, lSender.get());
}

TEST(MessageQueue, SendsNothingWithoutMemory) {
    const test::LogCapture lLog;
    Queue lQueue;
    long lResult = -1;
    std::array<char, 4> lData{};
    errno = 0;
    {
        const test::FailingAllocator lFailing;
        EXPECT_EQ(OSX_OK, osxMsgSend(lQueue.handle(), lData.data(), lData.size(), nullptr));
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_THAT(lLog.lines(), IsEmpty());
    {
        const test::FailingAllocator lFailing(0, true);
        EXPECT_EQ(OSX_OK, osxMsgSend(lQueue.handle(), lData.data(), lData.size(), &lResult));
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ(0, lResult);
    EXPECT_EQ(OSX_ERR_QUEUE_RECV, lQueue.receiveStatus(1));
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxMsgSend: lQueue->enqueue failed \n"));
    EXPECT_EQ(ENOMEM, lLog.lines()[0].errnum);
}

TEST(MessageQueue, SendsNothingThatDoesNotFitInMemory) {
    Queue lQueue;
    char lByte = 'x';
    for (const unsigned long lSize : {~0UL, ~0UL - 64, ~0UL / 2, ~0UL / 2 + 1}) {
        const test::LogCapture lLog;
        long lResult = -1;
        errno = 0;
        EXPECT_EQ(OSX_OK, osxMsgSend(lQueue.handle(), &lByte, lSize, &lResult));
        EXPECT_EQ(ENOMEM, errno);
        EXPECT_EQ(0, lResult);
    }
    EXPECT_EQ(1, lQueue.send("fits"));
}

TEST(MessageQueue, IsNamedInTheTableWhereItsNameStays) {
    void* lHandle = nullptr;
    {
        const Queue lQueue(10, "inbox");
        lHandle = lQueue.handle();
        EXPECT_STREQ("inbox", osxNameTableGetName(lHandle));
    }
    EXPECT_STREQ("inbox", osxNameTableGetName(lHandle));
}

TEST(MessageQueue, TakesANullNameForAnEmptyOne) {
    const Queue lQueue(10, nullptr);
    EXPECT_STREQ("", osxNameTableGetName(lQueue.handle()));
}

TEST(MessageQueue, WorksThoughTheNameTableIsFull) {
    int lSomething = 0;
    while (osxNameTableCount() < OSX_NAME_TABLE_SIZE) {
        osxNameTableRegister(&lSomething, "filler");
    }
    const test::LogCapture lLog;
    Queue lQueue(10, "inbox");
    EXPECT_THAT(lLog.texts(), ElementsAre("Error: Cannot register inbox, the name table is full!\n",
                                          "We could not set the queue name.\n"));
    EXPECT_EQ(LM_ERROR, lLog.lines()[1].priority);
    EXPECT_EQ(-1, lLog.lines()[1].status);
    EXPECT_EQ("osxMsgACE.cpp", lLog.lines()[1].module);
    lQueue.send("x");
    EXPECT_EQ("x", lQueue.receive().text);
}

TEST(MessageQueue, IsMadeByAThreadThatIsCancelledThoughTheNameTableIsFull) {
    int lSomething = 0;
    while (osxNameTableCount() < OSX_NAME_TABLE_SIZE) {
        osxNameTableRegister(&lSomething, "filler");
    }
    const test::CancellingLog lLog;
    void* lQueue = nullptr;
    EXPECT_TRUE(test::outlastsItsCancellation(
        [&] { EXPECT_EQ(OSX_OK, osxMsgQueueInit(10, 0, &lQueue, "inbox")); }));
    osxMsgQueueDelete(lQueue);
}

TEST(MessageQueue, InitFailsWithoutMemory) {
    const test::LogCapture lLog;
    void* lHandle = nullptr;
    errno = 0;
    {
        const test::FailingAllocator lFailing(0, true);
        EXPECT_EQ(12U, osxMsgQueueInit(100, 7, &lHandle, "inbox"));
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ(nullptr, lHandle);
    EXPECT_EQ(0, osxNameTableCount());
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxMsgQueueInit: lQueue == 0  size[100] maxMsgs[7] "
                                          "qname[inbox] \n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(-1, lLog.lines()[0].status);
    EXPECT_EQ(ENOMEM, lLog.lines()[0].errnum);
}

TEST(MessageQueue, NullGivesZeroAndALine) {
    const test::LogCapture lLog;
    long lResult = 7;
    unsigned long lSize = 7;
    char lByte = 'x';
    EXPECT_EQ(OSX_OK, osxMsgSend(nullptr, &lByte, 1, &lResult));
    EXPECT_EQ(OSX_OK, osxMsgRecv(nullptr, &lByte, 1, &lSize, 250));
    EXPECT_EQ(OSX_OK, osxMsgQueueFlush(nullptr));
    EXPECT_EQ(OSX_OK, osxMsgQueueDelete(nullptr));
    EXPECT_EQ(7, lResult);
    EXPECT_EQ(7U, lSize);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxMsgSend: lQueue == 0  size[1] \n",
                                          "%t osxMsgRecv: lQueue == 0  maxSize[1] timeOut[250]\n",
                                          "%t osxMsgQueueFlush: lQueue == 0  \n",
                                          "%t osxMsgQueueDelete: lQueue == 0  \n"));
    EXPECT_THAT(lLog.lines(), testing::Each(test::IsLineOf(LM_DEBUG, -1, "osxMsgACE.cpp")));
}

namespace {

constexpr std::size_t kLargest = 1 << 20;
constexpr int kMessagesPerSender = 60;

struct Totals {
    std::atomic<std::uint64_t> messages{0};
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> sum{0};

    void add(const char* aData, std::size_t aSize) {
        ++messages;
        bytes += aSize;
        if (aSize > 0) {
            // The ends of a message tell whose it is; adding up a megabyte would take too long.
            sum += static_cast<unsigned char>(aData[0]) * 257U +
                   static_cast<unsigned char>(aData[aSize - 1]);
        }
    }
    std::vector<std::uint64_t> all() const { return {messages, bytes, sum}; }
};

/// Small messages mostly, the two extremes among them.
std::vector<std::size_t> sizesOfSender(unsigned int aSender) {
    std::vector<std::size_t> lSizes{0, kLargest};
    std::minstd_rand lRandom(aSender + 1);
    while (lSizes.size() < kMessagesPerSender) {
        lSizes.push_back(lRandom() % (lSizes.size() % 10 == 0 ? 100000U : 300U));
    }
    return lSizes;
}

void sendAll(const Queue& aQueue, unsigned int aSender, Totals& aTotals) {
    std::vector<char> lData(kLargest, static_cast<char>(aSender));
    for (const std::size_t lSize : sizesOfSender(aSender)) {
        aTotals.add(lData.data(), lSize);
        long lResult = 0;
        osxMsgSend(aQueue.handle(), lData.data(), lSize, &lResult);
        ASSERT_LT(0, lResult);
    }
}

void receiveAll(const Queue& aQueue, std::atomic<int>& aRemaining, Totals& aTotals) {
    std::vector<char> lData(kLargest);
    while (--aRemaining >= 0) {
        unsigned long lSize = 0;
        ASSERT_EQ(OSX_OK, osxMsgRecv(aQueue.handle(), lData.data(), lData.size(), &lSize, 0));
        aTotals.add(lData.data(), lSize);
    }
}

}  // namespace

class MessageQueueStress : public testing::TestWithParam<unsigned int> {};

TEST_P(MessageQueueStress, DeliversEveryMessageWholeAndOnce) {
    const Queue lQueue(100000);
    Totals lSent;
    Totals lReceived;
    std::atomic<int> lRemaining{static_cast<int>(GetParam()) * kMessagesPerSender};
    std::vector<std::thread> lThreads;
    for (unsigned int lIndex = 0; lIndex < GetParam(); ++lIndex) {
        lThreads.emplace_back([&, lIndex] { sendAll(lQueue, lIndex, lSent); });
        lThreads.emplace_back([&] { receiveAll(lQueue, lRemaining, lReceived); });
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    EXPECT_EQ(GetParam() * kMessagesPerSender, lReceived.messages);
    EXPECT_EQ(lSent.all(), lReceived.all());
    EXPECT_EQ(0U, lQueue.ace().message_count());
    EXPECT_EQ(0U, lQueue.ace().message_bytes());
}

/// A queue that one message fills has somebody waiting all the time, and a wake-up that got lost
/// would leave the threads where they are.
TEST_P(MessageQueueStress, LosesNoWakeUpThoughEveryMessageFillsTheQueue) {
    constexpr int kMessages = 500;
    const Queue lQueue(1);
    std::atomic<int> lRemaining{static_cast<int>(GetParam()) * kMessages};
    const auto lReceive = [&](unsigned long aTimeOutMs) {
        char lByte = 0;
        unsigned long lSize = 0;
        return osxMsgRecv(lQueue.handle(), &lByte, 1, &lSize, aTimeOutMs);
    };
    std::vector<std::thread> lThreads;
    for (unsigned int lIndex = 0; lIndex < GetParam(); ++lIndex) {
        lThreads.emplace_back([&] {
            char lByte = 'x';
            for (int lSent = 0; lSent < kMessages; ++lSent) {
                osxMsgSend(lQueue.handle(), &lByte, 1, nullptr);
            }
        });
        lThreads.emplace_back([&, lTimeOut = lIndex % 2] {
            while (--lRemaining >= 0) {
                while (lReceive(lTimeOut) != OSX_OK) {
                }
            }
        });
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    EXPECT_EQ(0U, lQueue.ace().message_count());
    EXPECT_EQ(0U, lQueue.ace().message_bytes());
}

INSTANTIATE_TEST_SUITE_P(Threads, MessageQueueStress, testing::Values(1U, 4U, 16U));
