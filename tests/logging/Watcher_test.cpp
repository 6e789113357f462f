// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "logging/Watcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include "support/TcpPeer.h"
#include "support/waitUntil.h"

using osx::LineRing;
using osx::Watcher;
using std::chrono::milliseconds;
using std::chrono::seconds;
using test::TcpPeer;

namespace {

constexpr std::size_t kLines = 1024;
constexpr std::size_t kBytes = std::size_t{256} * 1024;

/// A client on a connection, at a time that the test sets.
class WatcherOnConnection : public testing::Test {
protected:
    explicit WatcherOnConnection(int aReceiveBuffer = 4096)
        : mClient(TcpPeer::connect(mListener.port(), aReceiveBuffer)), mServer(mListener.accept()) {
        mWatcher = std::make_unique<Watcher>(this, mServer.descriptor());
        mWatcher->begin(0);
    }

    void put(const std::string& aText) { mRing.put(aText.data(), aText.size()); }

    /// Gives until the client is up to date, or the kernel takes no more.
    void giveAll() {
        while (mWatcher->isBehind(mRing.end()) && mWatcher->mayTake()) {
            EXPECT_EQ(0U, mWatcher->give(mRing, *mChunk, mNow));
        }
    }

    /// Lines until the kernel takes no more. @return how many.
    int fill() {
        int lLine = 0;
        for (; mWatcher->mayTake(); ++lLine) {
            put(lineOf(lLine));
            giveAll();
        }
        return lLine;
    }

    static std::string lineOf(int aNumber) {
        std::string lText = std::to_string(aNumber) + " ";
        lText.resize(999, '.');
        return lText + "\n";
    }

    /// @return what the client has there to read, up to a length.
    std::string take(std::size_t aLength) {
        std::string lText(aLength, '\0');
        const ssize_t lCount =
            ::recv(mClient.descriptor(), lText.data(), lText.size(), MSG_DONTWAIT);
        lText.resize(lCount < 0 ? 0 : static_cast<std::size_t>(lCount));
        return lText;
    }

    Watcher::Clock::duration lookAfter(milliseconds aTime) {
        mNow += aTime;
        return mWatcher->look(mRing.end(), mNow);
    }

    test::TcpListener mListener;
    TcpPeer mClient;
    TcpPeer mServer;
    LineRing mRing{kLines, kBytes};
    std::unique_ptr<LineRing::Chunk> mChunk = std::make_unique<LineRing::Chunk>();
    Watcher::Clock::time_point mNow = Watcher::Clock::now();
    std::unique_ptr<Watcher> mWatcher;
};

class WatcherWithBuffer : public WatcherOnConnection, public testing::WithParamInterface<int> {
protected:
    WatcherWithBuffer() : WatcherOnConnection(GetParam()) {}
};

}  // namespace

TEST_F(WatcherOnConnection, GivesLinesAsTheyAre) {
    put("one\n");
    put("two\n");
    giveAll();
    EXPECT_FALSE(mWatcher->isBehind(mRing.end()));
    EXPECT_EQ("one\ntwo\n", mClient.receive(8));
}

TEST_F(WatcherOnConnection, NeverWaitsForTheClient) {
    fill();
    EXPECT_TRUE(mWatcher->isBehind(mRing.end()));
    EXPECT_FALSE(mWatcher->isOver());
}

TEST_F(WatcherOnConnection, FinishesALineBeforeItTellsWhatIsMissing) {
    const int lFilled = fill();
    const int lEnd = lFilled + 10 * static_cast<int>(kLines);
    for (int lLine = lFilled; lLine < lEnd; ++lLine) {
        put(lineOf(lLine));
    }
    std::string lText;
    EXPECT_TRUE(test::waitUntil([&] {
        const std::string lMore = take(65536);
        lText += lMore;
        mWatcher->roomMade();
        giveAll();
        return !mWatcher->isBehind(mRing.end()) && lMore.empty();
    }));
    int lNext = 0;
    for (std::size_t lPlace = 0; lPlace < lText.size();) {
        const std::string lLine = lText.substr(lPlace, lText.find('\n', lPlace) + 1 - lPlace);
        int lMissed = 0;
        if (std::sscanf(lLine.c_str(), "RedirectService: %d lines dropped", &lMissed) == 1) {
            EXPECT_LE(lFilled - 1, lNext);
            lNext += lMissed;
        } else {
            ASSERT_EQ(lineOf(lNext), lLine);
            ++lNext;
        }
        lPlace += lLine.size();
    }
    EXPECT_EQ(lEnd, lNext);
}

TEST_F(WatcherOnConnection, KnowsForHowLongTheClientHasTakenNothing) {
    fill();
    // What is on its way yet may still arrive, and begins the time anew.
    EXPECT_TRUE(test::waitUntil([&] {
        const Watcher::Clock::duration lBefore = lookAfter(seconds(0));
        int lSecond = 1;
        while (lSecond <= 40 && lookAfter(seconds(1)) == lBefore + seconds(lSecond)) {
            ++lSecond;
        }
        return lSecond > 40;
    }));
    EXPECT_EQ(seconds(30), mWatcher->patience());
    // What the client reads, the kernel's acknowledgement tells.
    EXPECT_TRUE(test::waitUntil([&] {
        take(65536);
        return lookAfter(seconds(0)) == seconds(0);
    }));
}

TEST_F(WatcherOnConnection, DoesNotCountTheTimeInWhichThereIsNothingToTake) {
    put("one\n");
    giveAll();
    EXPECT_TRUE(test::waitUntil([&] {
        lookAfter(seconds(0));
        return !mWatcher->owes();
    }));
    mNow += std::chrono::hours(24);
    fill();
    EXPECT_TRUE(mWatcher->owes());
    EXPECT_EQ(seconds(0), lookAfter(seconds(0)));
    EXPECT_GE(seconds(1), lookAfter(seconds(1)));
}

TEST_F(WatcherOnConnection, TellsOfAConnectionThatFailed) {
    mClient.reset();
    put("one\n");
    std::size_t lFailed = 0;
    EXPECT_TRUE(test::waitUntil([&] {
        put("more\n");
        lFailed = mWatcher->give(mRing, *mChunk, mNow);
        return lFailed != 0;
    }));
    EXPECT_TRUE(mWatcher->isOver());
    EXPECT_FALSE(mWatcher->mayTake());
}

TEST_F(WatcherOnConnection, EndsTheConnectionOfOneThatIsGivenUp) {
    fill();
    mWatcher->cut();
    EXPECT_TRUE(mWatcher->isOver());
    mServer.close();
    EXPECT_TRUE(mClient.waitForClose());
}

/// Ten minutes of a client that reads two kilobytes a second of what is logged faster: at no time
/// it counts as one that takes nothing, though its kernel makes room in large steps only. A second
/// passes in no time here, so that bytes and acknowledgements on their way are waited for.
TEST_P(WatcherWithBuffer, IsPatientWithASteadyReader) {
    int lLine = 0;
    for (int lSecond = 0; lSecond < 600; ++lSecond) {
        for (int lMore = 0; lMore < 20; ++lMore) {
            put(lineOf(lLine++));
        }
        ASSERT_TRUE(test::waitUntil([&] {
            mWatcher->roomMade();
            giveAll();
            return !take(Watcher::kSlowest).empty();
        })) << lSecond;
        mNow += seconds(1);
        ASSERT_TRUE(test::waitUntil([&] { return lookAfter(seconds(0)) < mWatcher->patience(); }))
            << lSecond;
    }
}

/// As the kernel has them, with more, and with less.
INSTANTIATE_TEST_SUITE_P(Buffers, WatcherWithBuffer,
                         testing::Values(0, 2048, 16384, 65536, 262144, 1048576, 4194304));
