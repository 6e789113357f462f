#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "osx/FakeHost.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr time_t kYear = 365 * 24 * 3600;
constexpr milliseconds kSlack(20000);

milliseconds elapsedSince(Clock::time_point aStart) {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - aStart);
}

/// The clock is set at the worst moment, while the loops wait, and stays as it is set.
class StepOfTheClock : public testing::TestWithParam<time_t> {
protected:
    StepOfTheClock() { mPrompt = osxCreateTimer(&test::count, &mServed, 1, 0); }
    ~StepOfTheClock() override { osxDestroyTimer(mPrompt); }

    void step() {
        ASSERT_TRUE(mServed.waitFor(1));
        std::this_thread::sleep_for(milliseconds(20));
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
    void* lOnce = osxCreateTimer(&test::count, &lSoon, 300, 0);
    void* lPeriodic = osxCreateTimer(&test::count, &lPeriods, 100, 1);
    void* lNotYet = osxCreateTimer(&test::count, &lLate, 3600000, 0);
    const test::RunningReactor lLoop(2);
    step();
    EXPECT_TRUE(lSoon.waitFor(1));
    EXPECT_GE(elapsedSince(lStart), milliseconds(299));
    EXPECT_LT(elapsedSince(lStart), milliseconds(300) + kSlack);
    EXPECT_TRUE(lPeriods.waitFor(5));
    const int lCalls = lPeriods.value();
    EXPECT_LE(lCalls, elapsedSince(lStart).count() / 100);
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
    void* lTimer = osxCreateTimer(&test::count, &lSoon, 50, 0);
    EXPECT_TRUE(lSoon.waitFor(1));
    EXPECT_GE(elapsedSince(lStart), milliseconds(49));
    EXPECT_LT(elapsedSince(lStart), milliseconds(50) + kSlack);
    osxDestroyTimer(lTimer);
}

TEST_P(StepOfTheClock, DoesNotKeepTheThreadsFromStopping) {
    const test::RunningReactor lLoop(3);
    step();
    const auto lStart = Clock::now();
    test::RunningReactor::reactor().stopAndDeleteReactorThreads();
    EXPECT_LT(elapsedSince(lStart), milliseconds(250) + kSlack);
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
