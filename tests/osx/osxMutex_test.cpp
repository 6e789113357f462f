// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <future>

#include "ace/Thread_Mutex.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/logMatchers.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A mutex for one test.
class Mutex {
public:
    explicit Mutex(const char* aName = nullptr) {
        EXPECT_EQ(OSX_OK, osxCreateMutex(&mHandle, aName));
    }
    ~Mutex() { EXPECT_EQ(OSX_OK, osxDeleteMutex(mHandle)); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    unsigned int acquire(osxWaitFlag_t aFlag = OSX_WAIT_INFINITE, unsigned long aTimeOutMs = 0) {
        return osxAcquireMutex(mHandle, aFlag, aTimeOutMs);
    }
    unsigned int release() { return osxReleaseMutex(mHandle); }

private:
    void* mHandle = nullptr;
};

unsigned int acquireElsewhere(Mutex& aMutex, osxWaitFlag_t aFlag, unsigned long aTimeOutMs) {
    return std::async(std::launch::async,
                      [&] {
                          const unsigned int lResult = aMutex.acquire(aFlag, aTimeOutMs);
                          if (lResult == OSX_OK) {
                              aMutex.release();
                          }
                          return lResult;
                      })
        .get();
}

}  // namespace

TEST(Mutex, IsFreeAtFirstAndAfterARelease) {
    Mutex lMutex("M1");
    EXPECT_EQ(OSX_OK, lMutex.acquire());
    EXPECT_EQ(OSX_OK, lMutex.release());
    EXPECT_EQ(OSX_OK, acquireElsewhere(lMutex, OSX_WAIT_TIMED, 0));
}

TEST(Mutex, IsNotEnteredInTheNameTable) {
    const Mutex lMutex("M1");
    EXPECT_EQ(0, osxNameTableCount());
}

TEST(Mutex, HandleIsAnAceMutex) {
    void* lHandle = nullptr;
    osxCreateMutex(&lHandle, "M1");
    auto* const lMutex = static_cast<ACE_Thread_Mutex*>(lHandle);
    EXPECT_EQ(0, lMutex->tryacquire());
    EXPECT_EQ(OSX_ERR_TIMEOUT, osxAcquireMutex(lHandle, OSX_WAIT_TIMED, 1));
    lMutex->release();
    osxDeleteMutex(lHandle);
}

TEST(Mutex, TimedAcquireByItsHolderFails) {
    Mutex lMutex;
    ASSERT_EQ(OSX_OK, lMutex.acquire());
    EXPECT_EQ(OSX_ERR_TIMEOUT, lMutex.acquire(OSX_WAIT_TIMED, 500));
    EXPECT_EQ(OSX_OK, lMutex.release());
}

TEST(Mutex, AnyFlagButZeroIsTimed) {
    Mutex lMutex;
    ASSERT_EQ(OSX_OK, lMutex.acquire());
    const int lOther = 3;
    EXPECT_EQ(OSX_ERR_TIMEOUT, lMutex.acquire(static_cast<osxWaitFlag_t>(lOther), 500));
    lMutex.release();
}

TEST(Mutex, OtherFailuresHaveACodeOfTheirOwn) {
    pthread_mutexattr_t lAttributes;
    pthread_mutexattr_init(&lAttributes);
    pthread_mutexattr_settype(&lAttributes, PTHREAD_MUTEX_ERRORCHECK);
    {
        ACE_Thread_Mutex lMutex(nullptr, &lAttributes);
        EXPECT_EQ(OSX_OK, osxAcquireMutex(&lMutex, OSX_WAIT_INFINITE, 0));
        EXPECT_EQ(OSX_ERR_MUTEX_ACQUIRE, osxAcquireMutex(&lMutex, OSX_WAIT_INFINITE, 0));
        EXPECT_EQ(OSX_OK, osxReleaseMutex(&lMutex));
        EXPECT_EQ(OSX_OK, osxReleaseMutex(&lMutex)) << "the result of unlocking does not matter";
    }
    pthread_mutexattr_destroy(&lAttributes);
}

TEST(Mutex, CreateFailsSilentlyWithoutMemory) {
    const test::LogCapture lLog;
    void* lHandle = nullptr;
    errno = 0;
    {
        const test::FailingAllocator lFailing;
        EXPECT_EQ(OSX_ERR_CREATE_FAILED, osxCreateMutex(&lHandle, "M1"));
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ(nullptr, lHandle);
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(Mutex, NullGivesACodeAndALine) {
    const test::LogCapture lLog;
    EXPECT_EQ(OSX_ERR_MUTEX_INVALID, osxAcquireMutex(nullptr, OSX_WAIT_INFINITE, 0));
    EXPECT_EQ(OSX_ERR_MUTEX_INVALID, osxReleaseMutex(nullptr));
    EXPECT_EQ(OSX_OK, osxDeleteMutex(nullptr));
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxAcquireMutex: lMutex == 0 \n",
                                          "%t osxReleaseMutex: lMutex == 0 \n",
                                          "%t osxDeleteMutex: lMutex == 0 \n"));
    EXPECT_THAT(lLog.lines(), testing::Each(test::IsLineOf(LM_DEBUG, -1, "osxACE.cpp")));
}
