// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <deque>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "osx/FakeHost.h"
#include "osx/ThreadACE.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/cancellation.h"
#include "support/times.h"
#include "support/waitUntil.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

void countUp(void* aCounter) {
    ++*static_cast<std::atomic<int>*>(aCounter);
}

void nothing(void*) {}

/// An address to register names under.
int gSomething = 0;

/// A task that lasts until it is let go.
struct Gate {
    std::promise<void> open;
    std::promise<void> entered;
    bool done = false;

    static void pass(void* aGate) {
        auto* const lGate = static_cast<Gate*>(aGate);
        lGate->entered.set_value();
        lGate->open.get_future().wait();
        lGate->done = true;
    }
};

void* begin(void (*aFunction)(void*), void* aArgument, const char* aName = "task") {
    void* lTask = nullptr;
    EXPECT_EQ(OSX_OK, osxBeginTask(aFunction, 0, 0, aArgument, &lTask, aName));
    return lTask;
}

/// What a thread sees of its own making.
struct Traits {
    std::size_t stackSize = 0;
    int policy = -1;
    int priority = -1;

    static void read(void* aTraits) {
        auto* const lTraits = static_cast<Traits*>(aTraits);
        pthread_attr_t lAttributes;
        ASSERT_EQ(0, pthread_getattr_np(pthread_self(), &lAttributes));
        pthread_attr_getstacksize(&lAttributes, &lTraits->stackSize);
        pthread_attr_destroy(&lAttributes);
        sched_param lParameters{};
        pthread_getschedparam(pthread_self(), &lTraits->policy, &lParameters);
        lTraits->priority = lParameters.sched_priority;
    }
};

Traits traitsOfTask(unsigned long aPriority, unsigned long aStackSize) {
    Traits lTraits;
    void* lTask = nullptr;
    osxBeginTask(&Traits::read, aPriority, aStackSize, &lTraits, &lTask, "traits");
    osxEndOtherTask(lTask);
    return lTraits;
}

/// Has a gate opened as soon as a wait returns that should not, or else after a moment.
class GateKeeper {
public:
    explicit GateKeeper(Gate& aGate)
        : mKeeper(std::async(std::launch::async, [this, &aGate] {
              const bool lEarly = !test::isStillWaiting(mReturned.get_future());
              aGate.open.set_value();
              return lEarly;
          })) {}

    /// To be called when the wait has returned. @return whether that was before the gate opened.
    bool wasEarly() {
        mReturned.set_value();
        return mKeeper.get();
    }

private:
    std::promise<void> mReturned;
    std::future<bool> mKeeper;
};

/// Of a thread that is not joined, megabytes stay behind.
constexpr int kManyThreads = 60;
constexpr long kMegabytesOfAFew = 100;

}  // namespace

TEST(Task, RunsItsFunctionOnceOnAnotherThread) {
    std::atomic<int> lCounter{0};
    void* const lTask = begin(countUp, &lCounter);
    ASSERT_NE(nullptr, lTask);
    EXPECT_EQ(0, osxThreadWait(lTask));
    EXPECT_EQ(1, lCounter);
    EXPECT_NE(pthread_self(), static_cast<ThreadACE*>(lTask)->getThreadID());
    EXPECT_EQ(OSX_OK, osxEndOtherTask(lTask));
}

TEST(Task, IsNamedInTheTableWhereItsNameStaysAfterItsEnd) {
    void* const lTask = begin(nothing, nullptr, "worker");
    EXPECT_STREQ("worker", osxNameTableGetName(lTask));
    osxEndOtherTask(lTask);
    EXPECT_STREQ("worker", osxNameTableGetName(lTask));
    EXPECT_EQ(1, osxNameTableCount());
}

TEST(Task, RunsThoughTheNameTableIsFull) {
    const test::LogCapture lLog;
    while (osxNameTableRegister(&gSomething, "filler")) {
    }
    std::atomic<int> lCounter{0};
    void* const lTask = begin(countUp, &lCounter, "unnamed");
    EXPECT_EQ(1U, lLog.count("Error: Cannot register unnamed, the name table is full!\n"));
    osxEndOtherTask(lTask);
    EXPECT_EQ(1, lCounter);
}

TEST(Task, IsMadeByAThreadThatIsCancelledThoughTheNameTableIsFull) {
    const test::CancellingLog lLog;
    while (osxNameTableCount() < OSX_NAME_TABLE_SIZE) {
        osxNameTableRegister(&gSomething, "filler");
    }
    void* lTask = nullptr;
    EXPECT_TRUE(test::outlastsItsCancellation(
        [&] { osxBeginTask(nothing, 0, 0, nullptr, &lTask, "unnamed"); }));
    osxEndOtherTask(lTask);
}

TEST(Task, NeedsNoName) {
    void* const lTask = begin(nothing, nullptr, nullptr);
    EXPECT_STREQ("", osxNameTableGetName(lTask));
    osxEndOtherTask(lTask);
}

TEST(Task, IgnoresPriorityAndStackSize) {
    const Traits lPlain = traitsOfTask(0, 0);
    const Traits lSpecial = traitsOfTask(99, 1);
    EXPECT_LT(0U, lPlain.stackSize);
    EXPECT_EQ(lPlain.stackSize, lSpecial.stackSize);
    EXPECT_EQ(lPlain.policy, lSpecial.policy);
    EXPECT_EQ(lPlain.priority, lSpecial.priority);
}

TEST(Task, WithoutMemoryLeavesTheHandleUntouched) {
    void* lTask = &lTask;
    errno = 0;
    {
        const test::FailingAllocator lFailing;
        EXPECT_EQ(OSX_OK, osxBeginTask(nothing, 0, 0, nullptr, &lTask, "task"));
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ(&lTask, lTask);
    EXPECT_EQ(0, osxNameTableCount());
}

TEST(Task, WithoutAThreadLeavesTheHandleUntouchedAndTheNameOut) {
    void* lTask = &lTask;
    {
        const test::NoMoreThreads lNone;
        EXPECT_EQ(OSX_OK, osxBeginTask(nothing, 0, 0, nullptr, &lTask, "task"));
    }
    EXPECT_EQ(&lTask, lTask);
    EXPECT_EQ(0, osxNameTableCount());
}

TEST(Task, HooksDoNothing) {
    const test::LogCapture lLog;
    osxBeginningOfTask();
    osxEndTask();
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(Task, ThousandsLeaveNoAddressSpaceBehind) {
    std::atomic<int> lCounter{0};
    const auto lRun = [&lCounter](int aCount) {
        for (int lIndex = 0; lIndex < aCount; ++lIndex) {
            void* const lTask = begin(countUp, &lCounter);
            ASSERT_NE(nullptr, lTask);
            osxNameTableUnRegister(lTask);
            osxEndOtherTask(lTask);
        }
    };
    lRun(50);
    const long lBefore = test::addressSpaceInMegabytes();
    lRun(1000);
    EXPECT_EQ(1050, lCounter);
    // A thread that is not joined keeps a stack of megabytes.
    EXPECT_LT(test::addressSpaceInMegabytes() - lBefore, 500);
}

TEST(ThreadWait, WaitsForTheEnd) {
    Gate lGate;
    void* const lTask = begin(&Gate::pass, &lGate);
    auto lWaiter = std::async(std::launch::async, osxThreadWait, lTask);
    lGate.entered.get_future().wait();
    EXPECT_TRUE(test::isStillWaiting(lWaiter));
    lGate.open.set_value();
    EXPECT_EQ(0, lWaiter.get());
    EXPECT_TRUE(lGate.done);
    osxEndOtherTask(lTask);
}

TEST(ThreadWait, MayBeCalledAnyNumberOfTimes) {
    void* const lTask = begin(nothing, nullptr);
    for (int lCount = 0; lCount < 3; ++lCount) {
        EXPECT_EQ(0, osxThreadWait(lTask));
    }
    osxEndOtherTask(lTask);
}

TEST(ThreadWait, MayBeCalledByManyThreadsAtOnce) {
    Gate lGate;
    void* const lTask = begin(&Gate::pass, &lGate);
    std::vector<std::future<int>> lWaiters;
    for (int lCount = 0; lCount < 8; ++lCount) {
        lWaiters.push_back(std::async(std::launch::async, osxThreadWait, lTask));
    }
    lGate.open.set_value();
    for (auto& lWaiter : lWaiters) {
        EXPECT_EQ(0, lWaiter.get());
    }
    EXPECT_TRUE(lGate.done);
    osxEndOtherTask(lTask);
}

namespace {
struct OwnWaiter {
    std::promise<void*> task;
    int result = 0;
    int error = 0;

    static void run(void* aWaiter) {
        auto* const lWaiter = static_cast<OwnWaiter*>(aWaiter);
        void* const lTask = lWaiter->task.get_future().get();
        errno = 0;
        lWaiter->result = osxThreadWait(lTask);
        lWaiter->error = errno;
    }
};
}  // namespace

TEST(ThreadWait, FailsOnTheTaskItself) {
    OwnWaiter lWaiter;
    void* const lTask = begin(&OwnWaiter::run, &lWaiter);
    auto lOther = std::async(std::launch::async, osxThreadWait, lTask);
    lWaiter.task.set_value(lTask);
    EXPECT_EQ(0, lOther.get());
    EXPECT_EQ(-1, lWaiter.result);
    EXPECT_EQ(EDEADLK, lWaiter.error);
    osxEndOtherTask(lTask);
}

TEST(ThreadWait, OfATaskThatEndedIsNotTakenForAnOwnOne) {
    void* const lFirst = begin(nothing, nullptr);
    osxThreadWait(lFirst);
    // The second task is likely to get the thread id of the first.
    struct Wait {
        void* task;
        int result;
    } lWait{lFirst, -1};
    void* const lSecond = begin(
        [](void* aWait) {
            auto* const lArgument = static_cast<Wait*>(aWait);
            lArgument->result = osxThreadWait(lArgument->task);
        },
        &lWait);
    osxEndOtherTask(lSecond);
    EXPECT_EQ(0, lWait.result);
    osxEndOtherTask(lFirst);
}

TEST(ThreadWait, NeedsNoMemory) {
    Gate lGate;
    void* const lTask = begin(&Gate::pass, &lGate);
    lGate.entered.get_future().wait();
    GateKeeper lKeeper(lGate);
    int lResult = -1;
    {
        const test::FailingAllocator lFailing;
        lResult = osxThreadWait(lTask);
    }
    EXPECT_FALSE(lKeeper.wasEarly());
    EXPECT_EQ(0, lResult);
    EXPECT_TRUE(lGate.done);
    {
        const test::FailingAllocator lFailing;
        EXPECT_EQ(0, osxThreadWait(lTask));
    }
    osxEndOtherTask(lTask);
}

TEST(ThreadWait, OfAThreadThatIsCancelledLeavesTheTaskToTheNext) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "ThreadSanitizer gives up when a joining thread is cancelled";
    }
    osxEndOtherTask(begin(nothing, nullptr));  // with the first one a sanitizer starts its own
    const int lThreads = test::numberOfThreads();
    const auto lRun = [lThreads](int aCount) {
        for (int lIndex = 0; lIndex < aCount; ++lIndex) {
            Gate lGate;
            void* const lTask = begin(&Gate::pass, &lGate);
            EXPECT_TRUE(test::isCancelledIn([lTask] { osxThreadWait(lTask); }));
            lGate.open.set_value();
            ASSERT_TRUE(test::waitUntil([=] { return test::numberOfThreads() <= lThreads; }));
            EXPECT_EQ(0, osxThreadWait(lTask));
            osxEndOtherTask(lTask);
            osxNameTableInit();
        }
    };
    lRun(10);
    const long lBefore = test::addressSpaceInMegabytes();
    lRun(kManyThreads);
    EXPECT_LT(test::addressSpaceInMegabytes() - lBefore, kMegabytesOfAFew);
}

TEST(ThreadWait, FailsOnTheTaskItselfThoughItRunsAnotherObjectsRoutine) {
    struct Nested {
        std::promise<void*> task;
        int inside = 0;
        int other = 0;
    } lNested;
    void* const lTask = begin(
        [](void* aNested) {
            ThreadACE lOther(
                [](void* aArgument) {
                    auto* const lIt = static_cast<Nested*>(aArgument);
                    lIt->inside = osxThreadWait(lIt->task.get_future().get());
                },
                aNested);
            lOther.svc();
            static_cast<Nested*>(aNested)->other = lOther.join();
        },
        &lNested);
    lNested.task.set_value(lTask);
    EXPECT_EQ(0, osxThreadWait(lTask));
    EXPECT_EQ(-1, lNested.inside);
    EXPECT_EQ(0, lNested.other);
    osxEndOtherTask(lTask);
}

TEST(ThreadWait, OfNullIsMinusOneAndALine) {
    const test::LogCapture lLog;
    EXPECT_EQ(-1, osxThreadWait(nullptr));
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxThreadWait: lThread == 0  \n"));
    EXPECT_EQ(LM_ERROR, lLog.lines()[0].priority);
    EXPECT_EQ(-1, lLog.lines()[0].status);
    EXPECT_EQ("osxACE.cpp", lLog.lines()[0].module);
}

TEST(EndOtherTask, WaitsForTheEnd) {
    Gate lGate;
    void* const lTask = begin(&Gate::pass, &lGate);
    lGate.entered.get_future().wait();
    auto lEnder = std::async(std::launch::async, osxEndOtherTask, lTask);
    EXPECT_TRUE(test::isStillWaiting(lEnder));
    lGate.open.set_value();
    EXPECT_EQ(OSX_OK, lEnder.get());
    EXPECT_TRUE(lGate.done);
}

TEST(EndOtherTask, WaitsForTheEndThoughMemoryIsShort) {
    Gate lGate;
    void* const lTask = begin(&Gate::pass, &lGate);
    lGate.entered.get_future().wait();
    GateKeeper lKeeper(lGate);
    {
        const test::FailingAllocator lFailing;
        osxEndOtherTask(lTask);
    }
    EXPECT_FALSE(lKeeper.wasEarly());
    EXPECT_TRUE(lGate.done);
}

TEST(EndOtherTask, LeavesNothingBehindThoughMemoryIsShort) {
    osxEndOtherTask(begin(nothing, nullptr));  // with the first one a sanitizer starts its own
    const int lThreads = test::numberOfThreads();
    const auto lRun = [lThreads](int aCount) {
        for (int lIndex = 0; lIndex < aCount; ++lIndex) {
            void* const lTask = begin(nothing, nullptr);
            ASSERT_TRUE(test::waitUntil([=] { return test::numberOfThreads() <= lThreads; }));
            {
                const test::FailingAllocator lFailing;
                osxEndOtherTask(lTask);
            }
            osxNameTableInit();
        }
    };
    lRun(10);
    const long lBefore = test::addressSpaceInMegabytes();
    lRun(kManyThreads);
    EXPECT_LT(test::addressSpaceInMegabytes() - lBefore, kMegabytesOfAFew);
}

TEST(EndOtherTask, OfNullIsSilent) {
    const test::LogCapture lLog;
    EXPECT_EQ(OSX_OK, osxEndOtherTask(nullptr));
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(ThreadACE, HasNoThreadIdUntilItRuns) {
    ThreadACE lThread(nothing, nullptr);
    EXPECT_EQ(pthread_t{}, lThread.getThreadID());
    ASSERT_EQ(0, lThread.activate(THR_NEW_LWP));
    EXPECT_EQ(0, lThread.join());
    EXPECT_NE(pthread_t{}, lThread.getThreadID());
}

TEST(ThreadACE, MayBeActivatedAgainAndIsWaitedForAgain) {
    ThreadACE lThread(nothing, nullptr);
    for (int lRound = 0; lRound < 3; ++lRound) {
        ASSERT_EQ(0, lThread.activate(THR_NEW_LWP));
        EXPECT_EQ(0, lThread.join());
        EXPECT_EQ(0U, lThread.thr_count());
    }
}

namespace {
/// The first thread passes at once, the second at the gate.
struct SecondAtTheGate {
    Gate gate;
    std::atomic<int> threads{0};

    static void run(void* aIt) {
        auto* const lIt = static_cast<SecondAtTheGate*>(aIt);
        if (++lIt->threads == 2) {
            Gate::pass(&lIt->gate);
        }
    }
};
}  // namespace

TEST(ThreadACE, ActivatedAgainIsWaitedForByEverybodyToItsEnd) {
    SecondAtTheGate lSecond;
    ThreadACE lThread(&SecondAtTheGate::run, &lSecond);
    ASSERT_EQ(0, lThread.activate(THR_NEW_LWP));
    EXPECT_EQ(0, lThread.join());
    ASSERT_EQ(0, lThread.activate(THR_NEW_LWP));
    lSecond.gate.entered.get_future().wait();
    std::vector<std::future<int>> lWaiters;
    for (int lCount = 0; lCount < 4; ++lCount) {
        lWaiters.push_back(std::async(std::launch::async, [&] { return osxThreadWait(&lThread); }));
    }
    GateKeeper lKeeper(lSecond.gate);
    EXPECT_EQ(0, lThread.join());
    EXPECT_FALSE(lKeeper.wasEarly());
    EXPECT_TRUE(lSecond.gate.done);
    for (auto& lWaiter : lWaiters) {
        EXPECT_EQ(0, lWaiter.get());
    }
}

TEST(ThreadACE, WithSeveralThreadsIsWaitedForUntilTheLastHasEnded) {
    constexpr int kThreads = 3;
    std::atomic<int> lCounter{0};
    Gate lGate;
    struct Work {
        std::atomic<int>& counter;
        Gate& gate;
    } lWork{lCounter, lGate};
    ThreadACE lThread(
        [](void* aWork) {
            auto* const lIt = static_cast<Work*>(aWork);
            if (++lIt->counter == 1) {
                Gate::pass(&lIt->gate);
            }
        },
        &lWork);
    ASSERT_EQ(0, lThread.activate(THR_NEW_LWP));
    ASSERT_EQ(0, lThread.activate(THR_NEW_LWP, kThreads - 1, 1));
    GateKeeper lKeeper(lGate);
    EXPECT_EQ(0, lThread.join());
    EXPECT_FALSE(lKeeper.wasEarly());
    EXPECT_EQ(kThreads, lCounter);
    EXPECT_EQ(0U, lThread.thr_count());
}

TEST(ThreadACE, WhoseRoutineTheApplicationCalledItselfIsWaitedForAllTheSame) {
    SecondAtTheGate lSecond;
    ThreadACE lThread(&SecondAtTheGate::run, &lSecond);
    EXPECT_EQ(0, lThread.svc());
    ASSERT_EQ(0, lThread.activate(THR_NEW_LWP));
    GateKeeper lKeeper(lSecond.gate);
    EXPECT_EQ(0, lThread.join());
    EXPECT_FALSE(lKeeper.wasEarly());
    EXPECT_TRUE(lSecond.gate.done);
}

TEST(ThreadACE, ActivatedAgainLeavesNothingBehindThoughMemoryIsShort) {
    ThreadACE lFirst(nothing, nullptr);  // with which a checker may start a thread of its own
    ASSERT_EQ(0, lFirst.activate(THR_NEW_LWP));
    EXPECT_EQ(0, lFirst.join());
    const int lThreads = test::numberOfThreads();
    std::deque<ThreadACE> lTasks;  // ACE would join with a task what one at its address has left
    const auto lRun = [lThreads, &lTasks](int aCount) {
        for (int lIndex = 0; lIndex < aCount; ++lIndex) {
            ThreadACE& lThread = lTasks.emplace_back(nothing, nullptr);
            ASSERT_EQ(0, lThread.activate(THR_NEW_LWP));
            EXPECT_EQ(0, lThread.join());
            // The second thread is likely to get the thread id of the first.
            ASSERT_EQ(0, lThread.activate(THR_NEW_LWP));
            ASSERT_TRUE(test::waitUntil([=] { return test::numberOfThreads() <= lThreads; }));
            const test::FailingAllocator lFailing;
            EXPECT_EQ(0, lThread.join());
        }
    };
    lRun(10);
    const long lBefore = test::addressSpaceInMegabytes();
    lRun(kManyThreads);
    EXPECT_LT(test::addressSpaceInMegabytes() - lBefore, kMegabytesOfAFew);
}

TEST(ThreadACE, LeavesNoTraceAtItsAddress) {
    std::aligned_storage_t<sizeof(ThreadACE), alignof(ThreadACE)> lPlace;
    auto* lThread = new (&lPlace) ThreadACE(nothing, nullptr);
    EXPECT_EQ(0, lThread->svc());
    lThread->~ThreadACE();
    lThread = new (&lPlace) ThreadACE(nothing, nullptr);
    ASSERT_EQ(0, lThread->activate(THR_NEW_LWP));
    EXPECT_EQ(0, osxThreadWait(lThread));
    lThread->~ThreadACE();
}

TEST(ThreadACE, OfWhichManyThreadsEndedBeforeItWasWaitedForLeavesNoneBehind) {
    constexpr int kThreads = 20;
    std::atomic<int> lCounter{0};
    std::vector<std::unique_ptr<ThreadACE>> lTasks;  // kept, as ACE knows them by their addresses
    const auto lRun = [&](int aCount) {
        for (int lIndex = 0; lIndex < aCount; ++lIndex) {
            lTasks.push_back(std::make_unique<ThreadACE>(countUp, &lCounter));
            ThreadACE& lThread = *lTasks.back();
            ASSERT_EQ(0, lThread.activate(THR_NEW_LWP, kThreads));
            ASSERT_TRUE(test::waitUntil([&] { return lThread.thr_count() == 0; }));
            EXPECT_EQ(0, lThread.join());
        }
    };
    lRun(5);
    const long lBefore = test::addressSpaceInMegabytes();
    lRun(10);
    EXPECT_EQ(15 * kThreads, lCounter);
    EXPECT_LT(test::addressSpaceInMegabytes() - lBefore, kMegabytesOfAFew);
}
