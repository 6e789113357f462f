// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "osx/OSX_Reactor.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ace/Reactor.h"
#include "ace/TP_Reactor.h"
#include "osx/FakeHost.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"
#include "support/cancellation.h"
#include "support/times.h"
#include "support/waitUntil.h"

using std::chrono::milliseconds;
using test::elapsedSince;
using Clock = std::chrono::steady_clock;

namespace {

constexpr milliseconds kLongerThanASlice = test::kLoopSlice + test::kAWhile;

/// How many threads of the loop serve timers at the same time: each timer waits until as many as
/// wanted are inside.
class Gathering {
public:
    explicit Gathering(int aWanted) : mWanted(aWanted) {}
    ~Gathering() {
        for (void*& lTimer : mTimers) {
            osxDestroyTimer(lTimer);
        }
    }
    Gathering(const Gathering&) = delete;
    Gathering& operator=(const Gathering&) = delete;

    void start() {
        for (int lIndex = 0; lIndex < mWanted; ++lIndex) {
            mTimers.push_back(osxCreateTimer(&meet, this, 0, 0));
        }
    }
    bool complete(milliseconds aLimit) { return mInside.waitFor(mWanted, aLimit); }
    void end() {
        mLeave.add();
        mLeft.waitFor(mInside.value());
    }

private:
    static void meet(const void* aGathering) {
        auto* const lIt = const_cast<Gathering*>(static_cast<const Gathering*>(aGathering));
        lIt->mInside.add();
        lIt->mLeave.waitFor(1);
        lIt->mLeft.add();
    }

    const int mWanted;
    std::vector<void*> mTimers;
    test::Counter mInside;
    test::Counter mLeave;
    test::Counter mLeft;
};

/// @return the number of threads that serve timers at the same time, looking for up to one more
///         than expected.
bool exactlyServe(int aThreads) {
    Gathering lEnough(aThreads);
    lEnough.start();
    const bool lReached = lEnough.complete(test::kLimit);
    lEnough.end();
    Gathering lTooMany(aThreads + 1);
    lTooMany.start();
    const bool lExceeded = lTooMany.complete(kLongerThanASlice);
    lTooMany.end();
    return lReached && !lExceeded;
}

/// A handler of the application's own, for a pipe with a byte in it. Whichever is called first
/// takes the bytes of all.
class OwnHandler : public ACE_Event_Handler {
public:
    OwnHandler() : ACE_Event_Handler(ACE_Reactor::instance()) {
        EXPECT_EQ(0, ::pipe2(mPipe.data(), O_CLOEXEC | O_NONBLOCK));
        EXPECT_EQ(1, ::write(mPipe[1], "x", 1));
        reactor()->register_handler(mPipe[0], this, ACE_Event_Handler::READ_MASK);
    }
    ~OwnHandler() override {
        reactor()->remove_handler(mPipe[0], ALL_EVENTS_MASK | DONT_CALL);
        ::close(mPipe[0]);
        ::close(mPipe[1]);
    }
    OwnHandler(const OwnHandler&) = delete;
    OwnHandler& operator=(const OwnHandler&) = delete;

    int handle_input(ACE_HANDLE) override {
        ++mCalls;
        take();
        mOther->take();
        return 0;
    }
    void shareWith(OwnHandler& aOther) { mOther = &aOther; }
    int calls() const { return mCalls; }

private:
    void take() {
        char lByte = 0;
        EXPECT_EQ(1, ::read(mPipe[0], &lByte, 1));
    }

    std::array<int, 2> mPipe{};
    OwnHandler* mOther = nullptr;
    int mCalls = 0;
};

}  // namespace

TEST(Reactor, IsTheSameForTheLibraryAndTheApplication) {
    void* lTimer = osxCreateTimer(&test::count, nullptr, 3600000, 0);
    const ACE_Reactor* const lInstalledByTheLibrary = ACE_Reactor::instance();
    test::RunningReactor::reactor().initReactor();
    EXPECT_EQ(lInstalledByTheLibrary, ACE_Reactor::instance());
    osxDestroyTimer(lTimer);
}

TEST(Reactor, ItsSingletonIsExportedOnceByTheLibrary) {
    Dl_info lWhere{};
    const auto lInstance = &ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance;
    void* lAddress = nullptr;
    std::memcpy(&lAddress, &lInstance, sizeof lAddress);
    ASSERT_NE(0, ::dladdr(lAddress, &lWhere));
    EXPECT_NE(std::string::npos, std::string(lWhere.dli_fname).find("libosx"));
}

TEST(Reactor, IsAThreadPoolReactorInstalledAsAcesOwn) {
    test::RunningReactor::reactor().initReactor();
    EXPECT_NE(nullptr, dynamic_cast<ACE_TP_Reactor*>(ACE_Reactor::instance()->implementation()));
}

TEST(Reactor, IsNotInstalledByBeingMade) {
    test::RunningReactor::reactor();
    EXPECT_EQ(0, osxRunReactor());
}

TEST(Reactor, LeavesTheOneInstalledBeforeAlone) {
    ACE_Reactor lBefore;
    ACE_Reactor::instance(&lBefore);
    test::RunningReactor::reactor().initReactor();
    EXPECT_NE(&lBefore, ACE_Reactor::instance());
    EXPECT_EQ(0, lBefore.reactor_event_loop_done());
}

TEST(Reactor, RunReturnsAtOnceWithoutAReactor) {
    EXPECT_EQ(0, osxRunReactor());
    EXPECT_EQ(0, osxRunReactor());
}

TEST(Reactor, StopWithoutAReactorInstallsNone) {
    EXPECT_EQ(0, osxStopReactor());
    EXPECT_EQ(0, test::RunningReactor::reactor().stopReactor());
    EXPECT_EQ(0, osxRunReactor());
}

TEST(Reactor, CallsAHandlerOfTheApplicationsOnlyWhileItsDescriptorIsReady) {
    OSX_Reactor lReactor;
    lReactor.initReactor();
    OwnHandler lFirst;
    OwnHandler lSecond;
    lFirst.shareWith(lSecond);
    lSecond.shareWith(lFirst);
    ACE_Time_Value lLimit(30);
    EXPECT_EQ(1, ACE_Reactor::instance()->handle_events(lLimit));
    ACE_Time_Value lNoWait(ACE_Time_Value::zero);
    EXPECT_EQ(0, ACE_Reactor::instance()->handle_events(lNoWait));
    EXPECT_EQ(1, lFirst.calls() + lSecond.calls());
}

TEST(Reactor, RunServesUntilStoppedFromAnotherThread) {
    test::RunningReactor::reactor().initReactor();
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 1, 1);
    std::future<int> lResult = std::async(std::launch::async, &osxRunReactor);
    EXPECT_TRUE(lCounter.waitFor(3));
    EXPECT_TRUE(test::isStillWaiting(lResult, kLongerThanASlice));
    EXPECT_EQ(0, osxStopReactor());
    EXPECT_EQ(0, lResult.get());
    osxDestroyTimer(lTimer);
}

TEST(Reactor, StopEndsFutureLoopsToo) {
    test::RunningReactor::reactor().initReactor();
    osxStopReactor();
    EXPECT_EQ(0, osxRunReactor());
    EXPECT_NE(0, ACE_Reactor::instance()->reactor_event_loop_done());
}

TEST(Reactor, StartServesWithoutTheApplicationRunningALoop) {
    EXPECT_EQ(0, test::RunningReactor::reactor().startReactor());
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 100, 0);
    EXPECT_TRUE(lCounter.waitFor(1));
    osxDestroyTimer(lTimer);
    test::RunningReactor::reactor().stopAndDeleteReactorThreads();
}

TEST(Reactor, StartMakesOneThreadAndEachExtraOneMore) {
    const test::RunningReactor lLoop(1);
    EXPECT_TRUE(exactlyServe(1));
    for (int lMore = 0; lMore < 3; ++lMore) {
        EXPECT_EQ(0, test::RunningReactor::reactor().startExtraReactorThread());
    }
    EXPECT_TRUE(exactlyServe(4));
}

TEST(Reactor, StoppingTheThreadsTakesNoLongerThanASlice) {
    const test::RunningReactor lLoop(4);
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 0, 0);
    ASSERT_TRUE(lCounter.waitFor(1));
    const auto lStart = Clock::now();
    test::RunningReactor::reactor().stopAndDeleteReactorThreads();
    EXPECT_LT(elapsedSince(lStart), test::kSlack);
    osxDestroyTimer(lTimer);
}

/// A pipe that can always be read keeps the loop from ever being idle.
TEST(Reactor, StopsUnderASteadyLoadOfEvents) {
    class Load : public ACE_Event_Handler {
    public:
        Load() { ::pipe(mPipe); }
        ~Load() override {
            ::close(mPipe[0]);
            ::close(mPipe[1]);
        }
        ACE_HANDLE get_handle() const override { return mPipe[0]; }
        int handle_input(ACE_HANDLE) override {
            mServed.add();
            return 0;
        }
        void begin() { EXPECT_EQ(1, ::write(mPipe[1], "x", 1)); }
        test::Counter mServed;

    private:
        int mPipe[2] = {-1, -1};
    };
    Load lLoad;
    lLoad.begin();
    test::RunningReactor lLoop(2);
    ACE_Reactor::instance()->register_handler(&lLoad, ACE_Event_Handler::READ_MASK);
    ASSERT_TRUE(lLoad.mServed.waitFor(1000));
    const auto lStart = Clock::now();
    test::RunningReactor::reactor().stopAndDeleteReactorThreads();
    EXPECT_LT(elapsedSince(lStart), test::kSlack);
    ACE_Reactor::instance()->remove_handler(
        &lLoad, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
}

TEST(Reactor, AStopRightAfterTheStartWins) {
    for (int lRound = 0; lRound < 200; ++lRound) {
        test::RunningReactor::reactor().startReactor();
        test::RunningReactor::reactor().stopAndDeleteReactorThreads();
    }
}

TEST(Reactor, ThreadsMayBeStoppedTwiceAndByManyAtOnce) {
    test::RunningReactor::reactor().stopAndDeleteReactorThreads();
    for (int lRound = 0; lRound < 20; ++lRound) {
        const test::RunningReactor lLoop(3);
        std::vector<std::thread> lStoppers;
        for (int lIndex = 0; lIndex < 4; ++lIndex) {
            lStoppers.emplace_back(
                [] { test::RunningReactor::reactor().stopAndDeleteReactorThreads(); });
        }
        for (std::thread& lStopper : lStoppers) {
            lStopper.join();
        }
    }
}

TEST(Reactor, ALoopThreadMayStopTheThreads) {
    test::RunningReactor::reactor().startReactor();
    test::RunningReactor::reactor().startExtraReactorThread();
    test::Counter lStopped;
    void* lTimer = osxCreateTimer(
        [](const void* aCounter) {
            test::RunningReactor::reactor().stopAndDeleteReactorThreads();
            test::count(aCounter);
        },
        &lStopped, 0, 0);
    EXPECT_TRUE(lStopped.waitFor(1));
    test::RunningReactor::reactor().stopAndDeleteReactorThreads();
    test::Counter lLater;
    void* lUnserved = osxCreateTimer(&test::count, &lLater, 0, 0);
    EXPECT_FALSE(lLater.waitFor(1, test::kAWhile));
    osxDestroyTimer(lUnserved);
    osxDestroyTimer(lTimer);
}

TEST(Reactor, StoppedLoopThreadsStayWithoutBurningTheProcessor) {
    const test::RunningReactor lLoop(4);
    test::RunningReactor::reactor().stopReactor();
    EXPECT_TRUE(test::isIdle());
    const auto lStart = Clock::now();
    test::RunningReactor::reactor().stopAndDeleteReactorThreads();
    EXPECT_LT(elapsedSince(lStart), test::kSlack);
}

TEST(Reactor, StopActsOnTheProcessWideReactorNotTheOwnOne) {
    test::RunningReactor::reactor().initReactor();
    ACE_Reactor* const lOwn = ACE_Reactor::instance();
    ACE_Reactor lOther;
    ACE_Reactor::instance(&lOther);
    test::RunningReactor::reactor().stopReactor();
    EXPECT_NE(0, lOther.reactor_event_loop_done());
    EXPECT_EQ(0, lOwn->reactor_event_loop_done());
    ACE_Reactor::instance(lOwn);
}

TEST(Reactor, DestroyingOneStopsItsThreadsAndUninstallsIt) {
    test::Counter lCounter;
    void* lTimer = nullptr;
    {
        OSX_Reactor lReactor;
        lReactor.startReactor();
        lReactor.startExtraReactorThread();
        lTimer = osxCreateTimer(&test::count, &lCounter, 1, 1);
        EXPECT_TRUE(lCounter.waitFor(2));
    }
    EXPECT_EQ(0, osxRunReactor());
    const int lCalls = lCounter.value();
    EXPECT_FALSE(lCounter.waitFor(lCalls + 1, test::kAWhile));
    osxDestroyTimer(lTimer);
}

TEST(Reactor, ThatCannotBeAllocatedServesNothing) {
    errno = 0;
    const test::FailingAllocator lNoMemory;
    OSX_Reactor lReactor;
    EXPECT_EQ(ENOMEM, errno);
    lReactor.initReactor();
    EXPECT_EQ(0, osxRunReactor());
}

TEST(Reactor, ThatCouldNotBeAllocatedIsTriedAgain) {
    for (int lAllowed = 0; lAllowed < 2; ++lAllowed) {
        std::unique_ptr<OSX_Reactor> lReactor;
        int lFailures = 0;
        {
            const test::FailingAllocator lNoMemory(lAllowed + 1, true);
            lReactor = std::make_unique<OSX_Reactor>();
            lFailures = lNoMemory.failures();
        }
        lReactor->startReactor();
        test::Counter lCounter;
        void* lTimer = osxCreateTimer(&test::count, &lCounter, 0, 0);
        EXPECT_TRUE(lCounter.waitFor(1)) << lAllowed << ' ' << lFailures;
        osxDestroyTimer(lTimer);
    }
}

/// The limit that cannot be raised again counts, for ACE raises the other one.
TEST(Reactor, WithoutADescriptorForItIsTriedAgainByTheNextUse) {
    const test::LogCapture lLog;
    {
        // Checkers that are built into the code need a descriptor the first time that it runs.
        const test::RunningReactor lLoop;
        test::Counter lCounter;
        void* lTimer = osxCreateTimer(&test::count, &lCounter, 0, 0);
        EXPECT_TRUE(lCounter.waitFor(1));
        osxDestroyTimer(lTimer);
        const OSX_Reactor lGone;
    }
    ACE_Reactor* const lFormer = ACE_Reactor::instance();
    std::vector<test::Descriptor> lTaken;
    for (int lOne = 0; lOne < 16; ++lOne) {
        lTaken.emplace_back(::fcntl(0, F_DUPFD_CLOEXEC, 0));
    }
    const auto lLimit = static_cast<rlim_t>(lTaken.back().get() + 1);
    const rlimit lLimits{lLimit, lLimit};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &lLimits));
    OSX_Reactor lReactor;
    EXPECT_EQ(EMFILE, errno);
    lReactor.startReactor();
    EXPECT_EQ(lFormer, ACE_Reactor::instance());
    lTaken.clear();
    lReactor.initReactor();
    EXPECT_NE(lFormer, ACE_Reactor::instance());
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 0, 0);
    EXPECT_TRUE(lCounter.waitFor(1));
    osxDestroyTimer(lTimer);
}

namespace {
constexpr char kNoThread[] =
    " OSX_Reactor::startExtraReactorThread: unable to start a reactor thread\n";
}

TEST(Reactor, SaysThatAThreadCannotBeAllocated) {
    test::RunningReactor::reactor().initReactor();
    const test::LogCapture lLog;
    {
        const test::FailingAllocator lNoMemory(0, true);
        EXPECT_EQ(0, test::RunningReactor::reactor().startExtraReactorThread());
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ(1U, lLog.count("%t" + std::string(kNoThread)));
}

TEST(Reactor, SaysThatTheSystemGaveItNoThread) {
    const test::LogCapture lLog;
    {
        const test::NoMoreThreads lNone;
        EXPECT_EQ(0, test::RunningReactor::reactor().startReactor());
        EXPECT_EQ(EAGAIN, errno);
    }
    ASSERT_EQ(1U, lLog.lines().size());
    EXPECT_EQ("%t" + std::string(kNoThread), lLog.texts()[0]);
    EXPECT_EQ(LM_ERROR, lLog.lines()[0].priority);
    EXPECT_EQ(EAGAIN, lLog.lines()[0].errnum);
    EXPECT_EQ("OSX_Reactor.cpp", lLog.lines()[0].module);
    test::RunningReactor::reactor().stopAndDeleteReactorThreads();
}

TEST(ReactorThread, RunsFromInitToStop) {
    test::RunningReactor::reactor().initReactor();
    OSX_ReactorThread lThread;
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 1, 1);
    for (int lRound = 1; lRound <= 2; ++lRound) {
        EXPECT_EQ(0, lThread.init());
        EXPECT_TRUE(lCounter.waitFor(lCounter.value() + 1));
        lThread.stopRunning();
        EXPECT_EQ(0, lThread.wait());
    }
    osxDestroyTimer(lTimer);
}

TEST(ReactorThread, ThatRunsAlreadyGoesOn) {
    test::RunningReactor::reactor().initReactor();
    OSX_ReactorThread lThread;
    EXPECT_EQ(0, lThread.init());
    EXPECT_EQ(1, lThread.init());
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 10, 1);
    EXPECT_TRUE(lCounter.waitFor(2));
    EXPECT_EQ(1, lThread.init());
    EXPECT_TRUE(lCounter.waitFor(lCounter.value() + 2));
    lThread.stopRunning();
    EXPECT_EQ(0, lThread.wait());
    osxDestroyTimer(lTimer);
}

/// Runs the body on a thread of the test's own, and stops it once it has served something.
TEST(ReactorThread, ItsBodyRunsAgainAfterAStop) {
    test::RunningReactor::reactor().initReactor();
    OSX_ReactorThread lThread;
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 1, 1);
    lThread.stopRunning();
    for (int lRound = 0; lRound < 3; ++lRound) {
        const int lBefore = lCounter.value();
        std::future<int> lResult =
            std::async(std::launch::async, [&lThread] { return lThread.svc(); });
        EXPECT_TRUE(lCounter.waitFor(lBefore + 2)) << lRound;
        lThread.stopRunning();
        EXPECT_EQ(0, lResult.get());
    }
    osxDestroyTimer(lTimer);
}

namespace {
void countAndEndTheThread(const void* aCounter) {
    test::count(aCounter);
    ::pthread_exit(nullptr);
}
}  // namespace

TEST(ReactorThread, IsStoppedThoughACallbackHasEndedIt) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "ThreadSanitizer reports ACE's own locks when a thread ends itself";
    }
    OSX_Reactor& lReactor = test::RunningReactor::reactor();
    lReactor.startReactor();
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&countAndEndTheThread, &lCounter, 0, 0);
    EXPECT_TRUE(lCounter.waitFor(1));
    lReactor.stopAndDeleteReactorThreads();
    osxDestroyTimer(lTimer);
}

TEST(ReactorThread, AStopBeforeItsFirstStepWins) {
    test::RunningReactor::reactor().initReactor();
    for (int lRound = 0; lRound < 200; ++lRound) {
        OSX_ReactorThread lThread;
        lThread.init();
        lThread.stopRunning();
        EXPECT_EQ(0, lThread.wait());
    }
}

TEST(ReactorThread, NoticesAStopWithoutBeingWoken) {
    test::RunningReactor::reactor().initReactor();
    OSX_ReactorThread lThread;
    lThread.init();
    std::this_thread::sleep_for(test::kAWhile);  // until it waits
    const auto lStart = Clock::now();
    lThread.stopRunning();
    lThread.wait();
    EXPECT_LT(elapsedSince(lStart), test::kSlack);
}

TEST(ReactorThread, WaitsForAReactorToBeInstalled) {
    OSX_ReactorThread lThread;
    lThread.init();
    std::this_thread::sleep_for(test::kAWhile);  // until it looks for one in vain
    EXPECT_EQ(0, osxRunReactor());
    test::RunningReactor::reactor().initReactor();
    test::Counter lCounter;
    void* lTimer = osxCreateTimer(&test::count, &lCounter, 0, 0);
    EXPECT_TRUE(lCounter.waitFor(1));
    osxDestroyTimer(lTimer);
    lThread.stopRunning();
    lThread.wait();
}

namespace {

/// Timers that nobody destroys. What the functions below leave behind is never destroyed either,
/// for it is in use when the process ends.
void createForGood(void (*aFunction)(const void*), test::Counter* aCounter, long aDelayMs,
                   long aIntervalMs) {
    static auto* const lTimers = new std::vector<void*>;
    lTimers->push_back(osxCreateTimer(aFunction, aCounter, aDelayMs, aIntervalMs));
}

[[noreturn]] void leaveWith(int aStatus, void (*aBefore)()) {
    aBefore();
    std::exit(aStatus);
}

void keepLoopsBusy() {
    static auto& lCounter = *new test::Counter;
    test::RunningReactor::reactor().startReactor();
    for (int lMore = 0; lMore < 3; ++lMore) {
        test::RunningReactor::reactor().startExtraReactorThread();
    }
    for (int lIndex = 0; lIndex < 20; ++lIndex) {
        createForGood(&test::count, &lCounter, 1, 1);
    }
    lCounter.waitFor(100);
}

void runOnAThreadOfTheApplication() {
    static auto& lCounter = *new test::Counter;
    test::RunningReactor::reactor().initReactor();
    createForGood(&test::count, &lCounter, 1, 1);
    std::thread(&osxRunReactor).detach();
    lCounter.waitFor(3);
}

void stickInACallback() {
    static auto& lCounter = *new test::Counter;
    static auto& lNever = *new test::Counter;
    test::RunningReactor::reactor().startReactor();
    createForGood(
        [](const void*) {
            lCounter.add();
            lNever.waitFor(1, std::chrono::hours(1));
        },
        nullptr, 0, 0);
    lCounter.waitFor(1);
}

}  // namespace

TEST(ProcessExit, KeepsTheProgramsStatusWithLoopThreadsRunning) {
    for (int lRound = 0; lRound < 5; ++lRound) {
        EXPECT_EXIT(leaveWith(7, &keepLoopsBusy), testing::ExitedWithCode(7), "^$");
    }
}

TEST(ProcessExit, LeavesNoTimerThatNothingRefersTo) {
    EXPECT_EXIT(
        {
            test::RunningReactor::reactor().initReactor();
            osxCreateTimer(&test::count, nullptr, 3600000, 0);
            std::exit(11);
        },
        testing::ExitedWithCode(11), "^$");
}

TEST(ProcessExit, KeepsTheProgramsStatusWithTheApplicationsThreadInTheLoop) {
    EXPECT_EXIT(leaveWith(8, &runOnAThreadOfTheApplication), testing::ExitedWithCode(8), "^$");
}

TEST(ProcessExit, DoesNotWaitForACallbackThatDoesNotEnd) {
    EXPECT_EXIT(leaveWith(9, &stickInACallback), testing::ExitedWithCode(9), "^$");
}

TEST(ProcessExit, MayBeCalledByACallback) {
    EXPECT_EXIT(
        {
            test::RunningReactor::reactor().startReactor();
            createForGood([](const void*) { std::exit(10); }, nullptr, 0, 0);
            for (;;) {
                ::pause();
            }
        },
        testing::ExitedWithCode(10), "^$");
}

TEST(ReactorThreads, AreWaitedForThoughMemoryIsShort) {
    const auto lRun = [](int aCount) {
        for (int lIndex = 0; lIndex < aCount; ++lIndex) {
            test::RunningReactor::reactor().startReactor();
            const test::FailingAllocator lFailing;
            test::RunningReactor::reactor().stopAndDeleteReactorThreads();
        }
    };
    lRun(10);
    const int lThreads = test::numberOfThreads();
    const long lBefore = test::addressSpaceInMegabytes();
    lRun(60);
    // Of a thread that is not joined, megabytes stay behind.
    EXPECT_LT(test::addressSpaceInMegabytes() - lBefore, 100);
    EXPECT_TRUE(test::waitUntil([=] { return test::numberOfThreads() <= lThreads; }));
}

TEST(ReactorThreads, AThreadThatStopsThemMayBeCancelled) {
    test::RunningReactor::reactor().startReactor();
    EXPECT_TRUE(test::outlastsItsCancellation(
        [] { test::RunningReactor::reactor().stopAndDeleteReactorThreads(); }));
}
