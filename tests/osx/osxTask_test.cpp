#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "osx/FakeHost.h"
#include "osx/ThreadACE.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"

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

long addressSpaceInMegabytes() {
    std::ifstream lStatus("/proc/self/status");
    std::string lWord;
    while (lStatus >> lWord && lWord != "VmSize:") {
    }
    long lKilobytes = -1;
    lStatus >> lKilobytes;
    return lKilobytes / 1024;
}

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
    const long lBefore = addressSpaceInMegabytes();
    lRun(1000);
    EXPECT_EQ(1050, lCounter);
    // A thread that is not joined keeps a stack of megabytes.
    EXPECT_LT(addressSpaceInMegabytes() - lBefore, 500);
}

TEST(ThreadWait, WaitsForTheEnd) {
    Gate lGate;
    void* const lTask = begin(&Gate::pass, &lGate);
    auto lWaiter = std::async(std::launch::async, osxThreadWait, lTask);
    lGate.entered.get_future().wait();
    EXPECT_EQ(std::future_status::timeout, lWaiter.wait_for(std::chrono::milliseconds(50)));
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
    EXPECT_EQ(std::future_status::timeout, lEnder.wait_for(std::chrono::milliseconds(50)));
    lGate.open.set_value();
    EXPECT_EQ(OSX_OK, lEnder.get());
    EXPECT_TRUE(lGate.done);
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
