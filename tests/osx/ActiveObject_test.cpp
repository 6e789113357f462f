// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "osx/ActiveObject.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "support/FailingAllocator.h"
#include "support/cancellation.h"
#include "support/times.h"
#include "support/waitUntil.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// What the requests of a test did, in order.
class Journal {
public:
    void ran(int aId) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        mRan.push_back(aId);
        mChanged.notify_all();
    }
    void deleted(int aId) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        mDeleted.push_back(aId);
        mChanged.notify_all();
    }
    std::vector<int> ran() const {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        return mRan;
    }
    std::vector<int> deleted() const {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        return mDeleted;
    }
    bool waitForDeleted(std::size_t aCount) const {
        std::unique_lock<std::mutex> lLock(mMutex);
        return mChanged.wait_for(lLock, test::kLimit, [&] { return mDeleted.size() >= aCount; });
    }

private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<int> mRan;
    std::vector<int> mDeleted;
};

class Entry : public ACE_Method_Request {
public:
    Entry(Journal& aJournal, int aId, unsigned long aPriority = 0)
        : ACE_Method_Request(aPriority), mJournal(aJournal), mId(aId) {}
    ~Entry() override { mJournal.deleted(mId); }
    int call() override {
        mJournal.ran(mId);
        return 0;
    }

private:
    Journal& mJournal;
    int mId;
};

/// Occupies the object's thread until released.
class Blocker : public ACE_Method_Request {
public:
    Blocker(std::promise<void>& aRunning, std::shared_future<void> aRelease)
        : mRunning(aRunning), mRelease(std::move(aRelease)) {}
    int call() override {
        mRunning.set_value();
        mRelease.wait();
        return 0;
    }

private:
    std::promise<void>& mRunning;
    std::shared_future<void> mRelease;
};

class Callback : public ACE_Method_Request {
public:
    explicit Callback(std::function<void()> aFunction) : mFunction(std::move(aFunction)) {}
    int call() override {
        mFunction();
        return 0;
    }

private:
    std::function<void()> mFunction;
};

/// Returns once the object's thread runs requests, so that a stop finds its flag set.
void waitUntilRunning(ActiveObject& aObject) {
    std::promise<void> lRuns;
    ASSERT_NE(-1, aObject.insert(new Callback([&] { lRuns.set_value(); })));
    lRuns.get_future().wait();
}

}  // namespace

namespace {

/// Starts an object that was stopped: nothing that was left ends the new thread.
void expectRunsAgain(ActiveObject& aObject, Journal& aJournal) {
    ASSERT_TRUE(test::waitUntil([&] { return aObject.thr_count() == 0; }));
    ASSERT_NE(-1, aObject.insert(new Entry(aJournal, 1)));
    ASSERT_EQ(0, aObject.init());
    ASSERT_TRUE(aJournal.waitForDeleted(1));
    ASSERT_NE(-1, aObject.insert(new Entry(aJournal, 2)));
    ASSERT_TRUE(aJournal.waitForDeleted(2));
    aObject.stop();
}

/// For a request: returns when another thread's stop is in the queue behind it.
void waitUntilAStopIsQueued(ActiveObject& aObject) {
    int lOwn = 0;
    EXPECT_TRUE(test::waitUntil([&] { return aObject.insert(new Callback([] {})) > ++lOwn; }));
}

/// Has a request run while the stop of another thread waits behind it.
void runBeforeAStop(ActiveObject& aObject, std::function<void()> aWork) {
    ASSERT_EQ(0, aObject.init());
    std::promise<void> lRunning;
    aObject.insert(new Callback([&, lWork = std::move(aWork)] {
        lRunning.set_value();
        waitUntilAStopIsQueued(aObject);
        lWork();
    }));
    lRunning.get_future().wait();
    aObject.stop();
}

}  // namespace

TEST(ActiveObject, StoppedTwiceByARequestRunsAgain) {
    Journal lJournal;
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    lObject.insert(new Callback([&] {
        lObject.stop();
        lObject.stop();
    }));
    expectRunsAgain(lObject, lJournal);
}

TEST(ActiveObject, StoppedByARequestWhileAnotherThreadStopsItRunsAgain) {
    Journal lJournal;
    ActiveObject lObject;
    runBeforeAStop(lObject, [&] { lObject.stop(); });
    expectRunsAgain(lObject, lJournal);
}

TEST(ActiveObject, EndedByARequestWhileAnotherThreadStopsItRunsAgain) {
    Journal lJournal;
    ActiveObject lObject;
    runBeforeAStop(lObject, [&] { StopRequest(&lObject).call(); });
    expectRunsAgain(lObject, lJournal);
}

TEST(ActiveObject, WhoseThreadARequestEndsWhileAnotherOneStopsItRunsAgain) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "ThreadSanitizer reports ACE's own locks when a thread ends itself";
    }
    Journal lJournal;
    ActiveObject lObject;
    runBeforeAStop(lObject, [] { ::pthread_exit(nullptr); });
    expectRunsAgain(lObject, lJournal);
}

TEST(ActiveObject, StoppedByARequestThoughMemoryIsShortRunsAgain) {
    Journal lJournal;
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    lObject.insert(new Callback([&] {
        const test::FailingAllocator lFailing;
        lObject.stop();
    }));
    expectRunsAgain(lObject, lJournal);
}

TEST(ActiveObject, StoppedWithoutMemoryByAThreadThatIsCancelledRunsAgain) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "ThreadSanitizer gives up when a joining thread is cancelled";
    }
    Journal lJournal;
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    std::promise<void> lRunning;
    std::promise<void> lRelease;
    lObject.insert(new Blocker(lRunning, lRelease.get_future().share()));
    lRunning.get_future().wait();
    EXPECT_TRUE(test::isCancelledIn([&] {
        const test::FailingAllocator lFailing;
        lObject.stop();
    }));
    lRelease.set_value();
    expectRunsAgain(lObject, lJournal);
}

TEST(ActiveObject, StartedWhileItRunsIsStillStopped) {
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    std::promise<void> lRunning;
    lObject.insert(new Callback([&] {
        lRunning.set_value();
        waitUntilAStopIsQueued(lObject);
        EXPECT_EQ(1, lObject.init());
    }));
    lRunning.get_future().wait();
    lObject.stop();
    EXPECT_EQ(0U, lObject.thr_count());
}

TEST(ActiveObject, RunsRequestsInOrderOnceEachAndDeletesThem) {
    Journal lJournal;
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    for (int lId = 1; lId <= 3; ++lId) {
        EXPECT_LT(0, lObject.insert(new Entry(lJournal, lId)));
    }
    ASSERT_TRUE(lJournal.waitForDeleted(3));
    EXPECT_THAT(lJournal.ran(), ElementsAre(1, 2, 3));
    EXPECT_THAT(lJournal.deleted(), ElementsAre(1, 2, 3));
    lObject.stop();
}

TEST(ActiveObject, RunsRequestsOnOneThreadOfItsOwn) {
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    std::thread::id lFirst;
    std::thread::id lSecond;
    lObject.insert(new Callback([&] { lFirst = std::this_thread::get_id(); }));
    std::promise<void> lDone;
    lObject.insert(new Callback([&] {
        lSecond = std::this_thread::get_id();
        lDone.set_value();
    }));
    lDone.get_future().wait();
    EXPECT_EQ(lFirst, lSecond);
    EXPECT_NE(std::this_thread::get_id(), lFirst);
    lObject.stop();
}

TEST(ActiveObject, RunsAHigherPriorityFirst) {
    Journal lJournal;
    ActiveObject lObject;
    lObject.insert(new Entry(lJournal, 1, 0));
    lObject.insert(new Entry(lJournal, 2, 5));
    lObject.insert(new Entry(lJournal, 3, 5));
    lObject.insert(new Entry(lJournal, 4, 9));
    ASSERT_EQ(0, lObject.init());
    ASSERT_TRUE(lJournal.waitForDeleted(4));
    EXPECT_THAT(lJournal.ran(), ElementsAre(4, 2, 3, 1));
    lObject.stop();
}

TEST(ActiveObject, StopRunsWhatIsAheadAndNothingBehind) {
    Journal lJournal;
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    waitUntilRunning(lObject);
    std::promise<void> lRunning;
    std::promise<void> lRelease;
    lObject.insert(new Blocker(lRunning, lRelease.get_future().share()));
    lRunning.get_future().wait();
    lObject.insert(new Entry(lJournal, 1));
    lObject.insert(new StopRequest(&lObject));
    lObject.insert(new Entry(lJournal, 2));
    lRelease.set_value();
    lObject.wait();
    EXPECT_THAT(lJournal.ran(), ElementsAre(1));
}

TEST(ActiveObject, ARequestInsertedAfterTheStopNeverRunsAndIsFreedWithTheObject) {
    Journal lJournal;
    {
        ActiveObject lObject;
        ASSERT_EQ(0, lObject.init());
        waitUntilRunning(lObject);
        lObject.stop();
        EXPECT_EQ(1, lObject.insert(new Entry(lJournal, 1)));
        EXPECT_THAT(lJournal.deleted(), IsEmpty());
    }
    EXPECT_THAT(lJournal.ran(), IsEmpty());
    EXPECT_THAT(lJournal.deleted(), ElementsAre(1));
}

TEST(ActiveObject, StopOfAnIdleObjectReturnsAndLeavesNothingInTheQueue) {
    Journal lJournal;
    ActiveObject lObject;
    lObject.stop();
    EXPECT_EQ(1, lObject.insert(new Entry(lJournal, 1)));
    ASSERT_EQ(0, lObject.init());
    ASSERT_TRUE(lJournal.waitForDeleted(1));
    lObject.insert(new Entry(lJournal, 2));
    ASSERT_TRUE(lJournal.waitForDeleted(2));
    lObject.stop();
}

TEST(ActiveObject, StopTwiceReturnsAtOnceTheSecondTime) {
    Journal lJournal;
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    waitUntilRunning(lObject);
    lObject.stop();
    lObject.stop();
    EXPECT_EQ(1, lObject.insert(new Entry(lJournal, 1)));
}

TEST(ActiveObject, StopByTwoThreadsReturnsOnBoth) {
    Journal lJournal;
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    waitUntilRunning(lObject);
    std::promise<void> lRunning;
    std::promise<void> lRelease;
    lObject.insert(new Blocker(lRunning, lRelease.get_future().share()));
    lRunning.get_future().wait();
    std::thread lFirst([&] { lObject.stop(); });
    std::thread lSecond([&] { lObject.stop(); });
    lRelease.set_value();
    lFirst.join();
    lSecond.join();
    EXPECT_EQ(1, lObject.insert(new Entry(lJournal, 1)));
}

TEST(ActiveObject, StopOnItsOwnThreadDoesNotWaitForItself) {
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    std::promise<void> lStopped;
    lObject.insert(new Callback([&] {
        lObject.stop();
        lStopped.set_value();
    }));
    lStopped.get_future().wait();
    EXPECT_EQ(0, lObject.wait());
}

TEST(ActiveObject, WhoseRoutineTheApplicationCalledItselfIsWaitedForByStop) {
    ActiveObject lObject;
    lObject.insert(new StopRequest(&lObject));
    EXPECT_EQ(0, lObject.svc());
    ASSERT_EQ(0, lObject.init());
    std::promise<void> lRunning;
    std::promise<void> lRelease;
    lObject.insert(new Blocker(lRunning, lRelease.get_future().share()));
    lRunning.get_future().wait();
    std::promise<void> lReturned;
    auto lIsEarly = std::async(std::launch::async, [&] {
        const bool lEarly = !test::isStillWaiting(lReturned.get_future());
        lRelease.set_value();
        return lEarly;
    });
    lObject.stop();
    lReturned.set_value();
    EXPECT_FALSE(lIsEarly.get());
    EXPECT_EQ(0U, lObject.thr_count());
}

TEST(ActiveObject, WhoseRequestRunsAnotherOnesRoutineStillKnowsItsOwnThread) {
    ActiveObject lInner;
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    lObject.insert(new Callback([&] {
        lInner.insert(new Callback([&] { lObject.stop(); }));
        lInner.insert(new StopRequest(&lInner));
        lInner.svc();
    }));
    EXPECT_EQ(0, lObject.wait());
}

TEST(ActiveObject, IsStoppedWhenARequestEndsItsThread) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "ThreadSanitizer reports ACE's own locks when a thread ends itself";
    }
    Journal lJournal;
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    lObject.insert(new Callback([] { ::pthread_exit(nullptr); }));
    EXPECT_EQ(0, lObject.wait());
    lObject.stop();
    EXPECT_EQ(1, lObject.insert(new Entry(lJournal, 1))) << "the stop has left a request";
    ASSERT_EQ(0, lObject.init());
    ASSERT_TRUE(lJournal.waitForDeleted(1));
    waitUntilRunning(lObject);
    lObject.stop();
}

TEST(ActiveObject, LeavesNoThreadBehindThoughMemoryIsShort) {
    const auto lRun = [](int aCount) {
        for (int lIndex = 0; lIndex < aCount; ++lIndex) {
            ActiveObject lObject;
            ASSERT_EQ(0, lObject.init());
            waitUntilRunning(lObject);
            const test::FailingAllocator lFailing;
            lObject.stop();
        }
    };
    lRun(10);
    const long lBefore = test::addressSpaceInMegabytes();
    lRun(60);
    EXPECT_LT(test::addressSpaceInMegabytes() - lBefore, 100);
}

TEST(ActiveObject, AThreadThatDestroysItMayBeCancelled) {
    EXPECT_TRUE(test::outlastsItsCancellation([] {
        ActiveObject lObject;
        ASSERT_EQ(0, lObject.init());
    }));
}

TEST(ActiveObject, AThreadThatStopsItMayBeCancelledAndTheNextStopWaits) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "ThreadSanitizer gives up when a joining thread is cancelled";
    }
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    std::promise<void> lRunning;
    std::promise<void> lRelease;
    lObject.insert(new Blocker(lRunning, lRelease.get_future().share()));
    lRunning.get_future().wait();
    EXPECT_TRUE(test::isCancelledIn([&] { lObject.stop(); }));
    lRelease.set_value();
    lObject.stop();
    ASSERT_TRUE(test::waitUntil([&] { return lObject.thr_count() == 0; }));
}

TEST(ActiveObject, StopsThoughMemoryIsShort) {
    Journal lJournal;
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    waitUntilRunning(lObject);
    {
        const test::FailingAllocator lFailing;
        lObject.stop();
    }
    lObject.insert(new Entry(lJournal, 1));
    ASSERT_EQ(0, lObject.init());
    ASSERT_TRUE(lJournal.waitForDeleted(1));
    lObject.stop();
}

TEST(ActiveObject, RunsAgainAfterAStop) {
    ActiveObject lObject;
    for (int lRound = 0; lRound < 3; ++lRound) {
        ASSERT_EQ(0, lObject.init());
        waitUntilRunning(lObject);
        lObject.stop();
    }
}

TEST(ActiveObject, StopRightAfterInitReturnsAtOnceWhicheverComesFirst) {
    for (int lRound = 0; lRound < 50; ++lRound) {
        ActiveObject lObject;
        ASSERT_EQ(0, lObject.init());
        lObject.stop();
    }
}

TEST(ActiveObject, InsertNeverWaitsForTheThread) {
    constexpr int kMany = 20000;
    Journal lJournal;
    ActiveObject lObject;
    for (int lId = 0; lId < kMany; ++lId) {
        ASSERT_EQ(lId + 1, lObject.insert(new Entry(lJournal, lId)));
    }
}

TEST(ActiveObject, DestructionEndsAThreadThatWaitsForRequests) {
    ActiveObject lObject;
    ASSERT_EQ(0, lObject.init());
    waitUntilRunning(lObject);
}

TEST(ActiveObject, RefusesNull) {
    ActiveObject lObject;
    EXPECT_EQ(-1, lObject.insert(nullptr));
}

TEST(ActiveObject, InsertLeavesTheRequestToTheCallerWhenMemoryIsShort) {
    Journal lJournal;
    ActiveObject lObject;
    for (int lAllowed = 0; lAllowed < 2; ++lAllowed) {
        auto lRequest = std::make_unique<Entry>(lJournal, 1);
        errno = 0;
        const test::FailingAllocator lFailing(lAllowed);
        EXPECT_EQ(-1, lObject.insert(lRequest.get()));
        EXPECT_EQ(ENOMEM, errno);
    }
}

TEST(ActiveObject, MadeWithoutMemoryForItsQueueFailsInEveryCall) {
    for (int lAllowed = 0; lAllowed < 2; ++lAllowed) {
        std::unique_ptr<test::FailingAllocator> lFailing(new test::FailingAllocator(lAllowed));
        ActiveObject lObject;
        const int lFailures = lFailing->failures();
        lFailing.reset();
        ASSERT_NE(0, lFailures);
        Journal lJournal;
        auto lRequest = std::make_unique<Entry>(lJournal, 1);
        const auto lFails = [](int aResult) { return aResult == -1 && errno == ENOMEM; };
        errno = 0;
        EXPECT_TRUE(lFails(lObject.svc()));
        errno = 0;
        EXPECT_TRUE(lFails(lObject.insert(lRequest.get())));
        errno = 0;
        EXPECT_TRUE(lFails(lObject.init()));
        lObject.stop();
        EXPECT_THAT(lJournal.ran(), IsEmpty());
    }
}

TEST(StopRequest, OfNoObjectDoesNothing) {
    StopRequest lRequest(nullptr);
    EXPECT_EQ(0, lRequest.call());
    EXPECT_EQ(0U, lRequest.priority());
}
