// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What the wait flag and the time-out of an acquire mean, which is the same for mutexes and
// semaphores: a wait has no limit, or is none at all.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <ostream>
#include <string>
#include <tuple>

#include "osx/osx.h"
#include "support/times.h"

namespace {

/// A kind of lock, which is free when it is made.
struct Kind {
    const char* name;
    unsigned int (*create)(void**);
    unsigned int (*acquire)(void*, osxWaitFlag_t, unsigned long);
    unsigned int (*release)(void*);
    unsigned int (*destroy)(void*);
};

unsigned int createMutex(void** aHandle) {
    return osxCreateMutex(aHandle, nullptr);
}
unsigned int createSemaphore(void** aHandle) {
    return osxCreateSemaphore(1, 1, aHandle, nullptr);
}

const Kind kMutex{"Mutex", &createMutex, &osxAcquireMutex, &osxReleaseMutex, &osxDeleteMutex};
const Kind kSemaphore{"Semaphore", &createSemaphore, &osxAcquireSemaphore, &osxReleaseSemaphore,
                      &osxDeleteSemaphore};

struct Wait {
    const char* name;
    osxWaitFlag_t flag;
    unsigned long timeOutMs;
};

const Wait kLimited[] = {
    {"ForNothing", OSX_WAIT_TIMED, 0},
    {"ForAMillisecond", OSX_WAIT_TIMED, 1},
    {"ForHalfASecond", OSX_WAIT_TIMED, 500},
    {"ForAnHour", OSX_WAIT_TIMED, 3600000},
    {"ForTheLongest", OSX_WAIT_TIMED, 0xFFFFFFFEUL},
};
const Wait kUnlimited[] = {
    {"Infinite", OSX_WAIT_INFINITE, 0},
    {"InfiniteWhateverItsTimeOut", OSX_WAIT_INFINITE, 1},
    {"TimedWithoutLimit", OSX_WAIT_TIMED, OSX_INFINITE_TIMEOUT},
    {"TimedWithAllBits", OSX_WAIT_TIMED, ~0UL},
};

std::ostream& operator<<(std::ostream& aStream, const Kind& aKind) {
    return aStream << aKind.name;
}
std::ostream& operator<<(std::ostream& aStream, const Wait& aWait) {
    return aStream << aWait.name;
}

struct Outcome {
    unsigned int code;
    int error;
};

/// A lock, and a wait for it.
class LockWait : public testing::TestWithParam<std::tuple<Kind, Wait>> {
protected:
    void SetUp() override { ASSERT_EQ(OSX_OK, kind().create(&mLock)); }
    void TearDown() override { EXPECT_EQ(OSX_OK, kind().destroy(mLock)); }

    void take() { ASSERT_EQ(OSX_OK, kind().acquire(mLock, OSX_WAIT_INFINITE, 0)); }
    void release() { EXPECT_EQ(OSX_OK, kind().release(mLock)); }
    /// Acquires as the case says, on a thread of its own, and releases again.
    std::future<Outcome> acquireElsewhere() {
        return std::async(std::launch::async, [this] {
            const Wait& lWait = std::get<1>(GetParam());
            const Outcome lOutcome{kind().acquire(mLock, lWait.flag, lWait.timeOutMs), errno};
            if (lOutcome.code == OSX_OK) {
                release();
            }
            return lOutcome;
        });
    }

private:
    static const Kind& kind() { return std::get<0>(GetParam()); }

    void* mLock = nullptr;
};
using LimitedLockWait = LockWait;
using UnlimitedLockWait = LockWait;

std::string nameOf(const testing::TestParamInfo<LockWait::ParamType>& aCase) {
    return std::string(std::get<0>(aCase.param).name) + std::get<1>(aCase.param).name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Each, LimitedLockWait,
                         testing::Combine(testing::Values(kMutex, kSemaphore),
                                          testing::ValuesIn(kLimited)),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Each, UnlimitedLockWait,
                         testing::Combine(testing::Values(kMutex, kSemaphore),
                                          testing::ValuesIn(kUnlimited)),
                         nameOf);

TEST_P(LimitedLockWait, TakesAFreeOne) {
    EXPECT_EQ(OSX_OK, acquireElsewhere().get().code);
}

TEST_P(LimitedLockWait, FailsAtOnceOnATakenOne) {
    take();
    const auto lStart = std::chrono::steady_clock::now();
    const Outcome lOutcome = acquireElsewhere().get();
    EXPECT_EQ(OSX_ERR_TIMEOUT, lOutcome.code);
    EXPECT_EQ(ETIME, lOutcome.error);
    EXPECT_LT(test::elapsedSince(lStart), test::kSlack);
    release();
}

TEST_P(UnlimitedLockWait, TakesAFreeOne) {
    EXPECT_EQ(OSX_OK, acquireElsewhere().get().code);
}

TEST_P(UnlimitedLockWait, LastsUntilATakenOneIsReleased) {
    take();
    auto lWaiter = acquireElsewhere();
    EXPECT_TRUE(test::isStillWaiting(lWaiter));
    release();
    EXPECT_EQ(OSX_OK, lWaiter.get().code);
}
