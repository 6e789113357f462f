// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The library's locks: what the standard library's do not promise by themselves.
#include "base/Mutex.h"

#include <pthread.h>

#include <chrono>
#include <thread>

#include "gtest/gtest.h"

namespace {

using namespace std::chrono_literals;
using osx::Condition;
using osx::Mutex;
using osx::MutexLock;
using osx::ReleasableMutexLock;

bool isFree(Mutex& aMutex) {
    bool lIsFree = false;
    std::thread([&] {
        if (aMutex.tryLock()) {
            lIsFree = true;
            aMutex.unlock();
        }
    }).join();
    return lIsFree;
}

struct Waiting {
    Mutex mutex;
    Condition begun;
    Condition never;
    bool waits OSX_GUARDED_BY(mutex) = false;
};

void* waitForEver(void* aWaiting) {
    auto& lWaiting = *static_cast<Waiting*>(aWaiting);
    const MutexLock lLock(lWaiting.mutex);
    lWaiting.waits = true;
    lWaiting.begun.wakeOne();
    for (;;) {
        lWaiting.never.wait(lWaiting.mutex);
    }
}

}  // namespace

TEST(MutexLock, HoldsTheMutexAsLongAsItLives) {
    Mutex lMutex;
    {
        const MutexLock lLock(lMutex);
        EXPECT_FALSE(isFree(lMutex));
    }
    EXPECT_TRUE(isFree(lMutex));
}

TEST(ReleasableMutexLock, IsFreeInBetweenAndAfterwards) {
    Mutex lMutex;
    {
        ReleasableMutexLock lLock(lMutex);
        EXPECT_FALSE(isFree(lMutex));
        lLock.unlock();
        EXPECT_TRUE(isFree(lMutex));
        lLock.lock();
        EXPECT_FALSE(isFree(lMutex));
        lLock.unlock();
    }
    EXPECT_TRUE(isFree(lMutex));
}

TEST(Condition, TellsThatTheTimeHasPassedWithTheMutexHeld) {
    Mutex lMutex;
    Condition lCondition;
    const MutexLock lLock(lMutex);
    while (lCondition.waitFor(lMutex, 1ms)) {
    }
    EXPECT_FALSE(isFree(lMutex));
}

/// The lock is taken again before the thread is unwound, and must be given back once.
TEST(Condition, LeavesTheMutexFreeWhenAWaitingThreadIsCancelled) {
    Waiting lWaiting;
    pthread_t lThread{};
    ASSERT_EQ(0, ::pthread_create(&lThread, nullptr, waitForEver, &lWaiting));
    {
        const MutexLock lLock(lWaiting.mutex);
        while (!lWaiting.waits) {
            lWaiting.begun.wait(lWaiting.mutex);
        }
    }
    ASSERT_EQ(0, ::pthread_cancel(lThread));
    void* lResult = nullptr;
    ASSERT_EQ(0, ::pthread_join(lThread, &lResult));
    EXPECT_EQ(PTHREAD_CANCELED, lResult);
    EXPECT_TRUE(isFree(lWaiting.mutex));
}
