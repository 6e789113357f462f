// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The loop itself: who wakes up for what, and threads that are called off in the middle of it.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "ace/Log_Record.h"
#include "ace/Reactor.h"
#include "ace/SOCK_Stream.h"
#include "ace/TP_Reactor.h"
#include "logging/Logging.h"
#include "osx/ActiveObject.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "reactor/EchoPort.h"
#include "reactor/LoopOfTheApplication.h"
#include "reactor/PipeHandler.h"
#include "reactor/PollModel.h"
#include "support/InstalledBackend.h"
#include "support/LogCapture.h"
#include "support/Port.h"
#include "support/RunningReactor.h"
#include "support/cancellation.h"
#include "support/inChild.h"
#include "support/serving.h"
#include "support/times.h"
#include "support/waitUntil.h"

using std::chrono::milliseconds;
using test::Counter;
using test::EchoPort;
using test::LoopOfTheApplication;
using test::TcpPeer;

using test::PipeHandler;

namespace {

OSX_Reactor& loop() {
    return test::RunningReactor::reactor();
}

/// @return what the kernel says of a thread of this process, by the name of a line.
std::string statusOf(const std::string& aThread, const std::string& aName) {
    std::ifstream lStatus("/proc/self/task/" + aThread + "/status");
    for (std::string lLine; std::getline(lStatus, lLine);) {
        if (lLine.rfind(aName + ":", 0) == 0) {
            return lLine.substr(aName.size() + 2);
        }
    }
    return {};
}

/// @return the other threads of this process, by their numbers.
std::vector<std::string> otherThreads() {
    std::vector<std::string> lThreads;
    DIR* const lTasks = ::opendir("/proc/self/task");
    while (const dirent* const lTask = ::readdir(lTasks)) {
        const std::string lName = lTask->d_name;
        if (lName[0] != '.' && lName != std::to_string(::gettid())) {
            lThreads.push_back(lName);
        }
    }
    ::closedir(lTasks);
    return lThreads;
}

bool allSleep(const std::vector<std::string>& aThreads) {
    return std::all_of(aThreads.begin(), aThreads.end(), [](const std::string& aThread) {
        return statusOf(aThread, "State").rfind('S', 0) == 0;
    });
}

/// @return whether all other threads sleep, as they do when there is nothing to serve.
bool allOthersSleep() {
    return allSleep(otherThreads());
}

/// Ends the loop for eight threads that wait in it. Those that did not come back could not be
/// joined, and end the test's process.
void endForEveryThread(int aInterruptedWrites) {
    std::vector<std::future<int>> lThreads;
    for (int lThread = 0; lThread < 8; ++lThread) {
        lThreads.push_back(std::async(std::launch::async, &osxRunReactor));
    }
    ASSERT_TRUE(test::waitUntil(&allOthersSleep));
    test::interruptWrites(aInterruptedWrites);
    osxStopReactor();
    test::interruptWrites(0);
    bool lAll = true;
    for (std::future<int>& lThread : lThreads) {
        lAll = lAll && lThread.wait_for(test::kSlack) == std::future_status::ready;
    }
    EXPECT_TRUE(lAll);
    if (!lAll) {
        ::_exit(1);
    }
    ACE_Reactor::instance()->reset_reactor_event_loop();
}

}  // namespace

TEST(Loop, EndsForEveryThreadOfTheApplication) {
    loop().initReactor();
    for (int lRound = 0; lRound < 20; ++lRound) {
        endForEveryThread(0);
    }
}

TEST(Loop, EndsForEveryThreadThoughItsWakingIsInterrupted) {
    loop().initReactor();
    for (const int lInterrupted : {1, 2, 5}) {
        endForEveryThread(lInterrupted);
    }
}

/// The thread that is woken first may be one that has been stopped.
TEST(Loop, ServesAHandlerOfTheApplicationsThoughTheThreadThatWasWokenForItEnds) {
    constexpr int kRounds = 10;
    loop().initReactor();
    std::future<int> lLoop = std::async(std::launch::async, &osxRunReactor);
    for (int lRound = 0; lRound < kRounds; ++lRound) {
        ASSERT_TRUE(test::waitUntil(&allOthersSleep));
        OSX_ReactorThread lThread;
        lThread.init();
        ASSERT_TRUE(test::waitUntil(&allOthersSleep));
        lThread.stopRunning();
        PipeHandler lHandler;
        ACE_Reactor::instance()->register_handler(&lHandler, ACE_Event_Handler::READ_MASK);
        lHandler.give();
        EXPECT_TRUE(lHandler.mCalls.waitFor(1)) << lRound;
        ACE_Reactor::instance()->remove_handler(
            &lHandler, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
        lThread.stopAndWait();
    }
    osxStopReactor();
    lLoop.get();
}

namespace {

/// A port whose closed-connection callback starts a loop thread while another thread forks.
struct ForkedBeside {
    std::atomic<int> descriptor{-1};
    std::atomic<bool> mayFork{false};
    std::atomic<int> forker{0};
    Counter opened;
    Counter closed;

    static void onNew(void* aSocket, void*& aUserData) {
        auto& lIt = *static_cast<ForkedBeside*>(aUserData);
        lIt.descriptor = static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle();
        lIt.opened.add();
    }
    static void onClosed(void*, void*& aUserData) {
        auto& lIt = *static_cast<ForkedBeside*>(aUserData);
        lIt.mayFork = true;
        EXPECT_TRUE(test::waitUntil([&] { return allSleep({std::to_string(lIt.forker)}); }));
        loop().startExtraReactorThread();
        lIt.closed.add();
    }
    void fork() {
        forker = ::gettid();
        while (!mayFork) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(test::inChild([] { return true; }));
    }
};

}  // namespace

/// The reactor's removal calls back with ACE's token, which the fork waits for.
TEST(Loop, GetsAThreadByACallbackWhileAnotherThreadForks) {
    ::alarm(60);
    const test::LogCapture lLog;
    const test::RunningReactor lLoop;
    ForkedBeside lBeside;
    const test::Port lPort({&ForkedBeside::onNew, nullptr, nullptr, &ForkedBeside::onClosed},
                           &lBeside);
    const TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lBeside.opened.waitFor(1));
    std::thread lForker([&] { lBeside.fork(); });
    ASSERT_TRUE(test::waitUntil([&] { return lBeside.forker != 0; }));
    ACE_Reactor::instance()->remove_handler(lBeside.descriptor.load(),
                                            ACE_Event_Handler::ALL_EVENTS_MASK);
    EXPECT_TRUE(lBeside.closed.waitFor(1));
    lForker.join();
    ::alarm(0);
}

namespace {

/// Two handlers: while the one is being closed, with the reactor's token, the other one's callback
/// ends.
struct ClosedMeanwhile {
    struct Called : PipeHandler {
        explicit Called(ClosedMeanwhile& aBoth) : mBoth(aBoth) {}
        int handle_input(ACE_HANDLE aHandle) override {
            PipeHandler::handle_input(aHandle);
            mBoth.closing.waitFor(1);
            mBoth.called = true;
            return 0;
        }
        ClosedMeanwhile& mBoth;
    };
    struct Closed : PipeHandler {
        explicit Closed(ClosedMeanwhile& aBoth) : mBoth(aBoth) {}
        int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
            mBoth.closing.add();
            test::waitUntil(
                [this] { return mBoth.called && allSleep({std::to_string(mBoth.caller)}); });
            return 0;
        }
        ClosedMeanwhile& mBoth;
    };

    const pid_t caller = ::gettid();
    Counter closing;
    std::atomic<bool> called{false};
};

}  // namespace

TEST(Loop, TellsOfACallbackThoughItHadToWaitForTheReactorAfterwards) {
    loop().initReactor();
    ACE_Reactor& lReactor = *ACE_Reactor::instance();
    ClosedMeanwhile lBoth;
    ClosedMeanwhile::Called lCalled(lBoth);
    ClosedMeanwhile::Closed lClosed(lBoth);
    ASSERT_EQ(0, lReactor.register_handler(&lCalled, ACE_Event_Handler::READ_MASK));
    ASSERT_EQ(0, lReactor.register_handler(&lClosed, ACE_Event_Handler::READ_MASK));
    std::thread lCloser([&] {
        lCalled.mCalls.waitFor(1);
        lReactor.remove_handler(&lClosed, ACE_Event_Handler::READ_MASK);
    });
    lCalled.give();
    ACE_Time_Value lLimit(20);
    EXPECT_EQ(1, lReactor.handle_events(lLimit));
    lCloser.join();
    EXPECT_TRUE(lBoth.called);
    lReactor.remove_handler(&lCalled, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
}

// --- nothing to do ---

namespace {

/// How often each of some threads has gone to sleep so far.
std::map<std::string, long> sleepsOf(const std::vector<std::string>& aThreads) {
    std::map<std::string, long> lSleeps;
    for (const std::string& lThread : aThreads) {
        lSleeps[lThread] = std::atol(statusOf(lThread, "voluntary_ctxt_switches").c_str());
    }
    return lSleeps;
}

class IdleProcess : public testing::TestWithParam<bool> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(WithAHandlerOfItsOwn, IdleProcess, testing::Bool());

/// Two loop threads, an active object, network logging with its ports and its own, and a client of
/// each: only the loop threads wake up, to see whether another reactor has been installed.
TEST_P(IdleProcess, WakesNoThreadMoreThanItsSlicesNeed) {
    constexpr int kASecond = 4;
    std::thread([] {}).join();  // with the first one a sanitizer starts its own
    const std::vector<std::string> lThreads = otherThreads();
    const unsigned short lRedirectPort = test::freePort();
    setDebugLevelPortNumber(test::freePort());
    std::array<std::string, 3> lTexts{"program", "-RedirectPort", std::to_string(lRedirectPort)};
    std::array<char*, 4> lArguments{lTexts[0].data(), lTexts[1].data(), lTexts[2].data(), nullptr};
    int lNumber = 3;
    LogInit(lNumber, lArguments.data(), true);
    {
        ActiveObject lObject;
        lObject.init();
        EchoPort lPort;
        void* lTimer = osxCreateTimer(&test::count, nullptr, 3600000, 1);
        const test::RunningReactor lLoop(2);
        PipeHandler lHandler;
        if (GetParam()) {
            ACE_Reactor::instance()->register_handler(&lHandler, ACE_Event_Handler::READ_MASK);
        }
        const TcpPeer lWatcher = TcpPeer::connect(lRedirectPort);
        TcpPeer lPeer = lPort.connect();
        ASSERT_TRUE(lPeer.isEchoed());

        std::vector<std::string> lOwn = otherThreads();
        for (const std::string& lThread : lThreads) {
            lOwn.erase(std::remove(lOwn.begin(), lOwn.end(), lThread), lOwn.end());
        }
        ASSERT_TRUE(test::waitUntil([&] { return allSleep(lOwn); }));
        EXPECT_EQ(4U, lOwn.size());
        const auto lStart = std::chrono::steady_clock::now();
        const std::map<std::string, long> lBefore = sleepsOf(lOwn);
        std::this_thread::sleep_for(12 * test::kLoopSlice);
        const std::map<std::string, long> lAfter = sleepsOf(lOwn);
        const auto lSeconds = std::chrono::duration_cast<std::chrono::seconds>(
            std::chrono::steady_clock::now() - lStart);
        for (const std::string& lThread : lOwn) {
            EXPECT_LE(lAfter.at(lThread) - lBefore.at(lThread), kASecond * (lSeconds.count() + 1));
        }
        lObject.stop();
        osxDestroyTimer(lTimer);
        ACE_Reactor::instance()->remove_handler(
            &lHandler, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
    }
    LogDeinit();
}

// --- threads that are called off ---

namespace {

/// While one lives, a thread that writes a line with a text is cancelled there.
class CancellingAt : public test::LineBackend {
public:
    explicit CancellingAt(std::string aText) : mText(std::move(aText)) {}

private:
    ssize_t log(ACE_Log_Record& aRecord) override {
        if (std::string(aRecord.msg_data()).find(mText) != std::string::npos && !mDone) {
            mDone = true;
            ::pthread_cancel(::pthread_self());
            ::pthread_testcancel();
        }
        return 0;
    }
    const std::string mText;
    std::atomic<bool> mDone{false};
    test::InstalledBackend mInstalled{*this};
};

class CancelledLoopThread : public testing::TestWithParam<const char*> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(AtTheLine, CancelledLoopThread,
                         testing::Values("Remote connection from", "aNewConnectionFnc[",
                                         "CTOR  mNrCreated", "osxListenHandler::handle_input",
                                         "osxDataHandler::handle_input", "Connection closed",
                                         "handle_close: handle", "DTOR  mNrCreated"));

TEST_P(CancelledLoopThread, LeavesItsConnectionToTheOthersAndNoneOpen) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "the sanitizer does not take a thread that ends in the middle";
    }
    const test::LossAccepted lOfAces;  // ACE's own buffer for the line
    loop().initReactor();
    EchoPort lPort;
    const test::TraceLevel lAll(9);
    {
        const CancellingAt lCancelling(GetParam());
        const LoopOfTheApplication lLoop;
        TcpPeer lPeer = lPort.connect();
        lPeer.send("x");
        ::shutdown(lPeer.descriptor(), SHUT_WR);
        EXPECT_TRUE(lLoop.wasCancelled());
        const test::RunningReactor lOthers;
        EXPECT_TRUE(lPort.mClosed.waitFor(1));
        EXPECT_TRUE(lPeer.waitForClose());
    }
    EXPECT_EQ(1, lPort.mOpened.value());
    EXPECT_EQ(1, lPort.mBytes) << "what was read is handed over";
    EXPECT_EQ(1, lPort.mClosed.value());
}

TEST(CancelledLoopThread, LeavesTheApplicationsHandlersToTheOthers) {
    if (test::kCannotBeWatched) {
        GTEST_SKIP() << "the sanitizer does not take a thread that ends in the middle";
    }
    loop().initReactor();
    PipeHandler lHandler;
    PipeHandler lOther;
    for (PipeHandler* const lEach : {&lHandler, &lOther}) {
        ASSERT_EQ(0,
                  ACE_Reactor::instance()->register_handler(lEach, ACE_Event_Handler::READ_MASK));
    }
    const LoopOfTheApplication lLoop;
    test::cancelWithTheNextEvent();
    lHandler.give();
    EXPECT_TRUE(lLoop.wasCancelled());
    const test::RunningReactor lOthers;
    lOther.give();
    EXPECT_TRUE(lOther.mCalls.waitFor(1));
    for (PipeHandler* const lEach : {&lHandler, &lOther}) {
        ACE_Reactor::instance()->remove_handler(
            lEach, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
    }
}

// --- connections that are suspended ---

namespace {

/// @return whether a suspended connection that is closed ends no sooner than it is resumed.
void expectCloseOnResume() {
    EchoPort lPort;
    TcpPeer lPeer = lPort.connect();
    test::serve();
    ASSERT_EQ(1, lPort.mOpened.value());
    ACE_Reactor::instance()->suspend_handler(lPort.mLastDescriptor.load());
    osxCloseSocket(lPort.mLast);
    EXPECT_TRUE(lPeer.waitForClose());
    test::serve();
    EXPECT_EQ(0, lPort.mClosed.value());
    ACE_Reactor::instance()->resume_handler(lPort.mLastDescriptor.load());
    test::serve();
    EXPECT_EQ(1, lPort.mClosed.value());
}

}  // namespace

TEST(SuspendedConnection, ThatIsClosedEndsOnceItIsResumedOnEitherReactor) {
    const test::LogCapture lLog;
    {
        ACE_TP_Reactor lImplementation;
        ACE_Reactor lAces(&lImplementation);
        ACE_Reactor::instance(&lAces);
        expectCloseOnResume();
        ACE_Reactor::instance(nullptr);
    }
    loop().initReactor();
    expectCloseOnResume();
}
