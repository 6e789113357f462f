// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "commif/Fixtures.h"
#include "commif/SerialLine.h"
#include "support/LogCapture.h"
#include "support/cancellation.h"
#include "support/longForm.h"

using test::Channel;

namespace {

/// How long threads work against each other; more by hand, to look for what is rare.
std::chrono::seconds stressTime() {
    return test::stressTime(std::chrono::seconds(3));
}

/// The descriptors that threads hold, each of which may be held only once.
class Holders {
public:
    bool take(int aDesc) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        return mHeld.insert(aDesc).second;
    }
    void giveBack(int aDesc) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        mHeld.erase(aDesc);
    }

private:
    std::mutex mMutex;
    std::set<int> mHeld;
};

/// Opens one channel, has it used, and closes it. @return whether all went well.
template <class Use>
bool useOne(Holders& aHolders, const commIfDevParams_t& aParams, const char* aQueueName, Use aUse) {
    Channel lChannel(aParams, aQueueName);
    if (lChannel.status() != 0 || !aHolders.take(lChannel.desc())) {
        return false;
    }
    const bool lUsed = aUse(lChannel.desc());
    aHolders.giveBack(lChannel.desc());
    return lChannel.close() == 0 && lUsed;
}

bool writeAndCount(int aDesc, std::string aText) {
    unsigned long lCount = 0;
    return commIfWrite(aDesc, test::bytes(aText), aText.size(), &lCount) == 0 &&
           lCount == aText.size();
}

bool readBack(int aDesc, const std::string& aText) {
    std::string lRead(aText.size(), '\0');
    unsigned long lCount = 0;
    return commIfRead(aDesc, test::bytes(lRead), lRead.size(), &lCount) == 0 && lRead == aText;
}

bool useFile(int aDesc) {
    struct {
        unsigned int origin;
        int offset;
    } lStart{0, 0};
    return writeAndCount(aDesc, "sentence") && commIfIoctl(aDesc, 50, &lStart) == 0 &&
           readBack(aDesc, "sentence");
}

bool useQueue(int aDesc) {
    return writeAndCount(aDesc, "message") && readBack(aDesc, "message");
}

/// One thread's work: channels of every type, again and again.
class Worker {
public:
    Worker(const test::TempDir& aDir, Holders& aHolders, int aNumber)
        : mHolders(aHolders), mFile(aDir.path("file" + std::to_string(aNumber))) {}

    void run(std::chrono::steady_clock::time_point aEnd) {
        do {
            mGood = mGood && turn();
            ++mTurns;
        } while (mGood && std::chrono::steady_clock::now() < aEnd);
    }

    bool good() const { return mGood; }
    int turns() const { return mTurns; }

private:
    bool turn() {
        return useOne(mHolders, test::fileParams(mFile, 0x302), nullptr, useFile) &&
               useOne(mHolders, test::msgParams(1000, 10000), "stress", useQueue) &&
               useOne(mHolders, test::netParams(mConnection.socket()), nullptr,
                      [this](int aDesc) { return useSocket(aDesc); }) &&
               useOne(mHolders, serialParams(), nullptr,
                      [this](int aDesc) { return useLine(aDesc); }) &&
               useOne(mHolders, test::consoleParams(), nullptr,
                      [](int aDesc) { return writeAndCount(aDesc, "."); });
    }

    bool useSocket(int aDesc) {
        return writeAndCount(aDesc, "question") && mConnection.peer().receive(8) == "question" &&
               mConnection.peer().send("answer") && readBack(aDesc, "answer");
    }

    commIfDevParams_t serialParams() const {
        commIfDevParams_t lParams = test::consoleParams();
        lParams.devType = eSERIAL;
        lParams.serial.portNr = mLine.port();
        lParams.serial.readTimeout = 10000;
        lParams.serial.baudRate = 115200;
        lParams.serial.dataBits = 8;
        return lParams;
    }

    bool useLine(int aDesc) const {
        if (!writeAndCount(aDesc, "ping") || mLine.receive(4) != "ping") {
            return false;
        }
        mLine.send("pong");
        return readBack(aDesc, "pong");
    }

    Holders& mHolders;
    std::string mFile;
    test::SerialLine mLine;
    test::Connection mConnection;
    bool mGood = true;
    int mTurns = 0;
};

}  // namespace

TEST(DescriptorThreads, UseChannelsOfAllTypesAtOnce) {
    const test::TempDir lDir;
    const test::ConsoleCapture lConsole;
    const test::LogCapture lLog;
    Holders lHolders;
    Worker lOne(lDir, lHolders, 1);
    Worker lTwo(lDir, lHolders, 2);
    const auto lEnd = std::chrono::steady_clock::now() + stressTime();
    std::thread lThread([&] { lOne.run(lEnd); });
    lTwo.run(lEnd);
    lThread.join();
    EXPECT_TRUE(lOne.good());
    EXPECT_TRUE(lTwo.good());
    EXPECT_GT(lOne.turns(), 1);
    for (const commIfDesc_t& lEntry : commIfDesc) {
        EXPECT_EQ(0U, lEntry.used);
    }
}

TEST(DescriptorThreads, AreNeverGivenTheSameOne) {
    constexpr int kEach = 50;
    constexpr int kThreads = 4;
    std::atomic<bool> lGo{false};
    std::vector<std::vector<int>> lTaken(kThreads);
    std::vector<std::thread> lThreads;
    for (std::vector<int>& lMine : lTaken) {
        lThreads.emplace_back([&lGo, &lMine] {
            while (!lGo) {
                std::this_thread::yield();
            }
            commIfDevParams_t lParams = test::consoleParams();
            for (int lCount = 0; lCount < kEach; ++lCount) {
                int lDesc = -1;
                EXPECT_EQ(0, commIfOpen(&lDesc, &lParams, nullptr));
                lMine.push_back(lDesc);
            }
        });
    }
    lGo = true;
    std::set<int> lAll;
    for (std::size_t lIndex = 0; lIndex < lThreads.size(); ++lIndex) {
        lThreads[lIndex].join();
        lAll.insert(lTaken[lIndex].begin(), lTaken[lIndex].end());
    }
    EXPECT_EQ(static_cast<std::size_t>(kEach * kThreads), lAll.size());
    std::for_each(lAll.begin(), lAll.end(), [](int aDesc) { EXPECT_EQ(0, commIfClose(aDesc)); });
}

TEST(DescriptorThreads, ReadWriteAndSetTheTimeoutOfOneQueue) {
    const Channel lChannel(test::msgParams(100, 10000), "shared");
    constexpr int kMessages = 200;
    std::thread lReader([&] {
        for (int lCount = 0; lCount < kMessages; ++lCount) {
            EXPECT_TRUE(readBack(lChannel.desc(), "message"));
        }
    });
    for (int lCount = 0; lCount < kMessages; ++lCount) {
        EXPECT_TRUE(writeAndCount(lChannel.desc(), "message"));
        EXPECT_EQ(0, commIfIoctl(lChannel.desc(), 6, reinterpret_cast<void*>(20000 + lCount)));
    }
    lReader.join();
}

TEST(CancelledThread, LeavesNoDescriptorBehindWhenItOpens) {
    const test::CancellingLog lLog;
    commIfDevParams_t lParams = test::fileParams("/nowhere/at/all", 0);
    EXPECT_TRUE(test::isCancelledIn([&] {
        int lDesc = -1;
        commIfOpen(&lDesc, &lParams, nullptr);
    }));
    EXPECT_EQ(0U, commIfDesc[COMMIF_FIRST_DESC].used);
}

TEST(CancelledThread, FinishesWhatItCloses) {
    const test::TempDir lDir;
    Channel lFile(test::fileParams(lDir.file("file", "text"), 0));
    ASSERT_EQ(0, lFile.status());
    EXPECT_TRUE(test::outlastsItsCancellation([&] { EXPECT_EQ(0, lFile.close()); }));
}

TEST(CancelledThread, MayBeWritingToTheConsole) {
    const test::ConsoleCapture lConsole;
    char lText[] = "text";
    EXPECT_TRUE(test::isCancelledIn([&] { commfputs(lText, 1); }));
    EXPECT_TRUE(test::isCancelledIn([] { commfprintf(1, "%d", 5); }));
    commfputs(lText, 1);
    EXPECT_NE(std::string::npos, lConsole.text().find("text"));
}
