// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Waiting for threads to leave what they were doing.

#include "process/otherThreads.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "support/waitUntil.h"

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

namespace {

/// A thread that never sleeps.
class BusyThread {
public:
    BusyThread()
        : mThread([this] {
              while (!mStopping) {
              }
          }) {}
    ~BusyThread() {
        mStopping = true;
        mThread.join();
    }
    BusyThread(const BusyThread&) = delete;
    BusyThread& operator=(const BusyThread&) = delete;

    nanoseconds processorTime() {
        clockid_t lClock{};
        ::pthread_getcpuclockid(mThread.native_handle(), &lClock);
        timespec lTime{};
        ::clock_gettime(lClock, &lTime);
        return std::chrono::seconds(lTime.tv_sec) + nanoseconds(lTime.tv_nsec);
    }

private:
    std::atomic<bool> mStopping{false};
    std::thread mThread;
};

}  // namespace

TEST(OtherThreads, AreCounted) {
#ifndef __SANITIZE_THREAD__  // Which has a thread of its own.
    EXPECT_EQ(0, osx::process::otherThreads());
#endif
    const BusyThread lBusy;
    EXPECT_LE(1, osx::process::otherThreads());
}

TEST(OtherThreads, SettleOnceEachHasHadTheProcessor) {
    std::vector<BusyThread> lThreads(6);
    std::vector<nanoseconds> lBefore;
    for (BusyThread& lThread : lThreads) {
        lBefore.push_back(lThread.processorTime());
    }
    // More than once: the machine may be busy with something else.
    EXPECT_TRUE(test::waitUntil(osx::process::settleOtherThreads));
    for (std::size_t lThread = 0; lThread < lThreads.size(); ++lThread) {
        EXPECT_LE(milliseconds(10), lThreads[lThread].processorTime() - lBefore[lThread]);
    }
}

TEST(OtherThreads, SettleAtOnceIfTheySleep) {
    std::promise<void> lAwake;
    std::thread lSleeper([lEnd = lAwake.get_future()]() mutable { lEnd.wait(); });
    // More than once: the machine may be busy with something else.
    EXPECT_TRUE(test::waitUntil(osx::process::settleOtherThreads));
    lAwake.set_value();
    lSleeper.join();
}

TEST(OtherThreads, SettleIfTheySleepOftenAndComputeLittle) {
    std::atomic<bool> lStopping{false};
    std::thread lPolling([&lStopping] {
        while (!lStopping) {
            std::this_thread::sleep_for(milliseconds(3));
        }
    });
    // Few times only: now and then such a thread happens to be still at two looks.
    EXPECT_TRUE(test::waitUntil(osx::process::settleOtherThreads, std::chrono::seconds(4)));
    lStopping = true;
    lPolling.join();
}

TEST(OtherThreads, AreNotWaitedForIfTheyCannotBeSeen) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the checker of objects' types, which comes with it, needs a descriptor itself";
#endif
    const rlimit lNoDescriptors{0, 0};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &lNoDescriptors));
    const BusyThread lBusy;
    EXPECT_EQ(osx::process::kUnseen, osx::process::otherThreads());
    EXPECT_FALSE(osx::process::settleOtherThreads());
}
