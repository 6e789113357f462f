#include "logging/LineQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "support/FailingAllocator.h"

using osx::LineQueue;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A queue that lines may enter.
class OpenQueue : public LineQueue {
public:
    explicit OpenQueue(std::size_t aMaxLines = 100, std::size_t aMaxBytes = 1000)
        : LineQueue(aMaxLines, aMaxBytes) {
        open();
    }
};

void put(LineQueue& aQueue, const std::string& aText) {
    aQueue.put(aText.data(), aText.size());
}

std::vector<std::string> leaveAll(LineQueue& aQueue, LineQueue::Line* aLines) {
    std::vector<std::string> lTexts;
    for (auto* lLine = aLines; lLine != nullptr; lLine = aQueue.leave(lLine)) {
        lTexts.emplace_back(lLine->text(), lLine->mLength);
    }
    return lTexts;
}

std::vector<std::string> takeLines(LineQueue& aQueue) {
    const LineQueue::Work lWork = aQueue.take();
    EXPECT_EQ(0U, lWork.mDropped);
    return leaveAll(aQueue, lWork.mLines);
}

/// Of a queue that holds no lines, or that is shut: another one would wait.
std::size_t takeDropped(LineQueue& aQueue) {
    const LineQueue::Work lWork = aQueue.take();
    EXPECT_THAT(leaveAll(aQueue, lWork.mLines), IsEmpty());
    return lWork.mDropped;
}

void expectEnd(LineQueue& aQueue) {
    aQueue.shut();
    EXPECT_EQ(0U, takeDropped(aQueue));
}

}  // namespace

TEST(LineQueue, HandsOutWhatCameInOrder) {
    OpenQueue lQueue;
    put(lQueue, "one\n");
    put(lQueue, "");
    put(lQueue, std::string("t\0wo", 4));
    EXPECT_THAT(takeLines(lQueue), ElementsAre("one\n", "", std::string("t\0wo", 4)));
    put(lQueue, "three");
    EXPECT_THAT(takeLines(lQueue), ElementsAre("three"));
    expectEnd(lQueue);
}

TEST(LineQueue, LetsNothingInWhileItIsShut) {
    LineQueue lQueue(1, 100);
    put(lQueue, "early");
    expectEnd(lQueue);
    lQueue.open();
    put(lQueue, "in time");
    lQueue.shut();
    put(lQueue, "late");
    EXPECT_THAT(takeLines(lQueue), ElementsAre("in time"));
    expectEnd(lQueue);
}

TEST(LineQueue, DropsWhatExceedsTheNumberOfLinesOrTheBytes) {
    OpenQueue lOfTwo(2, 1000);
    OpenQueue lOfFiveBytes(100, 5);
    for (LineQueue* const lQueue : {&lOfTwo, &lOfFiveBytes}) {
        for (const char* const lText : {"123", "45", "6", "7"}) {
            put(*lQueue, lText);
        }
        EXPECT_THAT(takeLines(*lQueue), ElementsAre("123", "45"));
        EXPECT_EQ(2U, takeDropped(*lQueue));
        expectEnd(*lQueue);
    }
}

TEST(LineQueue, TakesALineOfAnySizeWhileItIsEmpty) {
    OpenQueue lQueue(100, 5);
    put(lQueue, "1234567890");
    put(lQueue, "");
    EXPECT_THAT(takeLines(lQueue), ElementsAre("1234567890"));
    EXPECT_EQ(1U, takeDropped(lQueue));
}

TEST(LineQueue, CountsLinesUntilTheyAreLeft) {
    OpenQueue lQueue(2);
    put(lQueue, "1");
    put(lQueue, "2");
    const LineQueue::Work lWork = lQueue.take();
    put(lQueue, "dropped");
    EXPECT_THAT(leaveAll(lQueue, lWork.mLines), ElementsAre("1", "2"));
    EXPECT_EQ(1U, takeDropped(lQueue));
    expectEnd(lQueue);
}

TEST(LineQueue, OnceFullStaysClosedUntilTheGapIsTold) {
    OpenQueue lQueue(2);
    put(lQueue, "1");
    LineQueue::Work lWork = lQueue.take();
    put(lQueue, "2");
    put(lQueue, "dropped");
    leaveAll(lQueue, lWork.mLines);
    put(lQueue, "dropped, though there is room");
    EXPECT_THAT(takeLines(lQueue), ElementsAre("2"));
    put(lQueue, "dropped, though nothing is queued");
    EXPECT_EQ(3U, takeDropped(lQueue));
    put(lQueue, "3");
    EXPECT_THAT(takeLines(lQueue), ElementsAre("3"));
    expectEnd(lQueue);
}

TEST(LineQueue, AllocatesOnceForALineAndDropsItWithoutMemory) {
    OpenQueue lQueue;
    const std::string lText(300, 'x');
    {
        const test::FailingAllocator lFailing(1);
        put(lQueue, lText);
        EXPECT_EQ(0, lFailing.failures());
        errno = 0;
        put(lQueue, lText);
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_THAT(takeLines(lQueue), ElementsAre(lText));
    EXPECT_EQ(1U, takeDropped(lQueue));
    expectEnd(lQueue);
}

TEST(LineQueue, NeedsNoMemoryForWhatItDropsWhenFull) {
    OpenQueue lQueue(1);
    put(lQueue, "1");
    put(lQueue, "2");
    const test::FailingAllocator lFailing;
    put(lQueue, "3");
    EXPECT_EQ(0, lFailing.failures());
}

TEST(LineQueue, FreesWhatIsLeftInIt) {
    OpenQueue lQueue;
    put(lQueue, "1");
    put(lQueue, "2");
}

TEST(LineQueue, ShuttingItEndsTheWait) {
    OpenQueue lQueue;
    std::thread lSender([&] { EXPECT_EQ(0U, takeDropped(lQueue)); });
    lQueue.shut();
    lSender.join();
}

TEST(LineQueue, WakesASenderThatHasWaitedForLong) {
    OpenQueue lQueue;
    for (const char* const lText : {"1", "2", "3"}) {
        std::vector<std::string> lTaken;
        std::thread lSender([&] { lTaken = takeLines(lQueue); });
        // Most likely it waits by then; the test passes as well if it does not.
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        put(lQueue, lText);
        lSender.join();
        EXPECT_THAT(lTaken, ElementsAre(lText));
    }
}

TEST(LineQueue, LosesNothingButWhatItCountsAsDropped) {
    constexpr int kThreads = 4;
    constexpr int kLines = 5000;
    OpenQueue lQueue(500, 4000);
    std::vector<std::thread> lThreads;
    lThreads.reserve(kThreads);
    for (int lThread = 0; lThread < kThreads; ++lThread) {
        lThreads.emplace_back([&, lThread] {
            for (int lLine = 0; lLine < kLines; ++lLine) {
                put(lQueue, std::to_string(lThread) + " " + std::to_string(lLine));
            }
        });
    }
    std::vector<int> lNext(kThreads, 0);
    std::size_t lCount = 0;
    while (lCount < std::size_t{kThreads} * kLines) {
        const LineQueue::Work lWork = lQueue.take();
        lCount += lWork.mDropped;
        for (const std::string& lText : leaveAll(lQueue, lWork.mLines)) {
            std::size_t lThread = kThreads;
            int lLine = -1;
            ASSERT_EQ(2, std::sscanf(lText.c_str(), "%zu %d", &lThread, &lLine));
            EXPECT_LE(lNext.at(lThread), lLine);
            lNext.at(lThread) = lLine + 1;
            ++lCount;
        }
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    EXPECT_EQ(std::size_t{kThreads} * kLines, lCount);
    expectEnd(lQueue);
}
