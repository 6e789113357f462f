// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "osx/observation.h"
#include "osx/osx.h"
#include "osx/osxDataHandler.h"
#include "support/LogCapture.h"
#include "support/Port.h"
#include "support/RunningReactor.h"
#include "support/waitUntil.h"

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kLoopThreads = 4;
constexpr int kTimers = 1000;
constexpr milliseconds kTime(1500);

/// Freed as soon as its timer is destroyed: a later callback would be a use after free.
struct Datum {
    std::atomic<std::uint32_t> calls{0};
    static void fire(const void* aDatum) {
        ++const_cast<Datum*>(static_cast<const Datum*>(aDatum))->calls;
    }
};

/// Creates, cancels and destroys timers until the time is over.
void exerciseTimers(int aSeed, Clock::time_point aUntil, std::atomic<std::uint64_t>& aCalls) {
    std::minstd_rand lRandom(static_cast<unsigned int>(aSeed));
    struct Slot {
        void* timer = nullptr;
        std::unique_ptr<Datum> datum;
    };
    std::vector<Slot> lSlots(kTimers / 2);
    const auto lClear = [&aCalls](Slot& aSlot) {
        osxDestroyTimer(aSlot.timer);
        aCalls += aSlot.datum->calls;
        aSlot.datum.reset();
    };
    while (Clock::now() < aUntil) {
        Slot& lSlot = lSlots[lRandom() % lSlots.size()];
        if (lSlot.timer == nullptr) {
            lSlot.datum = std::make_unique<Datum>();
            lSlot.timer = osxCreateTimer(&Datum::fire, lSlot.datum.get(),
                                         static_cast<long>(lRandom() % 20), lRandom() % 2);
        } else if (lRandom() % 4 == 0) {
            osxCancelTimer(lSlot.timer);
        } else {
            lClear(lSlot);
        }
    }
    for (Slot& lSlot : lSlots) {
        if (lSlot.timer != nullptr) {
            lClear(lSlot);
        }
    }
}

struct Connections {
    std::atomic<int> opened{0};
    std::atomic<int> closed{0};
};

void opened(void*, void*& aUserData) {
    ++static_cast<Connections*>(aUserData)->opened;
}
void closed(void*, void*& aUserData) {
    ++static_cast<Connections*>(aUserData)->closed;
}
constexpr test::PortCallbacks kCountingEcho{&opened, nullptr, &test::echo, &closed};

/// Connects, is echoed and goes, in one way or the other.
void exerciseConnections(unsigned short aPort, Clock::time_point aUntil,
                         std::atomic<int>& aEchoes) {
    for (int lRound = 0; Clock::now() < aUntil; ++lRound) {
        test::TcpPeer lPeer = test::TcpPeer::connect(aPort);
        if (!lPeer.connected()) {
            continue;
        }
        if (lRound % 3 != 0 && lPeer.isEchoed("echo")) {
            ++aEchoes;
        }
        if (lRound % 2 == 0) {
            lPeer.reset();
        }
    }
}

/// Opens and closes a port of its own with a client knocking at it.
void exercisePorts(unsigned short aPort, Clock::time_point aUntil, Connections& aConnections) {
    while (Clock::now() < aUntil) {
        const test::Port lPort(kCountingEcho, &aConnections, aPort);
        const test::TcpPeer lPeer = lPort.connect();
    }
}

bool waitUntilAllAreClosed(const Connections& aConnections) {
    return test::waitUntil([&] {
        return aConnections.opened == aConnections.closed &&
               osxDataHandler::mNrCreated == osxDataHandler::mNrDestroyed;
    });
}

}  // namespace

TEST(Stress, TimersFromManyThreads) {
    const test::RunningReactor lLoop(kLoopThreads);
    const auto lUntil = Clock::now() + kTime;
    std::atomic<std::uint64_t> lCalls{0};
    std::thread lOther([&] { exerciseTimers(1, lUntil, lCalls); });
    exerciseTimers(2, lUntil, lCalls);
    lOther.join();
    EXPECT_GT(lCalls, 0U);
}

TEST(Stress, TimersConnectionsAndPortsTogether) {
    const test::LogCapture lLog;
    Connections lConnections;
    test::Port lStable(kCountingEcho, &lConnections);
    const unsigned short lChanging = test::freePort();
    {
        const test::RunningReactor lLoop(kLoopThreads);
        const auto lUntil = Clock::now() + kTime;
        std::atomic<std::uint64_t> lCalls{0};
        std::atomic<int> lEchoes{0};
        std::vector<std::thread> lThreads;
        lThreads.emplace_back([&] { exerciseTimers(3, lUntil, lCalls); });
        lThreads.emplace_back([&] { exerciseConnections(lStable.number(), lUntil, lEchoes); });
        lThreads.emplace_back([&] { exerciseConnections(lStable.number(), lUntil, lEchoes); });
        lThreads.emplace_back([&] { exercisePorts(lChanging, lUntil, lConnections); });
        for (std::thread& lThread : lThreads) {
            lThread.join();
        }
        EXPECT_EQ(0UL, osxUnregisterPort(lStable.handle()));
        EXPECT_TRUE(waitUntilAllAreClosed(lConnections));
        EXPECT_GT(lCalls, 0U);
        EXPECT_GT(lEchoes, 0);
    }
    EXPECT_EQ(0U, lLog.countContaining("Unable"));
}

TEST(Stress, ThreadsComeAndGoUnderLoad) {
    const auto lUntil = Clock::now() + kTime;
    std::atomic<std::uint64_t> lCalls{0};
    test::RunningReactor::reactor().initReactor();
    std::thread lTimers([&] { exerciseTimers(4, lUntil, lCalls); });
    while (Clock::now() < lUntil) {
        const test::RunningReactor lLoop(kLoopThreads);
        std::this_thread::sleep_for(test::kInterval);
    }
    lTimers.join();
    EXPECT_GT(lCalls, 0U);
}
