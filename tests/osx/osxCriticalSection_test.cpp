// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

#include "ace/Recursive_Thread_Mutex.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/logMatchers.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

bool isFreeElsewhere(const osxCriticalSection_t& aSection) {
    return std::async(std::launch::async,
                      [&aSection] {
                          if (aSection.mMutex->tryacquire() != 0) {
                              return false;
                          }
                          aSection.mMutex->release();
                          return true;
                      })
        .get();
}

}  // namespace

TEST(CriticalSection, IsLeftAsOftenAsItWasEntered) {
    osxCriticalSection_t lSection;
    ASSERT_EQ(OSX_OK, osxInitializeCriticalSection(&lSection));
    osxEnterCriticalSection(&lSection);
    osxEnterCriticalSection(&lSection);
    EXPECT_FALSE(isFreeElsewhere(lSection));
    osxLeaveCriticalSection(&lSection);
    EXPECT_FALSE(isFreeElsewhere(lSection));
    osxLeaveCriticalSection(&lSection);
    EXPECT_TRUE(isFreeElsewhere(lSection));
    osxDeleteCriticalSection(&lSection);
}

TEST(CriticalSection, KeepsOtherThreadsOut) {
    osxCriticalSection_t lSection;
    osxInitializeCriticalSection(&lSection);
    int lCounter = 0;
    std::vector<std::thread> lThreads;
    for (int lThread = 0; lThread < 4; ++lThread) {
        lThreads.emplace_back([&] {
            for (int lCount = 0; lCount < 1000; ++lCount) {
                osxEnterCriticalSection(&lSection);
                ++lCounter;
                osxLeaveCriticalSection(&lSection);
            }
        });
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    EXPECT_EQ(4000, lCounter);
    osxDeleteCriticalSection(&lSection);
}

TEST(CriticalSection, KeepsItsPointerWhenDeleted) {
    osxCriticalSection_t lSection;
    osxInitializeCriticalSection(&lSection);
    const void* const lMutex = lSection.mMutex;
    osxDeleteCriticalSection(&lSection);
    EXPECT_EQ(lMutex, lSection.mMutex);
}

TEST(CriticalSection, InitializeFailsSilentlyWithoutMemory) {
    const test::LogCapture lLog;
    osxCriticalSection_t lSection;
    errno = 0;
    {
        const test::FailingAllocator lFailing;
        EXPECT_EQ(OSX_ERR_CREATE_FAILED, osxInitializeCriticalSection(&lSection));
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ(nullptr, lSection.mMutex);
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(CriticalSection, NotInitializedWritesALineAndDoesNothing) {
    const test::LogCapture lLog;
    osxCriticalSection_t lSection;
    osxEnterCriticalSection(&lSection);
    osxLeaveCriticalSection(&lSection);
    osxDeleteCriticalSection(&lSection);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxEnterCriticalSection: lMutex == 0  \n",
                                          "%t osxLeaveCriticalSection: lMutex == 0  \n",
                                          "%t osxDeleteCriticalSection: lMutex == 0  \n"));
    EXPECT_THAT(lLog.lines(), testing::Each(test::IsLineOf(LM_DEBUG, -1, "osxACE.cpp")));
}
