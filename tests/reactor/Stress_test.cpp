// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Everything that an application may do with the loop, at once, on any number of loop threads.
// Above all for the sanitizers. OSX_STRESS_SECONDS sets how long each number of threads has: 2 s by
// default.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ace/Reactor.h"
#include "ace/SOCK_Stream.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "reactor/PipeHandler.h"
#include "support/LogCapture.h"
#include "support/Port.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"
#include "support/longForm.h"
#include "support/waitUntil.h"

using std::chrono::milliseconds;
using test::TcpPeer;
using Clock = std::chrono::steady_clock;
using Random = std::minstd_rand;

using test::PipeHandler;

namespace {

int descriptorOf(void* aSocket) {
    return static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle();
}

/// A port that echoes, and whose connections can be closed and suspended by any thread.
class StressPort {
public:
    /// @param aReadsItself whether a data-available callback reads.
    explicit StressPort(bool aReadsItself)
        : mPort({&onNew, aReadsItself ? &onAvailable : nullptr, &onData, &onClosed}, this) {}

    TcpPeer connect() const { return mPort.connect(); }

    /// Does something with one of the connections, which cannot end meanwhile.
    template <class Work>
    void withAny(Random& aRandom, Work aWork) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        if (!mLive.empty()) {
            aWork(mLive[aRandom() % mLive.size()]);
        }
    }
    bool isLive(void* aSocket) const {
        return std::find(mLive.begin(), mLive.end(), aSocket) != mLive.end();
    }
    std::mutex& mutex() { return mMutex; }
    bool isEmpty() {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        return mLive.empty();
    }

    std::atomic<int> mOverlaps{0};

private:
    struct Session {
        StressPort& port;
        std::atomic<int> inside{0};
    };
    class Inside {
    public:
        explicit Inside(Session& aSession) : mSession(aSession) {
            mSession.port.mOverlaps += mSession.inside++ == 0 ? 0 : 1;
        }
        ~Inside() { --mSession.inside; }
        Inside(const Inside&) = delete;
        Inside& operator=(const Inside&) = delete;

    private:
        Session& mSession;
    };

    static void onNew(void* aSocket, void*& aUserData) {
        auto& lPort = *static_cast<StressPort*>(aUserData);
        aUserData = new Session{lPort};
        const std::lock_guard<std::mutex> lGuard(lPort.mMutex);
        lPort.mLive.push_back(aSocket);
    }
    static void onData(void* aSocket, void*& aUserData, unsigned char* aData,
                       unsigned long aLength) {
        const Inside lInside(*static_cast<Session*>(aUserData));
        switch (*aData) {
            case 'c':
                osxCloseSocket(aSocket);
                break;
            case 'r':
                osxCloseSocketAndRelease(aSocket);
                break;
            default:
                osxSocketSend(aSocket, aData, aLength);
        }
    }
    static long onAvailable(void* aSocket, void*& aUserData) {
        std::array<unsigned char, 1000> lData{};
        const ssize_t lCame =
            ::recv(descriptorOf(aSocket), lData.data(), lData.size(), MSG_DONTWAIT);
        if (lCame <= 0) {
            return lCame == 0 || errno != EWOULDBLOCK ? -1 : 0;
        }
        onData(aSocket, aUserData, lData.data(), static_cast<unsigned long>(lCame));
        return 0;
    }
    static void onClosed(void* aSocket, void*& aUserData) {
        auto* const lSession = static_cast<Session*>(aUserData);
        StressPort& lPort = lSession->port;
        {
            const Inside lInside(*lSession);
        }
        const std::lock_guard<std::mutex> lGuard(lPort.mMutex);
        lPort.mLive.erase(std::find(lPort.mLive.begin(), lPort.mLive.end(), aSocket));
        delete lSession;
    }

    std::mutex mMutex;
    std::vector<void*> mLive;
    test::Port mPort;
};

// --- what the threads do, one round at a time ---

/// Echoes of any size; the connection may be ended by others in the middle, but never mixed up.
void useConnection(StressPort& aPort, Random& aRandom) {
    TcpPeer lPeer = aPort.connect();
    if (!lPeer.connected()) {
        return;
    }
    for (int lEcho = 0; lEcho < 3; ++lEcho) {
        const std::string lText(aRandom() % 8000 + 1, static_cast<char>('A' + aRandom() % 26));
        if (!lPeer.send(lText)) {
            return;
        }
        const std::string lAnswer = lPeer.receive(lText.size());
        EXPECT_EQ(lText.substr(0, lAnswer.size()), lAnswer);
        if (lAnswer.size() < lText.size()) {
            return;
        }
    }
    switch (aRandom() % 4) {
        case 0:
            lPeer.reset();
            break;
        case 1:
            EXPECT_TRUE(lPeer.send("c") && lPeer.waitForClose());
            break;
        case 2:
            EXPECT_TRUE(lPeer.send("r") && lPeer.waitForClose());
            break;
        default:
            break;
    }
}

void closeFromOutside(StressPort& aPort, Random& aRandom) {
    aPort.withAny(aRandom, [](void* aSocket) { osxCloseSocket(aSocket); });
    std::this_thread::sleep_for(milliseconds(aRandom() % 5));
}

void suspendAndResume(StressPort& aPort, Random& aRandom) {
    void* lSocket = nullptr;
    aPort.withAny(aRandom, [&](void* aSocket) {
        lSocket = aSocket;
        ACE_Reactor::instance()->suspend_handler(descriptorOf(aSocket));
    });
    std::this_thread::sleep_for(milliseconds(aRandom() % 3));
    const std::lock_guard<std::mutex> lGuard(aPort.mutex());
    if (aPort.isLive(lSocket)) {
        ACE_Reactor::instance()->resume_handler(descriptorOf(lSocket));
    }
}

/// @param aCounters for as long as the loop runs: a call that its thread has no processor for may
///        outlast the time for which a timer's destruction waits.
void useTimers(std::deque<test::Counter>& aCounters, Random& aRandom) {
    test::Counter* const lCalls = &aCounters.emplace_back();
    std::array<void*, 8> lTimers{};
    for (void*& lTimer : lTimers) {
        lTimer = osxCreateTimer(&test::count, lCalls, static_cast<long>(aRandom() % 5),
                                static_cast<long>(aRandom() % 2));
    }
    EXPECT_TRUE(lCalls->waitFor(1 + static_cast<int>(aRandom() % lTimers.size())));
    for (void*& lTimer : lTimers) {
        if (aRandom() % 2 == 0) {
            osxCancelTimer(lTimer);
        }
        osxDestroyTimer(lTimer);
    }
}

/// Counted, as ACE knows a handler whose call it ends by its address and descriptor alone: another
/// one that had both would be served by two threads at once. By a count that a sanitizer sees.
class CountedPipeHandler : public PipeHandler {
public:
    CountedPipeHandler() {
        reference_counting_policy().value(ACE_Event_Handler::Reference_Counting_Policy::ENABLED);
    }
    Reference_Count add_reference() override { return ++mReferences; }
    Reference_Count remove_reference() override {
        const Reference_Count lLeft = --mReferences;
        if (lLeft == 0) {
            delete this;
        }
        return lLeft;
    }

private:
    std::atomic<Reference_Count> mReferences{1};
};

void useOwnHandler(Random& aRandom) {
    auto* const lCounted = new CountedPipeHandler;
    const ACE_Event_Handler_var lOwner(lCounted);
    CountedPipeHandler& lHandler = *lCounted;
    ACE_Reactor& lReactor = *ACE_Reactor::instance();
    EXPECT_EQ(0, lReactor.register_handler(&lHandler, ACE_Event_Handler::READ_MASK));
    const int lCalls = static_cast<int>(aRandom() % 3);
    for (int lCall = 0; lCall < lCalls; ++lCall) {
        lHandler.give();
        EXPECT_TRUE(lHandler.mCalls.waitFor(lCall + 1));
    }
    EXPECT_EQ(0, lReactor.remove_handler(
                     &lHandler, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL));
    // A call may be under way.
    lReactor.notify(&lHandler, ACE_Event_Handler::EXCEPT_MASK);
    EXPECT_TRUE(lHandler.mCalls.waitFor(lCalls + 1));
    if (aRandom() % 8 == 0) {
        lReactor.suspend_handlers();
        lReactor.resume_handlers();
    }
}

void usePort(Random&) {
    StressPort lPort(false);
    const TcpPeer lPeer = lPort.connect();
    EXPECT_TRUE(lPeer.connected());
    test::waitUntil([&] { return !lPort.isEmpty(); });
    Random lAny(1);
    lPort.withAny(lAny, [](void* aSocket) { osxCloseSocket(aSocket); });
    EXPECT_TRUE(test::waitUntil([&] { return lPort.isEmpty(); }));
}

class LoopStress : public testing::TestWithParam<int> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Threads, LoopStress, testing::Values(1, 2, 4, 8, 12));

TEST_P(LoopStress, OfEverythingAtOnceMixesNothingUpAndEnds) {
    const test::LogCapture lLog;
    std::deque<test::Counter> lCounters;
    const test::RunningReactor lLoop(GetParam());
    StressPort lEchoing(false);
    StressPort lReading(true);
    const std::vector<std::function<void(Random&)>> lWorks{
        [&](Random& aRandom) { useConnection(lEchoing, aRandom); },
        [&](Random& aRandom) { useConnection(lEchoing, aRandom); },
        [&](Random& aRandom) { useConnection(lReading, aRandom); },
        [&](Random& aRandom) { closeFromOutside(lEchoing, aRandom); },
        [&](Random& aRandom) { closeFromOutside(lReading, aRandom); },
        [&](Random& aRandom) { suspendAndResume(lEchoing, aRandom); },
        [&](Random& aRandom) { suspendAndResume(lReading, aRandom); },
        [&](Random& aRandom) { useTimers(lCounters, aRandom); },
        [&](Random& aRandom) { useOwnHandler(aRandom); },
        [&](Random& aRandom) { usePort(aRandom); }};
    const auto lEnd = Clock::now() + test::stressTime(std::chrono::seconds(2));
    std::vector<std::thread> lThreads;
    for (std::size_t lWork = 0; lWork < lWorks.size(); ++lWork) {
        lThreads.emplace_back([&lWorks, lWork, lEnd] {
            Random lRandom(static_cast<unsigned int>(lWork + 1));
            do {
                lWorks[lWork](lRandom);
            } while (Clock::now() < lEnd);
        });
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    EXPECT_TRUE(test::waitUntil([&] { return lEchoing.isEmpty() && lReading.isEmpty(); }));
    EXPECT_EQ(0, lEchoing.mOverlaps + lReading.mOverlaps);
}
