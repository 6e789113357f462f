// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "clock/waits.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "ace/SOCK_Stream.h"
#include "base/Descriptor.h"
#include "commif/commif.h"
#include "osx/osx.h"

namespace clocks {

namespace {

using Clock = std::chrono::steady_clock;

long sinceMs(Clock::time_point aStart) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - aStart).count());
}

// --- calls that wait --------------------------------------------------------------------------

void sleep(long aMs) {
    osxSleep(static_cast<unsigned long>(aMs));
}

void receiveFromQueue(long aMs) {
    void* lQueue = nullptr;
    osxMsgQueueInit(100, 0, &lQueue, "empty");
    std::array<char, 8> lBuffer{};
    unsigned long lReceived = 0;
    osxMsgRecv(lQueue, lBuffer.data(), lBuffer.size(), &lReceived, static_cast<unsigned long>(aMs));
    osxMsgQueueDelete(lQueue);
}

/// A listening socket that has all the connections it holds: the next one has to wait.
class FullListener {
public:
    FullListener() : mListener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in lAddress{};
        lAddress.sin_family = AF_INET;
        lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const lPlain = reinterpret_cast<sockaddr*>(&lAddress);
        socklen_t lSize = sizeof lAddress;
        ::bind(mListener.get(), lPlain, lSize);
        ::listen(mListener.get(), 0);
        ::getsockname(mListener.get(), lPlain, &lSize);
        mPort = ntohs(lAddress.sin_port);
        for (osx::Descriptor& lClient : mClients) {
            lClient.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
            ::connect(lClient.get(), lPlain, lSize);
        }
    }
    unsigned short port() const { return mPort; }

private:
    osx::Descriptor mListener;
    std::array<osx::Descriptor, 4> mClients;
    unsigned short mPort = 0;
};

/// The limit is the library's own.
constexpr long kConnectLimitMs = 100;

void connectInVain(unsigned short aPort) {
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, ("127.0.0.1:" + std::to_string(aPort)).c_str()) == 0) {
        osxCloseSocketAndRelease(lSocket);
    }
}

// --- timers -----------------------------------------------------------------------------------

/// Notes when it is called, counted from its making.
class Calls {
public:
    static void note(const void* aSelf) {
        auto* const lSelf = static_cast<Calls*>(const_cast<void*>(aSelf));
        const std::lock_guard<std::mutex> lGuard(lSelf->mMutex);
        lSelf->mTimes.push_back(sinceMs(lSelf->mStart));
        lSelf->mCalled.notify_all();
    }
    void waitFor(std::size_t aNumber) {
        std::unique_lock<std::mutex> lLock(mMutex);
        mCalled.wait(lLock, [&] { return mTimes.size() >= aNumber; });
    }
    std::vector<long> times() {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        return mTimes;
    }

private:
    const Clock::time_point mStart = Clock::now();
    std::mutex mMutex;
    std::condition_variable mCalled;
    std::vector<long> mTimes;
};

void waitForTimer(long aMs) {
    Calls lCalls;
    void* lTimer = osxCreateTimer(Calls::note, &lCalls, aMs, 0);
    lCalls.waitFor(1);
    osxDestroyTimer(lTimer);
}

constexpr long kPeriodMs = 100;
constexpr std::size_t kPeriods = 20;

/// Calls come at multiples of the period: one that comes early would be before its own.
std::vector<Wait> waitForPeriods() {
    Calls lCalls;
    void* lTimer = osxCreateTimer(Calls::note, &lCalls, kPeriodMs, 1);
    lCalls.waitFor(kPeriods);
    osxDestroyTimer(lTimer);
    long lBefore = 0;
    long lLongest = 0;
    long lAhead = 0;
    long lCall = 0;
    for (const long lTime : lCalls.times()) {
        lLongest = std::max(lLongest, lTime - lBefore);
        lAhead = std::max(lAhead, ++lCall * kPeriodMs - lTime);
        lBefore = lTime;
    }
    return {{"periodic timer, its longest period", kPeriodMs, lLongest},
            {"periodic timer, its calls", 0, -lAhead}};
}

// --- all of them --------------------------------------------------------------------------------

/// Threads that wait, and what came of it.
class Waits {
public:
    void begin(const char* aName, long aPlanned, const std::function<void()>& aWait) {
        start([this, aName, aPlanned, aWait] {
            const auto lStart = Clock::now();
            aWait();
            const Wait lWait{aName, aPlanned, sinceMs(lStart)};
            add({lWait});
        });
    }
    void beginPeriods() {
        start([this] { add(waitForPeriods()); });
    }
    /// Returns when each is about to wait, or waits.
    void waitUntilBegun() {
        std::unique_lock<std::mutex> lLock(mMutex);
        mChanged.wait(lLock, [this] { return mBegun == mThreads.size(); });
    }
    std::vector<Wait> end() {
        for (std::thread& lThread : mThreads) {
            lThread.join();
        }
        return mResults;
    }

private:
    void start(const std::function<void()>& aFunction) {
        mThreads.emplace_back([this, aFunction] {
            {
                const std::lock_guard<std::mutex> lGuard(mMutex);
                ++mBegun;
                mChanged.notify_all();
            }
            aFunction();
        });
    }
    void add(const std::vector<Wait>& aWaits) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        mResults.insert(mResults.end(), aWaits.begin(), aWaits.end());
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    std::size_t mBegun = 0;
    std::vector<Wait> mResults;
    std::vector<std::thread> mThreads;
};

}  // namespace

std::vector<Wait> waitAcross(const std::function<void()>& aEvent) {
    constexpr long kShortMs = 700;
    constexpr long kLongMs = 1500;
    const FullListener lListener;
    Waits lWaits;
    for (const long lMs : {kShortMs, kLongMs}) {
        lWaits.begin("one-shot timer", lMs, [lMs] { waitForTimer(lMs); });
        lWaits.begin("receive from a queue", lMs, [lMs] { receiveFromQueue(lMs); });
        lWaits.begin("sleep", lMs, [lMs] { sleep(lMs); });
    }
    lWaits.begin("connect", kConnectLimitMs, [&] { connectInVain(lListener.port()); });
    lWaits.beginPeriods();
    lWaits.waitUntilBegun();
    osxSleep(30);
    aEvent();
    return lWaits.end();
}

}  // namespace clocks
