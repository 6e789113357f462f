// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "osx/osxTimeoutHandler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "ace/Reactor.h"
#include "ace/Time_Value.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"
#include "support/cancellation.h"
#include "support/logMatchers.h"
#include "support/serving.h"

using std::chrono::milliseconds;
using test::elapsedSince;
using testing::ElementsAre;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;

namespace {

constexpr char kNullDestroy[] = "%t osxDestroyTimer: lTimeoutHandler==0. \n";
constexpr char kNullCancel[] = "%t osxCancelTimer: lTimeoutHandler==0. \n";
constexpr char kNotScheduled[] =
    "%t osxTimeoutHandler::osxTimeoutHandler: Unable to schedule_timer with the reactor\n";

/// Long enough for a wrong timer to show itself.
constexpr milliseconds kQuiet(150);

}  // namespace

TEST(Timer, FiresOnceAfterItsDelayWithItsArgument) {
    const test::RunningReactor lLoop;
    test::Counter lCounter;
    const auto lStart = Clock::now();
    constexpr milliseconds kDelay(100);
    void* lTimer = osxCreateTimer(&test::count, &lCounter, kDelay.count(), 0);
    ASSERT_NE(nullptr, lTimer);
    EXPECT_TRUE(lCounter.waitFor(1));
    EXPECT_GE(elapsedSince(lStart), kDelay - test::kRounding);
    EXPECT_FALSE(lCounter.waitFor(2, 2 * kDelay));
    osxDestroyTimer(lTimer);
}

TEST(Timer, AnyIntervalRepeatsTheDelay) {
    const test::RunningReactor lLoop;
    for (const long lInterval : {1L, 3600000L, -1L}) {
        test::Counter lCounter;
        const auto lStart = Clock::now();
        constexpr milliseconds kDelay(50);
        void* lTimer = osxCreateTimer(&test::count, &lCounter, kDelay.count(), lInterval);
        EXPECT_TRUE(lCounter.waitFor(3)) << lInterval;
        EXPECT_GE(elapsedSince(lStart), 3 * kDelay - test::kRounding) << lInterval;
        osxDestroyTimer(lTimer);
    }
}

TEST(Timer, ADelayOfNothingFiresAtTheNextPassOnce) {
    const test::RunningReactor lLoop;
    for (const long lDelay : {0L, -1L, static_cast<long>(INT_MIN)}) {
        for (const long lInterval : {0L, 1L}) {
            test::Counter lCounter;
            void* lTimer = osxCreateTimer(&test::count, &lCounter, lDelay, lInterval);
            EXPECT_TRUE(lCounter.waitFor(1));
            EXPECT_FALSE(lCounter.waitFor(2, test::kAWhile)) << lDelay << ' ' << lInterval;
            osxDestroyTimer(lTimer);
        }
    }
}

TEST(Timer, LongDelaysDoNotOverflow) {
    const test::RunningReactor lLoop;
    for (const long lDelay : {3600000L, 2147484L, 4294968L, static_cast<long>(INT_MAX)}) {
        test::Counter lCounter;
        void* lTimer = osxCreateTimer(&test::count, &lCounter, lDelay, 0);
        EXPECT_FALSE(lCounter.waitFor(1, test::kAWhile)) << lDelay;
        EXPECT_EQ(1, osxCancelTimer(lTimer));
        osxDestroyTimer(lTimer);
    }
}

TEST(Timer, NothingFiresWithoutALoop) {
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 0, 0);
    EXPECT_FALSE(lCounter.waitFor(1, kQuiet));
    test::serve();
    EXPECT_EQ(1, lCounter.value());
    osxDestroyTimer(lTimer);
}

TEST(Timer, CreatedBeforeTheReactorStartsFiresAfterwards) {
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 10, 0);
    const test::RunningReactor lLoop;
    EXPECT_TRUE(lCounter.waitFor(1));
    osxDestroyTimer(lTimer);
}

TEST(Timer, CancelStopsItForGood) {
    const test::RunningReactor lLoop;
    const test::LogCapture lLog;
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 20, 1);
    EXPECT_TRUE(lCounter.waitFor(2));
    EXPECT_EQ(1, osxCancelTimer(lTimer));
    const int lCalls = lCounter.value();
    EXPECT_FALSE(lCounter.waitFor(lCalls + 2, kQuiet));
    EXPECT_EQ(0, osxCancelTimer(lTimer));
    osxDestroyTimer(lTimer);
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(Timer, CancellingOneThatHasFiredWritesNoLine) {
    const test::RunningReactor lLoop;
    const test::LogCapture lLog;
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 1, 0);
    EXPECT_TRUE(lCounter.waitFor(1));
    EXPECT_EQ(0, osxCancelTimer(lTimer));
    osxDestroyTimer(lTimer);
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

/// The reactor gives the ids of fired timers to new ones; the queue starts with room for some
/// dozens, so that a few hundred timers have used every id again.
TEST(Timer, CancellingOneThatHasFiredLeavesThoseThatGotItsIdAlone) {
    constexpr int kTimers = 400;
    std::vector<void*> lFired;
    test::Counter lCounter;
    for (int lIndex = 0; lIndex < kTimers; ++lIndex) {
        lFired.push_back(osxCreateTimer(&test::count, &lCounter, 0, 0));
        ASSERT_TRUE(test::serveUntil([&] { return lCounter.value() > lIndex; }));
    }
    std::vector<void*> lPending;
    for (int lIndex = 0; lIndex < kTimers; ++lIndex) {
        lPending.push_back(osxCreateTimer(&test::count, &lCounter, 3600000, 0));
    }
    for (void*& lTimer : lFired) {
        EXPECT_EQ(0, osxCancelTimer(lTimer));
        osxDestroyTimer(lTimer);
    }
    for (void*& lTimer : lPending) {
        EXPECT_EQ(1, osxCancelTimer(lTimer));
        osxDestroyTimer(lTimer);
    }
}

TEST(Timer, DestroyStopsItAndClearsTheHandle) {
    const test::RunningReactor lLoop;
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 50, 1);
    osxDestroyTimer(lTimer);
    EXPECT_EQ(nullptr, lTimer);
    EXPECT_FALSE(lCounter.waitFor(1, kQuiet));
}

TEST(Timer, NullHandlesWriteOneErrorLineEach) {
    const test::LogCapture lLog;
    void* lNone = nullptr;
    osxDestroyTimer(lNone);
    EXPECT_EQ(-1, osxCancelTimer(nullptr));
    EXPECT_EQ(nullptr, lNone);
    EXPECT_THAT(lLog.texts(), ElementsAre(kNullDestroy, kNullCancel));
    EXPECT_THAT(lLog.lines(), testing::Each(test::IsLineOf(LM_ERROR, -1, "osxACE.cpp")));
}

TEST(Timer, WithoutAFunctionFiringWritesALine) {
    const test::LogCapture lLog;
    void* lTimer = osxCreateTimer(nullptr, nullptr, 0, 0);
    test::serve();
    osxDestroyTimer(lTimer);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxTimeoutHandler::handle_timeout: mFnc == 0\n"));
    EXPECT_EQ(LM_ERROR, lLog.lines()[0].priority);
    EXPECT_EQ(-1, lLog.lines()[0].status);
    EXPECT_EQ("osxTimeoutHandler.cpp", lLog.lines()[0].module);
}

TEST(Timer, HandleTimeoutCallsTheFunctionWithTheAct) {
    test::Counter lScheduled;
    test::Counter lAct;
    osxTimeoutHandler lHandler(&test::count, &lScheduled, 3600000, 0);
    EXPECT_EQ(0, lHandler.handle_timeout(ACE_Time_Value::zero, &lAct));
    EXPECT_EQ(1, lAct.value());
    EXPECT_EQ(0, lScheduled.value());
}

TEST(Timer, ThatCannotBeAllocatedIsNullWithEnomem) {
    const test::LogCapture lLog;
    test::RunningReactor::reactor().initReactor();
    const test::FailingAllocator lNoMemory;
    errno = 0;
    EXPECT_EQ(nullptr, osxCreateTimer(&test::count, nullptr, 1, 0));
    EXPECT_EQ(ENOMEM, errno);
}

TEST(Timer, ThatCannotBeScheduledIsStillATimer) {
    test::RunningReactor::reactor().initReactor();
    for (const int lAllowed : {1, 2}) {
        const test::LogCapture lLog;
        test::Counter lCounter;
        void* lTimer = nullptr;
        {
            const test::FailingAllocator lNoMemory(lAllowed, true);
            lTimer = osxCreateTimer(&test::count, &lCounter, 0, 0);
        }
        ASSERT_NE(nullptr, lTimer);
        EXPECT_THAT(lLog.texts(), ElementsAre(kNotScheduled));
        EXPECT_EQ(LM_ERROR, lLog.lines()[0].priority);
        EXPECT_EQ(-1, lLog.lines()[0].status);
        EXPECT_EQ("osxTimeoutHandler.cpp", lLog.lines()[0].module);
        EXPECT_EQ(0, osxCancelTimer(lTimer));
        test::serve();
        EXPECT_EQ(0, lCounter.value());
        osxDestroyTimer(lTimer);
    }
}

namespace {

struct SelfDestroying {
    void* timer = nullptr;
    test::Counter destroyed;
    std::mutex created;

    static void fire(const void* aSelf) {
        auto* const lSelf = const_cast<SelfDestroying*>(static_cast<const SelfDestroying*>(aSelf));
        {
            const std::lock_guard<std::mutex> lGuard(lSelf->created);
        }
        osxDestroyTimer(lSelf->timer);
        lSelf->destroyed.add();
    }
};

void createSelfDestroying(SelfDestroying& aSelf, long aInterval) {
    const std::lock_guard<std::mutex> lGuard(aSelf.created);
    aSelf.timer = osxCreateTimer(&SelfDestroying::fire, &aSelf, 1, aInterval);
}

}  // namespace

TEST(Timer, ACallbackMayDestroyItsOwnTimer) {
    const test::RunningReactor lLoop(2);
    for (const long lInterval : {0L, 1L}) {
        SelfDestroying lSelf;
        createSelfDestroying(lSelf, lInterval);
        EXPECT_TRUE(lSelf.destroyed.waitFor(1));
        EXPECT_FALSE(lSelf.destroyed.waitFor(2, test::kAWhile));
        EXPECT_EQ(nullptr, lSelf.timer);
    }
}

namespace {

/// What a callback uses: it is freed right after the timer was destroyed.
struct Datum {
    std::atomic<bool> alive{true};
    static std::atomic<int> gLateCalls;

    static void fire(const void* aDatum) {
        if (!static_cast<const Datum*>(aDatum)->alive) {
            ++gLateCalls;
        }
    }
};
std::atomic<int> Datum::gLateCalls{0};

}  // namespace

TEST(Timer, NoCallbackBeginsAfterDestroy) {
    const test::RunningReactor lLoop(2);
    std::vector<std::unique_ptr<Datum>> lData;
    for (int lRound = 0; lRound < 1000; ++lRound) {
        lData.push_back(std::make_unique<Datum>());
        void* lTimer = osxCreateTimer(&Datum::fire, lData.back().get(), 1, lRound % 2);
        std::this_thread::sleep_for(std::chrono::microseconds(900 + lRound % 20 * 10));
        const auto lStart = Clock::now();
        osxDestroyTimer(lTimer);
        // A callback that began before may take longer than it is waited for, on a busy machine.
        lData.back()->alive = Clock::now() - lStart >= test::kDestroyWaits;
    }
    EXPECT_EQ(0, Datum::gLateCalls);
}

TEST(Timer, DestroyWaitsOnlyAWhileForACallbackThatDoesNotEnd) {
    const test::RunningReactor lLoop;
    struct Stuck {
        test::Counter entered;
        test::Counter released;
    } lStuck;
    void* lTimer = osxCreateTimer(
        [](const void* aStuck) {
            auto* const lIt = const_cast<Stuck*>(static_cast<const Stuck*>(aStuck));
            lIt->entered.add();
            lIt->released.waitFor(1);
        },
        &lStuck, 0, 0);
    ASSERT_TRUE(lStuck.entered.waitFor(1));
    osxDestroyTimer(lTimer);
    lStuck.released.add();
}

TEST(Timer, OutlivesTheReactorItWasMadeOn) {
    test::Counter lCounter;
    auto lReactor = std::make_unique<ACE_Reactor>();
    ACE_Reactor* const lFormer = ACE_Reactor::instance(lReactor.get());
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 3600000, 1);
    ACE_Reactor::instance(lFormer);
    lReactor.reset();
    EXPECT_EQ(0, osxCancelTimer(lTimer));
    osxDestroyTimer(lTimer);
}

TEST(Timer, StaysWithTheReactorItWasMadeOn) {
    test::Counter lCounter;
    ACE_Reactor lOther;
    ACE_Reactor* const lFormer = ACE_Reactor::instance(&lOther);
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 3600000, 0);
    ACE_Reactor::instance(lFormer);
    EXPECT_EQ(1, osxCancelTimer(lTimer));
    osxDestroyTimer(lTimer);
}

namespace {

/// A reactor class of an application's own.
class OwnKindOfReactor : public ACE_Reactor {
public:
    static constexpr long kTimerID = 4711;

    explicit OwnKindOfReactor(long aTimerID = kTimerID) : mTimerID(aTimerID) {}

    long schedule_timer(ACE_Event_Handler* aHandler, const void*, const ACE_Time_Value&,
                        const ACE_Time_Value&) override {
        mScheduled = aHandler;
        return mTimerID;
    }
    using ACE_Reactor::cancel_timer;
    int cancel_timer(long aTimerID, const void**, int) override {
        mCancelled.push_back(aTimerID);
        return -1;
    }

    const long mTimerID;
    const ACE_Event_Handler* mScheduled = nullptr;
    std::vector<long> mCancelled;
};

/// A timer of an application's own kind.
class OwnKindOfTimer : public osxTimeoutHandler {
public:
    OwnKindOfTimer(test::Counter& aOverridden, test::Counter& aFunction, long aDelayMs)
        : osxTimeoutHandler(&test::count, &aFunction, aDelayMs, 1), mOverridden(aOverridden) {}
    ~OwnKindOfTimer() override { cancel(); }
    OwnKindOfTimer(const OwnKindOfTimer&) = delete;
    OwnKindOfTimer& operator=(const OwnKindOfTimer&) = delete;

    int handle_timeout(const ACE_Time_Value&, const void*) override {
        mOverridden.add();
        return 0;
    }

private:
    test::Counter& mOverridden;
};

/// The library's own reactor, and one of ACE's, in turn.
template <class Test>
void onEachReactor(Test aTest) {
    test::RunningReactor::reactor().initReactor();
    aTest();
    ACE_Reactor lPlain;
    ACE_Reactor* const lFormer = ACE_Reactor::instance(&lPlain);
    aTest();
    ACE_Reactor::instance(lFormer);
}

}  // namespace

TEST(Timer, IsItselfTheHandlerThatTheReactorIsGiven) {
    OwnKindOfReactor lReactor;
    ACE_Reactor* const lFormer = ACE_Reactor::instance(&lReactor);
    {
        const osxTimeoutHandler lTimer(&test::count, nullptr, 3600000, 0);
        EXPECT_EQ(&lTimer, lReactor.mScheduled);
    }
    ACE_Reactor::instance(lFormer);
}

TEST(Timer, OfADerivedClassCallsTheOverride) {
    onEachReactor([] {
        test::Counter lOverridden;
        test::Counter lFunction;
        const OwnKindOfTimer lTimer(lOverridden, lFunction, 1);
        EXPECT_TRUE(test::serveUntil([&] { return lOverridden.value() >= 2; }));
        EXPECT_EQ(0, lFunction.value());
    });
}

TEST(Timer, IsCancelledByTheReactorAsAHandler) {
    onEachReactor([] {
        test::Counter lCounter;
        osxTimeoutHandler lTimer(&test::count, &lCounter, 1, 1);
        EXPECT_EQ(1, ACE_Reactor::instance()->cancel_timer(&lTimer));
        test::serve();
        EXPECT_EQ(0, lCounter.value());
        EXPECT_EQ(0, lTimer.cancel());
    });
}

TEST(Timer, AsksTheReactorAlsoWhenItCouldNotBeScheduled) {
    const test::LogCapture lLog;
    OwnKindOfReactor lReactor(-1);
    ACE_Reactor* const lFormer = ACE_Reactor::instance(&lReactor);
    {
        osxTimeoutHandler lTimer(&test::count, nullptr, 3600000, 0);
        EXPECT_EQ(-1, lTimer.cancel());
    }
    ACE_Reactor::instance(lFormer);
    EXPECT_THAT(lReactor.mCancelled, ElementsAre(-1, -1));
    EXPECT_THAT(lLog.texts(),
                ElementsAre(kNotScheduled,
                            "%t osxTimeoutHandler::cancel: Unable to cancel_timer mTimerID[-1]\n"));
}

/// Calling the handler oneself is not a firing of its timer.
TEST(Timer, OfAnotherReactorIsStoppedThoughItsHandlerWasCalledByHand) {
    test::Counter lCounter;
    test::Counter lByHand;
    ACE_Reactor lPlain;
    ACE_Reactor* const lFormer = ACE_Reactor::instance(&lPlain);
    {
        osxTimeoutHandler lTimer(&test::count, &lCounter, 1, 0);
        lTimer.handle_timeout(ACE_Time_Value::zero, &lByHand);
    }
    test::serve();
    ACE_Reactor::instance(lFormer);
    EXPECT_EQ(1, lByHand.value());
    EXPECT_EQ(0, lCounter.value());
}

TEST(Timer, OfAnotherReactorMayBeDestroyedAfterThatOneWhenItHasFired) {
    test::Counter lCounter;
    auto lReactor = std::make_unique<ACE_Reactor>();
    ACE_Reactor* const lFormer = ACE_Reactor::instance(lReactor.get());
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 0, 0);
    test::serve();
    ACE_Reactor::instance(lFormer);
    lReactor.reset();
    EXPECT_EQ(1, lCounter.value());
    EXPECT_EQ(0, osxCancelTimer(lTimer));
    osxDestroyTimer(lTimer);
}

TEST(Timer, OutlivesTheLibrarysReactorItWasMadeOn) {
    test::Counter lCounter;
    auto lReactor = std::make_unique<OSX_Reactor>();
    lReactor->initReactor();
    void* lFired = osxCreateTimer(&test::count, &lCounter, 0, 0);
    void* lPending = osxCreateTimer(&test::count, &lCounter, 3600000, 1);
    ASSERT_TRUE(test::serveUntil([&] { return lCounter.value() != 0; }));
    lReactor.reset();
    for (void*& lTimer : {std::ref(lFired), std::ref(lPending)}) {
        EXPECT_EQ(0, osxCancelTimer(lTimer));
        osxDestroyTimer(lTimer);
    }
}

#if LONG_MAX > INT_MAX
TEST(Timer, OnlyTheLow32BitsOfTheIntervalCount) {
    const test::RunningReactor lLoop;
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 1, 1L << 32);
    EXPECT_TRUE(lCounter.waitFor(1));
    EXPECT_FALSE(lCounter.waitFor(2, test::kAWhile));
    osxDestroyTimer(lTimer);
}
#endif

TEST(Timer, ThatCannotBeCancelledWritesALineWithItsId) {
    test::Counter lCounter;
    OwnKindOfReactor lReactor;
    ACE_Reactor* const lFormer = ACE_Reactor::instance(&lReactor);
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 3600000, 0);
    ACE_Reactor::instance(lFormer);
    const test::LogCapture lLog;
    EXPECT_EQ(-1, osxCancelTimer(lTimer));
    EXPECT_THAT(lReactor.mCancelled, ElementsAre(OwnKindOfReactor::kTimerID));
    ASSERT_THAT(
        lLog.texts(),
        ElementsAre("%t osxTimeoutHandler::cancel: Unable to cancel_timer mTimerID[4711]\n"));
    EXPECT_EQ(LM_ERROR, lLog.lines()[0].priority);
    EXPECT_EQ(-1, lLog.lines()[0].status);
    osxDestroyTimer(lTimer);
}

TEST(Timer, AThreadThatMakesOrDestroysOneMayBeCancelled) {
    const test::RunningReactor lLoop;
    test::Counter lCounter;
    // While its own thread waits for events, the reactor has to be woken, which writes to a pipe.
    for (int lRound = 0; lRound < 20; ++lRound) {
        void* lTimer = nullptr;
        EXPECT_TRUE(test::outlastsItsCancellation(
            [&] { lTimer = osxCreateTimer(&test::count, &lCounter, 3600000, 0); }));
        EXPECT_NE(nullptr, lTimer);
        EXPECT_TRUE(test::outlastsItsCancellation([&] { osxDestroyTimer(lTimer); }));
    }
}

TEST(Timer, AThreadMayBeCancelledWhileALineOfATimerIsWritten) {
    const test::CancellingLog lLog;
    EXPECT_TRUE(test::isCancelledIn([] { osxCancelTimer(nullptr); }));
    EXPECT_TRUE(test::isCancelledIn([] {
        void* lNone = nullptr;
        osxDestroyTimer(lNone);
    }));
    osxTimeoutHandler lTimer(nullptr, nullptr, 3600000, 0);
    EXPECT_TRUE(test::isCancelledIn([&] { lTimer.handle_timeout(ACE_Time_Value::zero, nullptr); }));
}
