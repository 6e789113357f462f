// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Timers among many others: how they are told apart, woken for and taken out.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "ace/Functor.h"
#include "ace/Reactor.h"
#include "ace/Time_Value.h"
#include "ace/Timer_Queue.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"

namespace {

constexpr long kHourMs = 3600000;
/// As many timers made at once have every id that was free before: the queue begins with room for
/// some dozens.
constexpr int kEveryID = 400;

std::vector<void*> createPending(int aNumber) {
    std::vector<void*> lTimers(static_cast<std::size_t>(aNumber));
    for (void*& lTimer : lTimers) {
        lTimer = osxCreateTimer(&test::count, nullptr, kHourMs, 1);
    }
    return lTimers;
}

void expectAllPending(std::vector<void*>& aTimers) {
    for (void*& lTimer : aTimers) {
        EXPECT_EQ(1, osxCancelTimer(lTimer));
        osxDestroyTimer(lTimer);
    }
}

/// What a reactor's thread does for a timer that has expired; between its taking the timer out of
/// the queue and its calling the handler it does the work given here.
template <class Work>
class Expiry : public ACE_Command_Base {
public:
    explicit Expiry(Work aWork) : mWork(aWork) {}
    int execute(void*) override {
        mWork();
        return 0;
    }
    int run() { return ACE_Reactor::instance()->timer_queue()->expire_single(*this); }

private:
    Work mWork;
};

}  // namespace

TEST(TimerQueue, ATimerDestroyedWhileItsIdIsAnothersLeavesThatOneAlone) {
    test::RunningReactor::reactor().initReactor();
    for (const long lInterval : {0L, 1L}) {
        test::Counter lCounter;
        std::vector<void*> lPending;
        void* lTimer = osxCreateTimer(&test::count, &lCounter, lInterval, lInterval);
        Expiry lExpiry([&] {
            lPending = createPending(kEveryID);
            osxDestroyTimer(lTimer);
        });
        while (lExpiry.run() == 0) {
            std::this_thread::yield();
        }
        EXPECT_EQ(0, lCounter.value());
        EXPECT_EQ(nullptr, lTimer);
        expectAllPending(lPending);
    }
}

TEST(TimerQueue, ATimerCancelledWhileItIsAboutToBeCalledIsNotCalled) {
    test::RunningReactor::reactor().initReactor();
    test::Counter lCounter;
    void* lOnce = osxCreateTimer(&test::count, &lCounter, 0, 0);
    Expiry lExpiry([&] { EXPECT_EQ(0, osxCancelTimer(lOnce)); });
    EXPECT_EQ(1, lExpiry.run());
    void* lPeriodic = osxCreateTimer(&test::count, &lCounter, 1, 1);
    Expiry lNext([&] { EXPECT_EQ(1, osxCancelTimer(lPeriodic)); });
    while (lNext.run() == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(0, lCounter.value());
    osxDestroyTimer(lOnce);
    osxDestroyTimer(lPeriodic);
}

namespace {

/// A timer with what its callback uses, which is gone once the timer has been destroyed.
class Firing {
public:
    Firing(long aDelayMs, long aIntervalMs)
        : mTimer(osxCreateTimer(&fire, this, aDelayMs, aIntervalMs)) {}

    /// A callback that takes longer than destruction waits for it, because the machine is busy, may
    /// still look for its data.
    void destroy() {
        const auto lStart = std::chrono::steady_clock::now();
        osxDestroyTimer(mTimer);
        mIsGone = std::chrono::steady_clock::now() - lStart < test::kDestroyWaits;
    }
    bool calledTooLate() const { return mCalledTooLate; }

private:
    static void fire(const void* aSelf) {
        auto* const lSelf = static_cast<Firing*>(const_cast<void*>(aSelf));
        if (lSelf->mIsGone) {
            lSelf->mCalledTooLate = true;
        }
    }

    std::atomic<bool> mIsGone{false};
    std::atomic<bool> mCalledTooLate{false};
    void* mTimer;
};

using Firings = std::vector<std::unique_ptr<Firing>>;

void destroyHalf(const Firings& aFirings, std::size_t aFirst) {
    for (std::size_t lIndex = aFirst; lIndex < aFirings.size(); lIndex += 2) {
        aFirings[lIndex]->destroy();
    }
}

}  // namespace

TEST(TimerQueue, ManyMayBeDestroyedInAnyOrderByTwoThreadsWhileTheyFire) {
    constexpr int kTimers = 3000;
    Firings lFirings;
    {
        const test::RunningReactor lLoop(3);
        std::vector<void*> lPending;
        std::minstd_rand lRandom(1);
        for (int lTimer = 0; lTimer < kTimers; ++lTimer) {
            const auto lDelay = static_cast<long>(lRandom() % 6);
            lFirings.push_back(std::make_unique<Firing>(lDelay, lTimer % 3));
            lPending.push_back(osxCreateTimer(&test::count, nullptr, kHourMs, 0));
        }
        std::shuffle(lFirings.begin(), lFirings.end(), lRandom);
        std::thread lOther([&] { destroyHalf(lFirings, 0); });
        destroyHalf(lFirings, 1);
        lOther.join();
        expectAllPending(lPending);
    }
    EXPECT_TRUE(std::none_of(lFirings.begin(), lFirings.end(),
                             [](const auto& aFiring) { return aFiring->calledTooLate(); }));
}

/// The loop waits without a limit, unless it is told of the timer.
TEST(TimerQueue, ATimerOfAnotherThreadIsServedThoughTheLoopWaitsForALaterOne) {
    test::RunningReactor::reactor().initReactor();
    void* lLater = osxCreateTimer(&test::count, nullptr, kHourMs, 0);
    std::future<int> lLoop = std::async(std::launch::async, &osxRunReactor);
    bool lServed = true;
    for (int lRound = 0; lServed && lRound < 200; ++lRound) {
        test::Counter lCounter;
        void* lSecond = osxCreateTimer(&test::count, &lCounter, 2, 0);
        void* lFirst = osxCreateTimer(&test::count, &lCounter, lRound % 2, 0);
        lServed = lCounter.waitFor(2);
        osxDestroyTimer(lFirst);
        osxDestroyTimer(lSecond);
    }
    EXPECT_TRUE(lServed);
    osxStopReactor();
    EXPECT_EQ(0, lLoop.get());
    osxDestroyTimer(lLater);
}

TEST(TimerQueue, ShortMemoryLeavesEachTimerEitherScheduledOrReported) {
    test::RunningReactor::reactor().initReactor();
    const test::LogCapture lLog;
    std::vector<void*> lTimers(kEveryID);
    for (std::size_t lTimer = 0; lTimer < lTimers.size(); ++lTimer) {
        const test::FailingAllocator lNoMemory(static_cast<int>(lTimer % 4) + 2, true);
        lTimers[lTimer] = osxCreateTimer(&test::count, nullptr, kHourMs, 0);
    }
    std::size_t lScheduled = 0;
    for (void*& lTimer : lTimers) {
        ASSERT_NE(nullptr, lTimer);
        lScheduled += static_cast<std::size_t>(osxCancelTimer(lTimer));
        osxDestroyTimer(lTimer);
    }
    EXPECT_EQ(lTimers.size(), lScheduled + lLog.texts().size());
    EXPECT_LT(0U, lScheduled);
}

namespace {

/// Notes the order in which timers fire.
class InOrder : public ACE_Event_Handler {
public:
    int handle_timeout(const ACE_Time_Value&, const void* aAct) override {
        mFired.push_back(static_cast<const int*>(aAct));
        return 0;
    }
    std::vector<const int*> mFired;
};

}  // namespace

/// A queue large enough for several levels, changed in the middle, and with times that many share.
TEST(TimerQueue, FiresInTheOrderOfTimeAndThenOfMaking) {
    test::RunningReactor::reactor().initReactor();
    ACE_Timer_Queue& lQueue = *ACE_Reactor::instance()->timer_queue();
    constexpr int kTimers = 500;
    InOrder lHandler;
    std::vector<int> lTimes(kTimers);
    std::vector<long> lIDs;
    std::minstd_rand lRandom(1);
    for (int& lTime : lTimes) {
        lTime = static_cast<int>(lRandom() % 50);
        lIDs.push_back(lQueue.schedule(&lHandler, &lTime, ACE_Time_Value(lTime)));
    }
    std::vector<const int*> lExpected;
    for (std::size_t lTimer = 0; lTimer < lTimes.size(); ++lTimer) {
        if (lTimer % 3 == 0) {
            const void* lAct = nullptr;
            EXPECT_EQ(1, lQueue.cancel(lIDs[lTimer], &lAct));
            EXPECT_EQ(&lTimes[lTimer], lAct);
            EXPECT_EQ(0, lQueue.cancel(lIDs[lTimer]));
        } else {
            lExpected.push_back(&lTimes[lTimer]);
        }
    }
    std::stable_sort(lExpected.begin(), lExpected.end(),
                     [](const int* aOne, const int* aOther) { return *aOne < *aOther; });
    EXPECT_EQ(static_cast<int>(lExpected.size()), lQueue.expire(ACE_Time_Value(50)));
    EXPECT_EQ(lExpected, lHandler.mFired);
    EXPECT_TRUE(lQueue.is_empty());
}

TEST(TimerQueue, TakesOutAllTimersOfAHandlerAndNoOthers) {
    test::RunningReactor::reactor().initReactor();
    ACE_Timer_Queue& lQueue = *ACE_Reactor::instance()->timer_queue();
    constexpr int kTimers = 300;
    InOrder lOne;
    InOrder lOther;
    std::minstd_rand lRandom(1);
    for (int lTimer = 0; lTimer < kTimers; ++lTimer) {
        lQueue.schedule(&lOne, nullptr, ACE_Time_Value(static_cast<time_t>(lRandom() % 50)));
        lQueue.schedule(&lOther, nullptr, ACE_Time_Value(static_cast<time_t>(lRandom() % 50)));
    }
    EXPECT_EQ(kTimers, lQueue.cancel(&lOne));
    EXPECT_EQ(0, lQueue.cancel(&lOne));
    EXPECT_EQ(kTimers, lQueue.expire(ACE_Time_Value(50)));
    EXPECT_TRUE(lOne.mFired.empty());
}

TEST(TimerQueue, ShowsWhatIsPendingThroughAcesInterface) {
    test::RunningReactor::reactor().initReactor();
    ACE_Timer_Queue& lQueue = *ACE_Reactor::instance()->timer_queue();
    EXPECT_EQ(nullptr, lQueue.get_first());
    EXPECT_EQ(nullptr, lQueue.remove_first());
    EXPECT_EQ(nullptr, lQueue.calculate_timeout(nullptr));
    InOrder lHandler;
    const ACE_Time_Value lFirst(100);
    lQueue.schedule(&lHandler, nullptr, ACE_Time_Value(200));
    const long lTimerID = lQueue.schedule(&lHandler, nullptr, lFirst);
    EXPECT_EQ(lFirst, lQueue.earliest_time());
    EXPECT_EQ(lTimerID, lQueue.get_first()->get_timer_id());
    int lSeen = 0;
    for (auto& lIterator = lQueue.iter(); !lIterator.isdone(); lIterator.next()) {
        EXPECT_EQ(&lHandler, lIterator.item()->get_type());
        ++lSeen;
    }
    EXPECT_EQ(2, lSeen);
    EXPECT_EQ(0, lQueue.reset_interval(lTimerID, ACE_Time_Value(7)));
    EXPECT_EQ(ACE_Time_Value(7), lQueue.remove_first()->get_interval());
    EXPECT_EQ(-1, lQueue.reset_interval(lTimerID, ACE_Time_Value(7)));
    EXPECT_EQ(-1, lQueue.reset_interval(-1, ACE_Time_Value(7)));
    ACE_Time_Value lMax(5);
    EXPECT_GE(lMax, *lQueue.calculate_timeout(&lMax));
    EXPECT_EQ(1, lQueue.cancel(&lHandler));
}

namespace {

/// A handler that stops its timer by its result, or ends in an exception.
class Ending : public ACE_Event_Handler {
public:
    int handle_timeout(const ACE_Time_Value&, const void* aThrow) override {
        if (aThrow != nullptr) {
            throw 1;
        }
        return -1;
    }
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask aMask) override {
        EXPECT_EQ(TIMER_MASK, aMask);
        ++mClosed;
        return 0;
    }
    int mClosed = 0;
};

}  // namespace

TEST(TimerQueue, AHandlerThatReturnsMinusOneIsClosedAndNotCalledAgain) {
    test::RunningReactor::reactor().initReactor();
    ACE_Timer_Queue& lQueue = *ACE_Reactor::instance()->timer_queue();
    Ending lHandler;
    lQueue.schedule(&lHandler, nullptr, ACE_Time_Value(1), ACE_Time_Value(1));
    EXPECT_EQ(1, lQueue.expire(ACE_Time_Value(1)));
    EXPECT_EQ(1, lHandler.mClosed);
    EXPECT_TRUE(lQueue.is_empty());
}

TEST(TimerQueue, ACallThatIsLeftByAnExceptionIsOver) {
    test::RunningReactor::reactor().initReactor();
    ACE_Timer_Queue& lQueue = *ACE_Reactor::instance()->timer_queue();
    Ending lHandler;
    lQueue.schedule(&lHandler, &lHandler, ACE_Time_Value(1));
    EXPECT_THROW(lQueue.expire(ACE_Time_Value(1)), int);
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 0, 0);
    while (lQueue.expire() == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(1, lCounter.value());
    osxDestroyTimer(lTimer);
}

namespace {

/// A handler of the application's own, which goes when its timer does.
class OwnHandler : public ACE_Event_Handler {
public:
    explicit OwnHandler(test::Counter& aClosed) : mClosed(aClosed) {}
    int handle_timeout(const ACE_Time_Value&, const void*) override { return 0; }
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
        mClosed.add();
        delete this;
        return 0;
    }

private:
    test::Counter& mClosed;
};

}  // namespace

TEST(TimerQueue, IsSharedWithTimersOfTheApplicationsOwnHandlers) {
    test::RunningReactor::reactor().initReactor();
    ACE_Reactor& lReactor = *ACE_Reactor::instance();
    test::Counter lClosed;
    std::vector<long> lOwn;
    std::vector<void*> lTimers;
    for (int lTimer = 0; lTimer < kEveryID; ++lTimer) {
        lTimers.push_back(osxCreateTimer(&test::count, nullptr, kHourMs, 0));
        lOwn.push_back(lReactor.schedule_timer(new OwnHandler(lClosed), nullptr,
                                               ACE_Time_Value(kHourMs), ACE_Time_Value(1)));
        if (lTimer % 3 == 0) {
            osxDestroyTimer(lTimers.back());
            lTimers.pop_back();
        }
    }
    for (const long lTimerID : lOwn) {
        EXPECT_EQ(1, lReactor.cancel_timer(lTimerID, nullptr, 0));
    }
    EXPECT_EQ(kEveryID, lClosed.value());
    expectAllPending(lTimers);
}
