// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "osx/FakeHost.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"
#include "support/times.h"

using std::chrono::milliseconds;
using test::elapsedSince;
using Clock = std::chrono::steady_clock;

namespace {

constexpr time_t kYear = 365 * 24 * 3600;

/// The clock is set at the worst moment, while the loops wait, and stays as it is set.
class StepOfTheClock : public testing::TestWithParam<time_t> {
protected:
    StepOfTheClock() { mPrompt = osxCreateTimer(&test::count, &mServed, 1, 0); }
    ~StepOfTheClock() override { osxDestroyTimer(mPrompt); }

    void step() {
        ASSERT_TRUE(mServed.waitFor(1));
        std::this_thread::sleep_for(test::kAWhile);  // until the loops wait again
        test::stepWallClock(GetParam());
    }

    test::Counter mServed;
    void* mPrompt;
};

}  // namespace

TEST_P(StepOfTheClock, NeitherFiresNorStallsATimer) {
    test::Counter lSoon;
    test::Counter lPeriods;
    test::Counter lLate;
    const auto lStart = Clock::now();
    constexpr milliseconds kDelay(300);
    constexpr milliseconds kPeriod(100);
    void* lOnce = osxCreateTimer(&test::count, &lSoon, kDelay.count(), 0);
    void* lPeriodic = osxCreateTimer(&test::count, &lPeriods, kPeriod.count(), 1);
    void* lNotYet = osxCreateTimer(&test::count, &lLate, 3600000, 0);
    const test::RunningReactor lLoop(2);
    step();
    EXPECT_TRUE(lSoon.waitFor(1));
    EXPECT_GE(elapsedSince(lStart), kDelay - test::kRounding);
    EXPECT_LT(elapsedSince(lStart), kDelay + test::kSlack);
    EXPECT_TRUE(lPeriods.waitFor(5));
    const int lCalls = lPeriods.value();
    EXPECT_LE(lCalls, elapsedSince(lStart) / kPeriod);
    EXPECT_EQ(0, lLate.value());
    for (void* lTimer : {lOnce, lPeriodic, lNotYet}) {
        osxDestroyTimer(lTimer);
    }
}

TEST_P(StepOfTheClock, LeavesTimersMadeAfterItAlone) {
    const test::RunningReactor lLoop;
    step();
    test::Counter lSoon;
    const auto lStart = Clock::now();
    constexpr milliseconds kDelay(50);
    void* lTimer = osxCreateTimer(&test::count, &lSoon, kDelay.count(), 0);
    EXPECT_TRUE(lSoon.waitFor(1));
    EXPECT_GE(elapsedSince(lStart), kDelay - test::kRounding);
    EXPECT_LT(elapsedSince(lStart), kDelay + test::kSlack);
    osxDestroyTimer(lTimer);
}

TEST_P(StepOfTheClock, DoesNotKeepTheThreadsFromStopping) {
    const test::RunningReactor lLoop(3);
    step();
    const auto lStart = Clock::now();
    test::RunningReactor::reactor().stopAndDeleteReactorThreads();
    EXPECT_LT(elapsedSince(lStart), test::kSlack);
}

TEST_P(StepOfTheClock, LeavesTheLimitOfAConnectAlone) {
    const test::RunningReactor lLoop;
    step();
    const test::TcpListener lListener;
    void* lSocket = nullptr;
    EXPECT_EQ(0UL, osxOpenSocket(lSocket, lListener.address().c_str()));
    osxCloseSocketAndRelease(lSocket);
}

INSTANTIATE_TEST_SUITE_P(AYear, StepOfTheClock, testing::Values(kYear, -kYear));
