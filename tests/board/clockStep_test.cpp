// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Steps the board's clock by a year while timers run and a thread waits on a queue.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "board/ClockRestorer.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr milliseconds kPeriod(100);
constexpr milliseconds kOneShot(1500);
constexpr milliseconds kWait(2000);
/// What the emulated processor may come late on a busy machine; the steps are ten million times it.
constexpr milliseconds kLate(1500);

milliseconds since(steady_clock::time_point aStart) {
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - aStart);
}

/// Notes when a timer fires, counted from its making.
class Firings {
public:
    static void note(const void* aSelf) {
        auto* const lSelf = const_cast<Firings*>(static_cast<const Firings*>(aSelf));
        const std::lock_guard<std::mutex> lGuard(lSelf->mMutex);
        lSelf->mTimes.push_back(since(lSelf->mStart));
        lSelf->mFired.notify_all();
    }

    bool waitFor(std::size_t aCount) {
        std::unique_lock<std::mutex> lLock(mMutex);
        return mFired.wait_for(lLock, std::chrono::seconds(30),
                               [&] { return mTimes.size() >= aCount; });
    }

    std::vector<milliseconds> times() {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        return mTimes;
    }

    milliseconds age() const { return since(mStart); }

private:
    const steady_clock::time_point mStart = steady_clock::now();
    std::mutex mMutex;
    std::condition_variable mFired;
    std::vector<milliseconds> mTimes;
};

OSX_Reactor* reactor() {
    return ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
}

void stepYears(int aYears) {
    std::array<unsigned int, 6> lTime{};
    osxGetTime(&lTime[0], &lTime[1], &lTime[2], &lTime[3], &lTime[4], &lTime[5]);
    osxSetTime(lTime[0], lTime[1], lTime[2], std::min(lTime[3], 28U), lTime[4],
               lTime[5] + static_cast<unsigned int>(aYears), false);
}

class ClockStep : public testing::TestWithParam<int> {
protected:
    void SetUp() override { reactor()->startReactor(); }
    void TearDown() override { reactor()->stopAndDeleteReactorThreads(); }

private:
    test::ClockRestorer mRestorer;
};

/// The longest time without a firing, up to now.
milliseconds longestGap(Firings& aFirings) {
    milliseconds lLast(0);
    milliseconds lGap(0);
    auto lTimes = aFirings.times();
    lTimes.push_back(aFirings.age());
    for (const milliseconds lTime : lTimes) {
        lGap = std::max(lGap, lTime - lLast);
        lLast = lTime;
    }
    return lGap;
}

}  // namespace

TEST_P(ClockStep, NeitherFiresNorStallsAPeriodicTimer) {
    Firings lFirings;
    void* lTimer = osxCreateTimer(Firings::note, &lFirings, kPeriod.count(), 1);
    ASSERT_TRUE(lFirings.waitFor(3));
    stepYears(GetParam());
    const std::size_t lAtStep = lFirings.times().size();
    EXPECT_TRUE(lFirings.waitFor(lAtStep + 15));
    osxDestroyTimer(lTimer);

    const auto lPeriods = static_cast<std::size_t>(lFirings.age() / kPeriod);
    EXPECT_LE(lFirings.times().size(), lPeriods);
    EXPECT_LT(longestGap(lFirings), kPeriod + kLate);
}

TEST_P(ClockStep, NeitherHastensNorDelaysAOneShotTimer) {
    Firings lFirings;
    void* lTimer = osxCreateTimer(Firings::note, &lFirings, kOneShot.count(), 0);
    osxSleep(200);
    stepYears(GetParam());
    EXPECT_TRUE(lFirings.waitFor(1));
    osxDestroyTimer(lTimer);

    const auto lTimes = lFirings.times();
    ASSERT_EQ(1U, lTimes.size());
    EXPECT_GE(lTimes[0], kOneShot);
    EXPECT_LT(lTimes[0], kOneShot + kLate);
}

TEST_P(ClockStep, NeitherEndsNorLengthensAQueueWait) {
    void* lQueue = nullptr;
    ASSERT_EQ(0U, osxMsgQueueInit(100, 10, &lQueue, "step"));
    unsigned int lResult = 0;
    milliseconds lWaited(0);
    std::thread lReceiver([&] {
        std::array<char, 8> lBuffer{};
        unsigned long lReceived = 0;
        const auto lStart = steady_clock::now();
        lResult = osxMsgRecv(lQueue, lBuffer.data(), lBuffer.size(), &lReceived,
                             static_cast<unsigned long>(kWait.count()));
        lWaited = since(lStart);
    });
    osxSleep(500);
    stepYears(GetParam());
    lReceiver.join();
    osxMsgQueueDelete(lQueue);

    EXPECT_EQ(OSX_ERR_QUEUE_RECV, lResult);
    EXPECT_GE(lWaited, kWait);
    EXPECT_LT(lWaited, kWait + kLate);
}

TEST_P(ClockStep, LeavesASleepItsLength) {
    const auto lStart = steady_clock::now();
    std::thread lSleeper([] { osxSleep(1000); });
    osxSleep(200);
    stepYears(GetParam());
    lSleeper.join();
    EXPECT_GE(since(lStart), milliseconds(1000));
    EXPECT_LT(since(lStart), milliseconds(1000) + kLate);
}

INSTANTIATE_TEST_SUITE_P(Years, ClockStep, testing::Values(1, -1),
                         [](const testing::TestParamInfo<int>& aInfo) -> std::string {
                             return aInfo.param > 0 ? "Forward" : "Back";
                         });
