// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A message queue as what its handle points at: a queue of ACE's, full of blocks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "ace/Message_Block.h"
#include "ace/Message_Queue.h"
#include "ace/Notification_Strategy.h"
#include "ace/OS_NS_sys_time.h"
#include "ace/Time_Value.h"
#include "osx/QueueUnderTest.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/cancellation.h"
#include "support/times.h"

using std::chrono::milliseconds;
using test::AceQueue;
using test::isStillWaiting;
using test::Queue;
using test::Received;
using test::sendElsewhere;
using testing::IsEmpty;

namespace {

ACE_Message_Block* blockOf(const std::string& aText) {
    auto* const lBlock = new ACE_Message_Block(aText.size());
    lBlock->copy(aText.data(), aText.size());
    return lBlock;
}

std::string textOf(const ACE_Message_Block& aBlock) {
    return {aBlock.rd_ptr(), aBlock.length()};
}

/// @return the text of the block that one of ACE's operations took out, which is freed.
std::string textOfTaken(ACE_Message_Block* aBlock) {
    if (aBlock == nullptr) {
        return "nothing";
    }
    std::string lText = textOf(*aBlock);
    aBlock->release();
    return lText;
}

std::string dequeued(Queue& aQueue) {
    ACE_Message_Block* lBlock = nullptr;
    aQueue.ace().dequeue(lBlock);
    return textOfTaken(lBlock);
}

/// By the wall clock, as ACE's operations have it.
ACE_Time_Value inMilliseconds(time_t aMilliseconds) {
    return ACE_OS::gettimeofday() +
           ACE_Time_Value(aMilliseconds / 1000, aMilliseconds % 1000 * 1000);
}

class Counting final : public ACE_Notification_Strategy {
public:
    Counting() : ACE_Notification_Strategy(nullptr, 0) {}
    int notify() override { return ++mCount; }
    int notify(ACE_Event_Handler*, ACE_Reactor_Mask) override { return notify(); }
    int count() const { return mCount; }

private:
    int mCount = 0;
};

/// Sizes on both sides of every limit that there is between one way of keeping bytes and another.
const std::vector<std::size_t> kSizes{0,   1,    7,    8,    9,     511,   512,
                                      513, 4095, 4096, 4097, 16383, 16384, 100000};

std::string textOfSize(std::size_t aSize) {
    std::string lText(aSize, '\0');
    for (std::size_t lAt = 0; lAt < aSize; ++lAt) {
        lText[lAt] = static_cast<char>(lAt * 7 + aSize);
    }
    return lText;
}

constexpr std::size_t kRoomy = 1UL << 30;

}  // namespace

TEST(MessageQueueBlocks, AreThoseOfAnOrdinaryQueueOfAce) {
    Queue lQueue;
    auto* const lBase = static_cast<ACE_Message_Queue_Base*>(lQueue.handle());
    EXPECT_EQ(&lQueue.ace(), dynamic_cast<AceQueue*>(lBase));
}

TEST(MessageQueueBlocks, ComeOutAsTheyWentIn) {
    Queue lQueue;
    auto* const lSent = blockOf("head");
    lSent->cont(blockOf("tail"));
    lSent->msg_priority(7);
    lSent->msg_type(ACE_Message_Block::MB_USER + 3);
    lQueue.send("before");
    EXPECT_EQ(2, lQueue.ace().enqueue_tail(lSent));
    lQueue.send("after");
    EXPECT_EQ(6U + 8 + 5, lQueue.ace().message_bytes());
    EXPECT_EQ("before", dequeued(lQueue));
    ACE_Message_Block* lTaken = nullptr;
    EXPECT_EQ(1, lQueue.ace().dequeue_head(lTaken));
    ASSERT_EQ(lSent, lTaken);
    EXPECT_EQ("tail", textOf(*lTaken->cont()));
    EXPECT_EQ(7U, lTaken->msg_priority());
    EXPECT_EQ(ACE_Message_Block::MB_USER + 3, lTaken->msg_type());
    lTaken->release();
    EXPECT_EQ("after", lQueue.receive().text);
}

TEST(MessageQueueBlocks, AndMessagesOfEverySizeKeepTheirOrder) {
    Queue lQueue(kRoomy);
    for (int lRound = 0; lRound < 5; ++lRound) {
        for (const std::size_t lSize : kSizes) {
            lQueue.send(textOfSize(lSize));
        }
    }
    for (int lRound = 0; lRound < 5; ++lRound) {
        for (const std::size_t lSize : kSizes) {
            const bool lByAce = (lSize + static_cast<std::size_t>(lRound)) % 3 == 0;
            EXPECT_TRUE(textOfSize(lSize) ==
                        (lByAce ? dequeued(lQueue) : lQueue.receive(lSize + 1).text));
        }
    }
    EXPECT_EQ(0U, lQueue.ace().message_bytes());
    EXPECT_EQ(0U, lQueue.ace().message_length());
    EXPECT_EQ(0U, lQueue.ace().message_count());
    EXPECT_TRUE(lQueue.ace().is_empty());
}

TEST(MessageQueueBlocks, OfMessagesMayBeDuplicatedAndContinued) {
    Queue lQueue;
    lQueue.send("text");
    ACE_Message_Block* lTaken = nullptr;
    lQueue.ace().dequeue_head(lTaken);
    lTaken->cont(blockOf("more"));
    ACE_Message_Block* const lCopy = lTaken->duplicate();
    lTaken->release();
    EXPECT_EQ("text", textOf(*lCopy));
    EXPECT_EQ("more", textOf(*lCopy->cont()));
    lCopy->release();
}

TEST(MessageQueueBlocks, MayBeLookedAtBeforeTheyAreReceived) {
    Queue lQueue;
    lQueue.send("first");
    lQueue.send("second");
    ACE_Message_Block* lFirst = nullptr;
    ACE_Message_Block* lAgain = nullptr;
    EXPECT_EQ(2, lQueue.ace().peek_dequeue_head(lFirst));
    EXPECT_EQ(2, lQueue.ace().peek_dequeue_head(lAgain));
    EXPECT_EQ(lFirst, lAgain);
    EXPECT_EQ("first", textOf(*lFirst));
    EXPECT_EQ("first", lQueue.receive().text);
    EXPECT_EQ("second", lQueue.receive().text);
}

TEST(MessageQueueBlocks, AreCountedWithTheMessagesWhenFlushed) {
    Queue lQueue(kRoomy);
    for (const std::size_t lSize : kSizes) {
        lQueue.send(textOfSize(lSize));
    }
    lQueue.ace().enqueue_head(blockOf("block"));
    lQueue.send("message");
    EXPECT_EQ(static_cast<int>(kSizes.size()) + 2, lQueue.ace().flush());
    EXPECT_EQ(0U, lQueue.ace().message_bytes());
    EXPECT_EQ(1, lQueue.send("next"));
    EXPECT_EQ("next", lQueue.receive().text);
}

TEST(MessageQueueBlocks, AreFreedWhenTheQueueIsOpenedAnew) {
    Queue lQueue;
    lQueue.send("message");
    lQueue.ace().enqueue_head(blockOf("block"));
    lQueue.ace().open(10, 10);
    EXPECT_EQ(0U, lQueue.ace().message_count());
    EXPECT_EQ(10U, lQueue.ace().high_water_mark());
    EXPECT_EQ(1, lQueue.send("next"));
    EXPECT_EQ("next", lQueue.receive().text);
}

// --- waiting ----------------------------------------------------------------------------------

TEST(MessageQueueBlocks, AreWaitedForUntilADeadlineOfTheWallClock) {
    Queue lEmpty;
    ACE_Message_Block* lBlock = nullptr;
    const auto lBegin = std::chrono::steady_clock::now();
    constexpr milliseconds kTime(100);
    ACE_Time_Value lDeadline = inMilliseconds(kTime.count());
    EXPECT_EQ(-1, lEmpty.ace().dequeue_head(lBlock, &lDeadline));
    EXPECT_EQ(EWOULDBLOCK, errno);
    EXPECT_GE(test::elapsedSince(lBegin), kTime - test::kRounding);
    EXPECT_EQ(-1, lEmpty.ace().peek_dequeue_head(lBlock, &lDeadline));
    EXPECT_EQ(EWOULDBLOCK, errno);

    Queue lFull(1);
    lFull.send("x");
    lBlock = blockOf("y");
    lDeadline = inMilliseconds(10);
    EXPECT_EQ(-1, lFull.ace().enqueue_tail(lBlock, &lDeadline));
    EXPECT_EQ(EWOULDBLOCK, errno);
    lBlock->release();
}

TEST(MessageQueueBlocks, ThatComeBeforeTheDeadlineAreTaken) {
    Queue lQueue;
    auto lTaken = std::async(std::launch::async, [&] {
        ACE_Message_Block* lBlock = nullptr;
        ACE_Time_Value lDeadline = inMilliseconds(3600000);
        lQueue.ace().dequeue_head(lBlock, &lDeadline);
        return textOfTaken(lBlock);
    });
    lQueue.send("sent");
    EXPECT_EQ("sent", lTaken.get());
}

TEST(MessageQueueBlocks, ThatComeAsOneChainWakeEveryReceiver) {
    constexpr int kReceivers = 3;
    Queue lQueue;
    std::vector<std::future<Received>> lReceivers;
    lReceivers.reserve(kReceivers);
    for (int lCount = 0; lCount < kReceivers; ++lCount) {
        lReceivers.push_back(std::async(std::launch::async, [&] { return lQueue.receive(); }));
    }
    EXPECT_TRUE(isStillWaiting(lReceivers.back()));
    ACE_Message_Block* const lChain = blockOf("x");
    lChain->next(blockOf("x"));
    lChain->next()->next(blockOf("x"));
    EXPECT_EQ(kReceivers, lQueue.ace().enqueue_tail(lChain));
    for (auto& lReceiver : lReceivers) {
        EXPECT_EQ("x", lReceiver.get().text);
    }
}

/// One of the two has the wake-up; if it is the one that only looks, the other still has to get it.
TEST(MessageQueueBlocks, ThatAreOnlyLookedAtAreReceivedByOthersWhoWait) {
    constexpr milliseconds kToBegin(2);  // mostly enough for a thread to wait, in many rounds
    Queue lQueue;
    for (int lRound = 0; lRound < 20; ++lRound) {
        auto lPeek = std::async(std::launch::async, [&] {
            ACE_Message_Block* lBlock = nullptr;
            ACE_Time_Value lDeadline = inMilliseconds(500);
            return lQueue.ace().peek_dequeue_head(lBlock, &lDeadline);
        });
        lPeek.wait_for(kToBegin);
        auto lReceived = std::async(std::launch::async, [&] { return lQueue.receive(); });
        lReceived.wait_for(kToBegin);
        lQueue.send("x");
        EXPECT_EQ("x", lReceived.get().text);
        lPeek.get();
    }
}

TEST(MessageQueueBlocks, WaitForTheLowWaterMarkWhenItIsLower) {
    Queue lQueue(10);
    lQueue.ace().low_water_mark(3);
    lQueue.send("12345");
    lQueue.send("67890");
    auto lSender = sendElsewhere(lQueue, "next");
    EXPECT_TRUE(isStillWaiting(lSender));
    lQueue.receive();
    EXPECT_TRUE(isStillWaiting(lSender));
    lQueue.receive();
    EXPECT_EQ(1, lSender.get());
}

TEST(MessageQueueBlocks, AndMessagesAreToldToTheNotificationStrategy) {
    Counting lStrategy;
    Queue lQueue;
    lQueue.ace().notification_strategy(&lStrategy);
    lQueue.send("small");
    EXPECT_EQ(1, lStrategy.count());
    lQueue.send(textOfSize(100000));
    EXPECT_EQ(2, lStrategy.count());
    lQueue.ace().flush();
    lQueue.ace().enqueue_tail(blockOf("block"));
    EXPECT_EQ(3, lStrategy.count());
    lQueue.receive();
    lQueue.ace().deactivate();
    lQueue.send("lost");
    EXPECT_EQ(3, lStrategy.count());
}

TEST(MessageQueueBlocks, OfAPulsedQueueAreWaitedForAsBefore) {
    Queue lQueue;
    auto lSentAway = std::async(std::launch::async, [&] { return lQueue.receiveStatus(0); });
    EXPECT_TRUE(isStillWaiting(lSentAway));
    lQueue.ace().pulse();
    EXPECT_EQ(OSX_ERR_QUEUE_RECV, lSentAway.get());
    EXPECT_EQ(ACE_Message_Queue_Base::PULSED, lQueue.ace().state());

    auto lReceived = std::async(std::launch::async, [&] { return lQueue.receive(); });
    EXPECT_TRUE(isStillWaiting(lReceived));
    lQueue.send("x");
    EXPECT_EQ("x", lReceived.get().text);
}

TEST(MessageQueueBlocks, AreNoLongerWaitedForThoughTheQueueWasActivatedAtOnce) {
    Queue lQueue;
    auto lStatus = std::async(std::launch::async, [&] { return lQueue.receiveStatus(0); });
    EXPECT_TRUE(isStillWaiting(lStatus));
    lQueue.ace().deactivate();
    lQueue.ace().activate();
    EXPECT_EQ(OSX_ERR_QUEUE_RECV, lStatus.get());
}

TEST(MessageQueueBlocks, AreNotTakenByAThreadThatIsCancelled) {
    Queue lEmpty;
    EXPECT_TRUE(test::isCancelledIn([&] { dequeued(lEmpty); }));
    EXPECT_EQ(1, lEmpty.send("x"));
    EXPECT_EQ("x", dequeued(lEmpty));

    Queue lFull(1);
    lFull.send("x");
    ACE_Message_Block* const lBlock = blockOf("y");
    EXPECT_TRUE(test::isCancelledIn([&] { lFull.ace().enqueue_tail(lBlock); }));
    lBlock->release();
    EXPECT_EQ("x", lFull.receive().text);
    EXPECT_EQ(1, lFull.send("z"));
}

// --- memory -----------------------------------------------------------------------------------

TEST(MessageQueueBlocks, AreNotMadeOfMessagesWithoutMemory) {
    const test::LogCapture lLog;
    for (const std::size_t lSize : kSizes) {
        Queue lQueue(kRoomy);
        lQueue.send(textOfSize(lSize));
        lQueue.send("next");
        ACE_Message_Block* const lOwn = blockOf("own");
        const int lPieces = lSize == 0 ? 2 : 3;
        for (int lAllowed = 0; lAllowed < lPieces; ++lAllowed) {
            ACE_Message_Block* lBlock = nullptr;
            const auto lFails = [&](auto aOperation) {
                const test::FailingAllocator lFailing(lAllowed);
                errno = 0;
                EXPECT_EQ(-1, aOperation());
                EXPECT_EQ(ENOMEM, errno);
            };
            lFails([&] { return lQueue.ace().dequeue_head(lBlock); });
            lFails([&] { return lQueue.ace().dequeue_tail(lBlock); });
            lFails([&] { return lQueue.ace().dequeue_prio(lBlock); });
            lFails([&] { return lQueue.ace().dequeue_deadline(lBlock); });
            lFails([&] { return lQueue.ace().peek_dequeue_head(lBlock); });
            lFails([&] { return lQueue.ace().enqueue_tail(lOwn); });
            lFails([&] { return lQueue.ace().enqueue_prio(lOwn); });
            lFails([&] { return lQueue.ace().enqueue_deadline(lOwn); });
            EXPECT_EQ(nullptr, lBlock);
        }
        lOwn->release();
        EXPECT_EQ(2U, lQueue.ace().message_count());
        EXPECT_TRUE(textOfSize(lSize) == lQueue.receive(lSize + 1).text);
        EXPECT_EQ("next", dequeued(lQueue));
    }
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(MessageQueueBlocks, LeaveLittleMemoryBehindWhenABurstIsOver) {
    constexpr int kMessages = 10000;
    Queue lQueue(kRoomy);
    const auto lUsed = [] { return ::mallinfo2().uordblks + ::mallinfo2().hblkhd; };
    const std::size_t lBefore = lUsed();
    for (const std::size_t lSize : {std::size_t{16}, std::size_t{600}, std::size_t{5000}}) {
        const std::string lText = textOfSize(lSize);
        for (int lCount = 0; lCount < kMessages; ++lCount) {
            lQueue.send(lText);
        }
        for (int lCount = 0; lCount < kMessages; ++lCount) {
            lQueue.receive(lSize);
        }
        // A sanitizer's allocator shows nothing here.
        EXPECT_LT(lUsed(), lBefore + 64UL * 1024UL);
    }
}
