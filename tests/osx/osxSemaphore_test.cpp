// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <string>
#include <thread>

#include "ace/Semaphore.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/cancellation.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A semaphore for one test.
class Semaphore {
public:
    explicit Semaphore(int aStartCount, const char* aName = nullptr, int aMaxCount = 10) {
        EXPECT_EQ(OSX_OK, osxCreateSemaphore(aStartCount, aMaxCount, &mHandle, aName));
    }
    ~Semaphore() { EXPECT_EQ(OSX_OK, osxDeleteSemaphore(mHandle)); }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    unsigned int acquire(osxWaitFlag_t aFlag, unsigned long aTimeOutMs) {
        return osxAcquireSemaphore(mHandle, aFlag, aTimeOutMs);
    }
    unsigned int tryAcquire() { return acquire(OSX_WAIT_TIMED, 0); }
    unsigned int release() { return osxReleaseSemaphore(mHandle); }
    void* handle() const { return mHandle; }

private:
    void* mHandle = nullptr;
};

void fillNameTable() {
    static int gSomething = 0;
    while (osxNameTableCount() < OSX_NAME_TABLE_SIZE) {
        osxNameTableRegister(&gSomething, "filler");
    }
}

/// While one lives, SIGUSR1 interrupts what waits.
class InterruptingSignal {
public:
    InterruptingSignal() {
        struct sigaction lAction{};
        lAction.sa_handler = [](int) {};
        sigaction(SIGUSR1, &lAction, &mFormer);
    }
    ~InterruptingSignal() { sigaction(SIGUSR1, &mFormer, nullptr); }
    InterruptingSignal(const InterruptingSignal&) = delete;
    InterruptingSignal& operator=(const InterruptingSignal&) = delete;

private:
    struct sigaction mFormer{};
};

}  // namespace

TEST(Semaphore, GivesItsStartCountAndWhatIsReleased) {
    Semaphore lSemaphore(2);
    EXPECT_EQ(OSX_OK, lSemaphore.tryAcquire());
    EXPECT_EQ(OSX_OK, lSemaphore.acquire(OSX_WAIT_INFINITE, 0));
    EXPECT_EQ(OSX_ERR_TIMEOUT, lSemaphore.tryAcquire());
    EXPECT_EQ(OSX_OK, lSemaphore.release());
    EXPECT_EQ(OSX_OK, lSemaphore.tryAcquire());
}

TEST(Semaphore, HandleIsAnAceSemaphore) {
    Semaphore lSemaphore(0);
    static_cast<ACE_Semaphore*>(lSemaphore.handle())->release();
    EXPECT_EQ(OSX_OK, lSemaphore.tryAcquire());
}

TEST(Semaphore, AWaitThatASignalInterruptsHasACodeOfItsOwn) {
    const InterruptingSignal lSignal;
    Semaphore lSemaphore(0);
    std::atomic<bool> lDone{false};
    unsigned int lResult = 0;
    std::thread lWaiter([&] {
        lResult = lSemaphore.acquire(OSX_WAIT_INFINITE, 0);
        lDone = true;
    });
    while (!lDone) {
        pthread_kill(lWaiter.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    lWaiter.join();
    EXPECT_EQ(OSX_ERR_SEM_ACQUIRE, lResult);
}

TEST(Semaphore, MayBeReleasedPastItsMaximum) {
    Semaphore lSemaphore(1, nullptr, 1);
    EXPECT_EQ(OSX_OK, lSemaphore.release());
    EXPECT_EQ(OSX_OK, lSemaphore.release());
    for (int lCount = 0; lCount < 3; ++lCount) {
        EXPECT_EQ(OSX_OK, lSemaphore.tryAcquire());
    }
    EXPECT_EQ(OSX_ERR_TIMEOUT, lSemaphore.tryAcquire());
}

TEST(Semaphore, ReleaseIgnoresAnOverflow) {
    Semaphore lSemaphore(SEM_VALUE_MAX);
    EXPECT_EQ(OSX_OK, lSemaphore.release());
    EXPECT_EQ(OSX_OK, lSemaphore.tryAcquire());
}

TEST(Semaphore, IsInTheNameTableWhileItLivesIfItHasAName) {
    {
        const Semaphore lUnnamed(0);
        const Semaphore lEmpty(0, "");
        EXPECT_EQ(0, osxNameTableCount());
        const Semaphore lNamed(0, "S1");
        EXPECT_STREQ("S1", osxNameTableGetName(lNamed.handle()));
        EXPECT_EQ(1, osxNameTableCount());
    }
    EXPECT_EQ(0, osxNameTableCount());
}

TEST(Semaphore, HasNothingInCommonWithAnotherOfItsName) {
    Semaphore lFirst(0, "/S1");
    Semaphore lSecond(1, "/S1");
    EXPECT_EQ(OSX_ERR_TIMEOUT, lFirst.tryAcquire());
    EXPECT_EQ(OSX_OK, lSecond.tryAcquire());
    lSecond.release();
    EXPECT_EQ(OSX_ERR_TIMEOUT, lFirst.tryAcquire());
    EXPECT_EQ(SEM_FAILED, sem_open("/S1", 0)) << "the system knows the name";
}

TEST(Semaphore, TakesAnyName) {
    const std::string lLong(10000, 'x');
    for (const char* const lName : {"a/b/c", "/", "%s%n", lLong.c_str()}) {
        const test::LogCapture lLog;
        Semaphore lSemaphore(1, lName);
        EXPECT_EQ(OSX_OK, lSemaphore.tryAcquire());
        EXPECT_EQ(std::string(lName).substr(0, 63), osxNameTableGetName(lSemaphore.handle()));
        EXPECT_THAT(lLog.lines(), IsEmpty());
    }
}

TEST(Semaphore, TracesItsNameFromLevelOne) {
    const test::LogCapture lLog;
    {
        const test::TraceLevel lTrace(1, false);
        const Semaphore lSemaphore(0, "S1");
    }
    EXPECT_THAT(lLog.lines(), IsEmpty());
    const test::TraceLevel lTrace(1);
    const Semaphore lNamed(0, "S1");
    const Semaphore lUnnamed(0);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t Semaphore name set to S1\n"));
    EXPECT_EQ(LM_DEBUG, lLog.lines()[0].priority);
    EXPECT_EQ(0, lLog.lines()[0].status);
}

TEST(Semaphore, WorksThoughTheNameTableIsFull) {
    fillNameTable();
    const test::LogCapture lLog;
    Semaphore lQuiet(1, "quiet");
    EXPECT_EQ(0U, lLog.countContaining("We could not set"));
    const test::TraceLevel lTrace(1);
    Semaphore lSemaphore(1, "S1");
    EXPECT_EQ(1U, lLog.count("%t We could not set the semaphore name\n"));
    EXPECT_EQ(0, lLog.lines().back().status);
    EXPECT_EQ(OSX_OK, lSemaphore.tryAcquire());
}

TEST(Semaphore, IsMadeByAThreadThatIsCancelledThoughTheNameTableIsFull) {
    fillNameTable();
    const test::CancellingLog lLog;
    void* lSemaphore = nullptr;
    EXPECT_TRUE(test::outlastsItsCancellation(
        [&] { EXPECT_EQ(OSX_OK, osxCreateSemaphore(1, 10, &lSemaphore, "S1")); }));
    osxDeleteSemaphore(lSemaphore);
}

TEST(Semaphore, CreateFailsWithALineWithoutMemory) {
    const test::LogCapture lLog;
    void* lHandle = nullptr;
    for (const char* const lName : {"S1", "", static_cast<const char*>(nullptr)}) {
        errno = 0;
        const test::FailingAllocator lFailing(0, true);
        EXPECT_EQ(OSX_ERR_SEMAPHORE, osxCreateSemaphore(2, 5, &lHandle, lName));
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ(nullptr, lHandle);
    EXPECT_EQ(0, osxNameTableCount());
    EXPECT_THAT(
        lLog.texts(),
        ElementsAre("%t osxCreateSemaphore: lSem == 0 iStartCount[2] iMaxCount[5] name[S1]\n",
                    "%t osxCreateSemaphore: lSem == 0 iStartCount[2] iMaxCount[5] name[-]\n",
                    "%t osxCreateSemaphore: lSem == 0 iStartCount[2] iMaxCount[5] name[-]\n"));
    for (const test::LogLine& lLine : lLog.lines()) {
        EXPECT_EQ(LM_DEBUG, lLine.priority);
        EXPECT_EQ(-1, lLine.status);
        EXPECT_EQ(ENOMEM, lLine.errnum);
        EXPECT_EQ("osxACE.cpp", lLine.module);
    }
}

TEST(Semaphore, CreateFailsWhenOnlyItsInsideFindsNoMemory) {
    const test::LogCapture lLog;
    void* lHandle = nullptr;
    errno = 0;
    {
        const test::FailingAllocator lFailing(1, true);
        EXPECT_EQ(OSX_ERR_SEMAPHORE, osxCreateSemaphore(2, 5, &lHandle, "S1"));
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ(nullptr, lHandle);
    EXPECT_EQ(0, osxNameTableCount());
}

TEST(Semaphore, CreateFailsForWantOfMemoryWhateverTheStartCount) {
    const test::LogCapture lLog;
    void* lHandle = nullptr;
    for (const int lCount : {-1, INT_MIN, 0, INT_MAX}) {
        for (const int lAllowed : {0, 1}) {
            errno = 0;
            const test::FailingAllocator lFailing(lAllowed, true);
            EXPECT_EQ(OSX_ERR_SEMAPHORE, osxCreateSemaphore(lCount, 5, &lHandle, nullptr));
            EXPECT_EQ(ENOMEM, errno);
        }
    }
    EXPECT_EQ(nullptr, lHandle);
    for (const test::LogLine& lLine : lLog.lines()) {
        EXPECT_EQ(ENOMEM, lLine.errnum) << lLine.text;
    }
}

TEST(Semaphore, CreateRefusesANegativeStartCount) {
    const test::LogCapture lLog;
    void* lHandle = nullptr;
    for (const int lCount : {-1, INT_MIN}) {
        EXPECT_EQ(OSX_ERR_SEMAPHORE, osxCreateSemaphore(lCount, 5, &lHandle, "S1"));
        EXPECT_EQ(EINVAL, errno);
    }
    EXPECT_EQ(nullptr, lHandle);
    EXPECT_EQ(2U, lLog.countContaining("osxCreateSemaphore: lSem == 0"));
}

TEST(Semaphore, NullGivesACodeAndNoLine) {
    const test::LogCapture lLog;
    EXPECT_EQ(OSX_ERR_SEMAPHORE, osxAcquireSemaphore(nullptr, OSX_WAIT_INFINITE, 0));
    EXPECT_EQ(OSX_ERR_SEMAPHORE, osxReleaseSemaphore(nullptr));
    EXPECT_EQ(OSX_OK, osxDeleteSemaphore(nullptr));
    EXPECT_THAT(lLog.lines(), IsEmpty());
}
