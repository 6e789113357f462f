// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "logging/LineRing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/FailingAllocator.h"

using osx::LineRing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::size_t kBytes = LineRing::kMaxLine;

bool put(LineRing& aRing, const std::string& aText) {
    return aRing.put(aText.data(), aText.size());
}

/// @return how many pages of memory the process has touched for the first time.
long pagesTouched() {
    rusage lUsage{};
    ::getrusage(RUSAGE_SELF, &lUsage);
    return lUsage.ru_minflt;
}

/// @return the lines that a chunk holds.
std::vector<std::string> linesOf(const LineRing::Chunk& aChunk) {
    std::vector<std::string> lLines;
    for (LineRing::Number lLine = aChunk.first(); lLine < aChunk.end(); ++lLine) {
        const std::size_t lStart = aChunk.startOf(lLine);
        lLines.emplace_back(aChunk.text() + lStart, aChunk.startOf(lLine + 1) - lStart);
    }
    return lLines;
}

/// Reads a ring from a line on. @return the lines that are left of those.
class Reader {
public:
    explicit Reader(const LineRing& aRing) : mRing(aRing), mChunk(new LineRing::Chunk) {}

    std::vector<std::string> read() {
        std::vector<std::string> lLines;
        while (mNext < mRing.end()) {
            mRing.copy(mNext, *mChunk);
            mMissed += mChunk->first() - mNext;
            mNext = mChunk->end();
            for (std::string& lLine : linesOf(*mChunk)) {
                lLines.push_back(std::move(lLine));
            }
        }
        return lLines;
    }
    LineRing::Number next() const { return mNext; }
    LineRing::Number missed() const { return mMissed; }

private:
    const LineRing& mRing;
    std::unique_ptr<LineRing::Chunk> mChunk;
    LineRing::Number mNext = 0;
    LineRing::Number mMissed = 0;
};

}  // namespace

TEST(LineRing, HandsOutWhatCameInOrder) {
    LineRing lRing(8, kBytes);
    Reader lReader(lRing);
    EXPECT_THAT(lReader.read(), IsEmpty());
    put(lRing, "one\n");
    put(lRing, std::string("t\0wo", 4));
    EXPECT_THAT(lReader.read(), ElementsAre("one\n", std::string("t\0wo", 4)));
    put(lRing, "three");
    EXPECT_THAT(lReader.read(), ElementsAre("three"));
    EXPECT_THAT(lReader.read(), IsEmpty());
}

TEST(LineRing, TakesAnEmptyTextForNoLine) {
    LineRing lRing(8, kBytes);
    lRing.askForWake(0);
    EXPECT_FALSE(put(lRing, ""));
    EXPECT_EQ(0U, lRing.end());
}

TEST(LineRing, HandsTheSameLinesOutAsOftenAsAsked) {
    LineRing lRing(8, kBytes);
    put(lRing, "one");
    put(lRing, "two");
    EXPECT_THAT(Reader(lRing).read(), ElementsAre("one", "two"));
    EXPECT_THAT(Reader(lRing).read(), ElementsAre("one", "two"));
}

TEST(LineRing, MakesRoomForNewLinesByTheOldestAndTellsHowManyAreMissing) {
    LineRing lRing(4, kBytes);
    Reader lReader(lRing);
    for (const char* const lText : {"1", "2", "3", "4"}) {
        put(lRing, lText);
    }
    EXPECT_THAT(Reader(lRing).read(), ElementsAre("1", "2", "3", "4"));
    put(lRing, "5");
    put(lRing, "6");
    // Of the four that are left the newer half.
    EXPECT_THAT(lReader.read(), ElementsAre("5", "6"));
    EXPECT_EQ(4U, lReader.missed());
}

TEST(LineRing, AReaderThatIsNotBehindTheOldestLineMissesNone) {
    LineRing lRing(4, kBytes);
    Reader lReader(lRing);
    for (int lLine = 0; lLine < 100; ++lLine) {
        put(lRing, std::to_string(2 * lLine));
        put(lRing, std::to_string(2 * lLine + 1));
        EXPECT_THAT(lReader.read(),
                    ElementsAre(std::to_string(2 * lLine), std::to_string(2 * lLine + 1)));
    }
    EXPECT_EQ(0U, lReader.missed());
}

TEST(LineRing, HoldsAsManyBytesAsItIsGiven) {
    LineRing lRing(1024, kBytes);
    const std::string lText(kBytes / 4, 'x');
    for (int lLine = 0; lLine < 4; ++lLine) {
        put(lRing, lText);
    }
    EXPECT_EQ(4U, Reader(lRing).read().size());
    put(lRing, "y");
    Reader lReader(lRing);
    EXPECT_EQ("y", lReader.read().back());
    EXPECT_LT(0U, lReader.missed());
}

TEST(LineRing, CutsALongTextIntoSeveralLines) {
    LineRing lRing(8, 4 * kBytes);
    const std::string lText = std::string(kBytes, 'a') + std::string(kBytes, 'b') + "c";
    put(lRing, lText);
    EXPECT_THAT(Reader(lRing).read(),
                ElementsAre(std::string(kBytes, 'a'), std::string(kBytes, 'b'), "c"));
}

TEST(LineRing, KeepsTheEndOfATextThatIsLongerThanItself) {
    LineRing lRing(8, kBytes);
    put(lRing, std::string(3 * kBytes, 'a') + "end");
    EXPECT_EQ("end", Reader(lRing).read().back());
}

TEST(LineRing, NeedsNoMemoryForALine) {
    LineRing lRing(8, kBytes);
    const test::FailingAllocator lFailing;
    for (int lLine = 0; lLine < 20; ++lLine) {
        lRing.put("line", 4);
    }
    EXPECT_EQ(0, lFailing.failures());
}

TEST(LineRing, BeginsAnewAtItsFrontOnceNothingIsKept) {
    LineRing lRing(1024, 2 * kBytes);
    put(lRing, "y");
    lRing.release(lRing.end());
    const std::string lText(kBytes, 'x');
    put(lRing, lText);
    put(lRing, lText);
    auto lChunk = std::make_unique<LineRing::Chunk>();
    lRing.copy(1, *lChunk);
    EXPECT_THAT(linesOf(*lChunk), ElementsAre(lText, lText));
}

TEST(LineRing, TouchesLittleMemoryAsLongAsItsReaderKeepsUp) {
    constexpr std::size_t kLines = std::size_t{1} << 20U;
    LineRing lRing(kLines, kBytes);
    const long lBefore = pagesTouched();
    for (std::size_t lLine = 0; lLine < kLines; ++lLine) {
        put(lRing, "a line");
        lRing.release(lRing.end());
    }
    // The rest leaves room for a sanitizer's own.
    EXPECT_GT(1000, pagesTouched() - lBefore) << "of the 2048 that the entries take";
}

TEST(LineRing, WakesTheReaderOnceAndOnlyOneThatRests) {
    LineRing lRing(8, kBytes);
    EXPECT_FALSE(put(lRing, "nobody rests"));
    EXPECT_FALSE(lRing.askForWake(0));
    EXPECT_FALSE(put(lRing, "it has seen the end too early"));
    EXPECT_TRUE(lRing.askForWake(2));
    EXPECT_TRUE(put(lRing, "this one wakes"));
    EXPECT_FALSE(put(lRing, "this one need not"));
}

TEST(LineRing, TellsTheLineOfAPlace) {
    LineRing lRing(8, kBytes);
    put(lRing, "ab");
    put(lRing, "c");
    auto lChunk = std::make_unique<LineRing::Chunk>();
    lRing.copy(0, *lChunk);
    EXPECT_EQ(0U, lChunk->lineAt(0));
    EXPECT_EQ(0U, lChunk->lineAt(1));
    EXPECT_EQ(1U, lChunk->lineAt(2));
    EXPECT_EQ(2U, lChunk->lineAt(3));
    EXPECT_TRUE(lChunk->holds(1));
    EXPECT_FALSE(lChunk->holds(2));
}

/// Lines of all lengths against a list of them.
TEST(LineRing, NeverTearsALineNorLosesOneThatItHasRoomFor) {
    constexpr std::size_t kLines = 64;
    LineRing lRing(kLines, 2 * kBytes);
    Reader lReader(lRing);
    std::mt19937 lRandom(7);
    std::vector<std::string> lAll;
    std::size_t lSeen = 0;
    for (int lStep = 0; lStep < 20000; ++lStep) {
        lAll.push_back(std::to_string(lStep) + std::string(lRandom() % 300, '.'));
        put(lRing, lAll.back());
        if (lRandom() % 30 == 0) {
            const auto lMissedBefore = lReader.missed();
            const std::vector<std::string> lLines = lReader.read();
            lSeen += static_cast<std::size_t>(lReader.missed() - lMissedBefore);
            ASSERT_EQ(lAll.size(), lSeen + lLines.size());
            for (const std::string& lLine : lLines) {
                ASSERT_EQ(lAll[lSeen++], lLine);
            }
        }
        if (lRandom() % 100 == 0) {
            lRing.release(lReader.next());
        }
    }
    EXPECT_LT(0U, lReader.missed());
    EXPECT_GT(lAll.size() / 2, lReader.missed());
}

TEST(LineRing, CountsEachLineThatAReaderMissesWhileThreadsPut) {
    constexpr int kThreads = 4;
    constexpr int kLines = 5000;
    LineRing lRing(512, 2 * kBytes);
    std::atomic<int> lRunning{kThreads};
    std::vector<std::thread> lThreads;
    for (int lThread = 0; lThread < kThreads; ++lThread) {
        lThreads.emplace_back([&, lThread] {
            for (int lLine = 0; lLine < kLines; ++lLine) {
                put(lRing, std::to_string(lThread) + " " + std::to_string(lLine));
            }
            --lRunning;
        });
    }
    Reader lReader(lRing);
    std::map<int, int> lNext;
    std::size_t lCount = 0;
    for (bool lLast = false; !lLast;) {
        lLast = lRunning == 0;
        for (const std::string& lText : lReader.read()) {
            int lThread = -1;
            int lLine = -1;
            ASSERT_EQ(2, std::sscanf(lText.c_str(), "%d %d", &lThread, &lLine));
            EXPECT_LE(lNext[lThread], lLine);
            lNext[lThread] = lLine + 1;
            ++lCount;
        }
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    EXPECT_EQ(std::size_t{kThreads} * kLines, lCount + lReader.missed());
}
