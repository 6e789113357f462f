// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Children of a process whose threads are in the loop, in a port or in a timer at the fork.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "ace/Reactor.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "osx/osxListenHandler.h"
#include "reactor/EchoPort.h"
#include "reactor/LoopOfTheApplication.h"
#include "reactor/PipeHandler.h"
#include "reactor/PollModel.h"
#include "support/InstalledBackend.h"
#include "support/LogCapture.h"
#include "support/Port.h"
#include "support/RunningReactor.h"
#include "support/inChild.h"
#include "support/serving.h"
#include "support/times.h"
#include "support/waitUntil.h"

using test::Counter;
using test::EchoPort;
using test::LoopOfTheApplication;
using test::TcpPeer;

namespace {

/// Runs a work over and over on some threads.
class Busy {
public:
    template <class Work>
    Busy(int aThreads, Work aWork) {
        for (int lThread = 0; lThread < aThreads; ++lThread) {
            mThreads.emplace_back([this, aWork] {
                while (!mStop) {
                    aWork();
                }
            });
        }
    }
    ~Busy() {
        mStop = true;
        for (std::thread& lThread : mThreads) {
            lThread.join();
        }
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

private:
    std::atomic<bool> mStop{false};
    std::vector<std::thread> mThreads;
};

}  // namespace

/// As fast as its parent was: a thread that is alone takes many events at once.
TEST(ForkedChild, IsAloneInItsLoopThoughItsParentWasNot) {
    const test::LogCapture lLog;
    EchoPort lPort;
    const test::RunningReactor lLoop(3);
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPeer.isEchoed());
    EXPECT_TRUE(test::inChild([] {
        ACE_Time_Value lLimit(0, 1000);
        ACE_Reactor::instance()->handle_events(lLimit);
        return test::eventsWanted() > 1;
    }));
}

/// AddressSanitizer does not take the locks of its allocator before a fork: the child would wait
/// for one that another thread held.
#ifndef __SANITIZE_ADDRESS__
TEST(ForkedChild, UnregistersAPortThoughAThreadWasAcceptingOnIt) {
    constexpr int kRounds = 200;
    const test::LogCapture lLog;
    EchoPort lPort;
    const test::RunningReactor lLoop(2);
    const Busy lClients(3, [&] { lPort.connect(); });
    EXPECT_TRUE(lPort.mOpened.waitFor(10));
    for (int lRound = 0; lRound < kRounds; ++lRound) {
        ASSERT_TRUE(test::inChild([&] {
            void* lHandle = lPort.handle();
            return osxUnregisterPort(lHandle) == 0;
        })) << lRound;
    }
}

TEST(ForkedChild, ClosesAConnectionThoughAThreadWasClosingOne) {
    constexpr int kRounds = 50;
    const test::LogCapture lLog;
    EchoPort lPort;
    const test::RunningReactor lLoop;
    TcpPeer lPeer = lPort.connect();
    lPeer.send("b");  // whose callback keeps the connection from ending
    ASSERT_TRUE(lPort.mBlocked.waitFor(1));
    void* const lSocket = lPort.mLast;
    {
        const Busy lClosers(2, [lSocket] { osxCloseSocket(lSocket); });
        for (int lRound = 0; lRound < kRounds; ++lRound) {
            ASSERT_TRUE(test::inChild([lSocket] { return osxCloseSocket(lSocket) == 0; }))
                << lRound;
        }
    }
    lPort.letGo();
    EXPECT_TRUE(lPort.mClosed.waitFor(1));
}

namespace {

/// @return whether the process has a socket that listens on a port.
bool hasListener(unsigned short aPort) {
    constexpr int kDescriptors = 100;
    for (int lDescriptor = 0; lDescriptor < kDescriptors; ++lDescriptor) {
        int lListens = 0;
        socklen_t lLength = sizeof lListens;
        sockaddr_in lAddress{};
        socklen_t lSize = sizeof lAddress;
        if (::getsockopt(lDescriptor, SOL_SOCKET, SO_ACCEPTCONN, &lListens, &lLength) == 0 &&
            lListens != 0 &&
            ::getsockname(lDescriptor, reinterpret_cast<sockaddr*>(&lAddress), &lSize) == 0 &&
            ntohs(lAddress.sin_port) == aPort) {
            return true;
        }
    }
    return false;
}

std::atomic<int> gGreeted{0};

void greet(void*, void*&) {
    ++gGreeted;
}

/// @return whether a client of a port is greeted by the loop, on the calling thread.
bool isServed(unsigned short aPort) {
    const TcpPeer lPeer = TcpPeer::connect(aPort);
    return test::waitUntil(
        [] {
            ACE_Time_Value lNone;
            ACE_Reactor::instance()->handle_events(lNone);
            return gGreeted != 0;
        },
        std::chrono::seconds(10));
}

}  // namespace

/// Half of one would keep its clients waiting for ever.
TEST(ForkedChild, HasAPortThatAnotherThreadWasClosingWholeOrNotAtAll) {
    constexpr int kRounds = 300;
    const test::LogCapture lLog;
    test::RunningReactor::reactor().initReactor();
    std::atomic<unsigned short> lOpen{0};
    std::mutex lPicking;  // a child would keep the socket that the number was picked with
    const Busy lOther(1, [&] {
        const unsigned short lNumber = [&lPicking] {
            const std::lock_guard<std::mutex> lGuard(lPicking);
            return test::freePort();
        }();
        {
            const test::Port lPort({&greet}, nullptr, lNumber);
            lOpen = lNumber;
        }
        lOpen = 0;
    });
    for (int lRound = 0; lRound < kRounds; ++lRound) {
        const std::lock_guard<std::mutex> lGuard(lPicking);
        ASSERT_TRUE(test::inChild([&lOpen] {
            return lOpen == 0 || !hasListener(lOpen) || isServed(lOpen);
        })) << lRound;
    }
}
#endif

namespace {

/// A timer whose callback lasts until it is told.
class LongTimer {
public:
    LongTimer() : mTimer(osxCreateTimer(&run, this, 0, 0)) { mBegun.waitFor(1); }
    ~LongTimer() { mEnded.waitFor(1); }
    LongTimer(const LongTimer&) = delete;
    LongTimer& operator=(const LongTimer&) = delete;

    /// Destroys the timer, which waits for the callback to end, as it does soon.
    void destroy() {
        std::thread lEnder([this] { mLetGo.add(); });
        osxDestroyTimer(mTimer);
        lEnder.join();
    }
    /// Destroys it though the callback does not end.
    void abandon() { osxDestroyTimer(mTimer); }
    void letGo() { mLetGo.add(); }

private:
    static void run(const void* aTimer) {
        auto* const lTimer = static_cast<LongTimer*>(const_cast<void*>(aTimer));
        lTimer->mBegun.add();
        lTimer->mLetGo.waitFor(1);
        lTimer->mEnded.add();
    }

    Counter mBegun;
    Counter mLetGo;
    Counter mEnded;
    void* mTimer;
};

}  // namespace

// ThreadSanitizer starts no thread in the child of a process with several.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
/// The threads that waited at the fork are not in the child, and must not be waited for there.
TEST(ForkedChild, DestroysTimersThoughAThreadWasWaitingForACallback) {
    constexpr int kRounds = 10;
    const test::LogCapture lLog;
    const test::RunningReactor lLoop(1);
    for (int lRound = 0; lRound < kRounds; ++lRound) {
        LongTimer lTimer;
        std::thread lWaiter([&] { lTimer.abandon(); });
        std::this_thread::sleep_for(test::kAWhile);  // until it waits
        const bool lRight = test::inChild([] {
            test::RunningReactor::reactor().startReactor();
            for (int lOne = 0; lOne < 20; ++lOne) {
                LongTimer().destroy();
            }
            return true;
        });
        lTimer.letGo();
        lWaiter.join();
        ASSERT_TRUE(lRight) << lRound;
    }
}

namespace {

/// In the child of a fork: two loop threads, of which the one takes two events and is held up by
/// the first, while the other one sleeps. @return whether that one serves the second.
bool isServedByTheThreadThatSleeps() {
    EchoPort lPort;
    TcpPeer lHolding = lPort.connect();
    TcpPeer lPeer = lPort.connect();
    test::serveUntil([&] { return lPort.mOpened.value() == 2; });
    test::holdWaits(2);
    const LoopOfTheApplication lSleeping;
    test::areHeld(1);
    const LoopOfTheApplication lHeldUp;
    test::areHeld(2);
    lHolding.send("b");
    lPeer.send("x");
    test::letGo(1, test::Report::kWhatThereIs, 2);
    lPort.mBlocked.waitFor(1);
    test::letGo(0);
    const bool lServed = lPeer.receive(1) == "x" && test::wasWoken(0);
    lPort.letGo();
    osxStopReactor();
    return !lHeldUp.wasCancelled() && !lSleeping.wasCancelled() && lServed;
}

}  // namespace

/// In the parent a thread has been woken that has not come yet. It is not in the child.
TEST(ForkedChild, WakesAThreadForWhatAnotherLeavesThoughItsParentHadWokenOne) {
    const test::LogCapture lLog;
    test::installedReactor();
    EchoPort lPort;
    TcpPeer lHolding = lPort.connect();
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(test::serveUntil([&] { return lPort.mOpened.value() == 2; }));
    test::holdWaits(2);
    const LoopOfTheApplication lHeldUp;
    ASSERT_TRUE(test::areHeld(1));
    const LoopOfTheApplication lWoken;
    ASSERT_TRUE(test::areHeld(2));
    lHolding.send("b");
    lPeer.send("x");
    test::letGo(0, test::Report::kWhatThereIs, 2);
    EXPECT_TRUE(lPort.mBlocked.waitFor(1));
    EXPECT_TRUE(test::inChild(&isServedByTheThreadThatSleeps));
    lPort.letGo();
    test::letGo(1);
    osxStopReactor();
    EXPECT_FALSE(lHeldUp.wasCancelled());
    EXPECT_FALSE(lWoken.wasCancelled());
    ACE_Reactor::instance()->reset_reactor_event_loop();
}

namespace {

/// A port whose callback forks for an 'f'. In the child it starts a loop thread, tells so, and
/// waits until another connection has been served. The child ends with the next byte.
class ForkingPort {
public:
    ForkingPort() { EXPECT_EQ(0, ::pipe(mStarted.data())); }
    ~ForkingPort() {
        ::close(mStarted[0]);
        ::close(mStarted[1]);
    }
    ForkingPort(const ForkingPort&) = delete;
    ForkingPort& operator=(const ForkingPort&) = delete;

    TcpPeer connect() const { return mPort.connect(); }
    void waitUntilTheChildHasALoop() const {
        char lByte = 0;
        EXPECT_EQ(1, ::read(mStarted[0], &lByte, 1));
    }
    Counter mChildEnded;
    std::atomic<int> mStatus{-1};

private:
    static void onData(void*, void*& aUserData, unsigned char* aData, unsigned long) {
        auto& lPort = *static_cast<ForkingPort*>(aUserData);
        switch (*aData) {
            case 'f':
                lPort.fork();
                break;
            case 'o':
                lPort.mOther.add();
                break;
            default:
                ::_exit(lPort.mInside ? 1 : 0);
        }
    }
    void fork() {
        const pid_t lChild = ::fork();
        if (lChild == 0) {
            ::alarm(60);
            mInside = true;
            test::RunningReactor::reactor().startReactor();
            EXPECT_EQ(1, ::write(mStarted[1], "x", 1));
            mOther.waitFor(1);
            mInside = false;
            return;
        }
        int lStatus = -1;
        ::waitpid(lChild, &lStatus, 0);
        mStatus = lStatus;
        mChildEnded.add();
    }

    std::array<int, 2> mStarted{};
    std::atomic<bool> mInside{false};
    Counter mOther;
    test::Port mPort{{nullptr, nullptr, &onData}, this};
};

}  // namespace

TEST(ForkedChild, DoesNotServeTheConnectionWhoseCallbackForkedUntilThatReturns) {
    const test::LogCapture lLog;
    ForkingPort lPort;
    const test::RunningReactor lLoop;
    TcpPeer lForking = lPort.connect();
    TcpPeer lOther = lPort.connect();
    lForking.send("f");
    lPort.waitUntilTheChildHasALoop();
    lForking.send("x");
    lOther.send("o");
    EXPECT_TRUE(lPort.mChildEnded.waitFor(1, std::chrono::seconds(100)));
    EXPECT_EQ(0, lPort.mStatus);
}
#endif

// --- forks while another thread is inside a callback that has a lock of ACE's ---

namespace {

/// Forks that have begun. Told before the library takes its locks, as its handlers were there
/// first.
Counter& forks() {
    static Counter gForks;
    return gForks;
}
[[maybe_unused]] const int gToldOfForks = ::pthread_atfork([] { forks().add(); }, nullptr, nullptr);

/// Waits in a callback until another thread forks, and probably waits for what the callback has.
void waitForFork(const Counter& aInside, int aFormer) {
    EXPECT_TRUE(aInside.waitFor(1));
    EXPECT_TRUE(forks().waitFor(aFormer + 1));
    std::this_thread::sleep_for(4 * test::kAWhile);  // locks, one after the other
}

/// Forks while another thread is inside something. That one lives on until the fork is over: a
/// sanitizer would tell the child that nobody has joined it.
void forkBeside(const Counter& aInside, const std::function<void()>& aWork) {
    Counter lForked;
    std::thread lThread([&] {
        aWork();
        lForked.waitFor(1);
    });
    EXPECT_TRUE(aInside.waitFor(1));
    EXPECT_TRUE(test::inChild([] { return true; }));
    lForked.add();
    lThread.join();
}

/// A handler of the application's that does something, with ACE's token, when it is closed.
class ActingAtItsEnd : public test::PipeHandler {
public:
    explicit ActingAtItsEnd(std::function<void()> aAction) : mAction(std::move(aAction)) {
        EXPECT_EQ(0, test::installedReactor().register_handler(this, READ_MASK));
    }
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
        mAction();
        return 0;
    }

private:
    std::function<void()> mAction;
};

/// Forks while another thread does something in a callback that has ACE's token.
void forkWhileTokenIsHeld(const std::function<void()>& aAction) {
    const int lFormer = forks().value();
    Counter lInside;
    ActingAtItsEnd lHandler([&] {
        lInside.add();
        waitForFork(lInside, lFormer);
        aAction();
    });
    forkBeside(lInside, [&] {
        test::installedReactor().remove_handler(&lHandler, ACE_Event_Handler::READ_MASK);
    });
}

/// A back end that does something once, with ACE's log lock.
class ActingBackend : public test::LineBackend {
public:
    explicit ActingBackend(std::function<void()> aAction) : mAction(std::move(aAction)) {}
    ssize_t log(ACE_Log_Record&) override {
        if (const auto lAction = std::exchange(mAction, nullptr)) {
            lAction();
        }
        return 0;
    }

private:
    std::function<void()> mAction;
    const test::InstalledBackend mInstalled{*this};
};

void forkWhileLogIsHeld(const std::function<void()>& aAction) {
    const int lFormer = forks().value();
    Counter lInside;
    const ActingBackend lBackend([&] {
        lInside.add();
        waitForFork(lInside, lFormer);
        aAction();
    });
    forkBeside(lInside, [] { ACE_DEBUG((LM_DEBUG, "a line\n")); });
}

}  // namespace

TEST(Fork, LetsAHandlerThatIsBeingClosedRegisterAPort) {
    const test::LogCapture lLog;
    forkWhileTokenIsHeld([] { const EchoPort lPort; });
}

TEST(Fork, LetsAHandlerThatIsBeingClosedUnregisterAPort) {
    const test::LogCapture lLog;
    test::Port lPort;
    forkWhileTokenIsHeld([&] { EXPECT_EQ(0UL, osxUnregisterPort(lPort.handle())); });
}

TEST(Fork, LetsThePortThatIsGivenUpMeanwhileBeClosed) {
    const test::LogCapture lLog;
    test::Port lPort;
    const ACE_HANDLE lHandle = static_cast<osxListenHandler*>(lPort.handle())->get_handle();
    forkWhileTokenIsHeld([lHandle] {
        EXPECT_EQ(0,
                  test::installedReactor().remove_handler(lHandle, ACE_Event_Handler::ACCEPT_MASK));
    });
    EXPECT_FALSE(lPort.connect().connected());
}

TEST(Fork, LetsALogBackendMakeTimers) {
    test::installedReactor();
    forkWhileLogIsHeld([] {
        void* lTimer = osxCreateTimer(&test::count, nullptr, 100000, 0);
        osxDestroyTimer(lTimer);
    });
}

TEST(Fork, LetsALogBackendUnregisterAPort) {
    test::Port lPort;
    forkWhileLogIsHeld([&] { EXPECT_EQ(0UL, osxUnregisterPort(lPort.handle())); });
}

/// The longer ACE's list of notifications, the longer it is locked to be looked through.
TEST(ForkedChild, NotifiesThoughAThreadWasLookingThroughTheNotifications) {
    constexpr int kRounds = 20;
    constexpr int kNotifications = 20000;
    ACE_Reactor& lReactor = test::installedReactor();
    test::PipeHandler lNotified;
    test::PipeHandler lOther;
    for (int lOne = 0; lOne < kNotifications; ++lOne) {
        lReactor.notify(&lNotified);
    }
    {
        const Busy lPurging(1, [&] { lReactor.purge_pending_notifications(&lOther); });
        for (int lRound = 0; lRound < kRounds; ++lRound) {
            ASSERT_TRUE(test::inChild([&] { return lReactor.notify(&lOther) == 0; })) << lRound;
        }
    }
    lReactor.purge_pending_notifications(&lNotified);
}
