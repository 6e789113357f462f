// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The first use of everything in a process, with memory failing at each of its allocations. The
// reactor itself has been made: its construction begins only when there is memory for all of it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <ostream>
#include <string>

#include "osx/ActiveObject.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"
#include "support/inChild.h"

namespace {

class Nothing : public ACE_Method_Request {
    int call() override { return 0; }
};

void startLoop() {
    test::RunningReactor::reactor().startReactor();
}

void beginTask() {
    void* lTask = nullptr;
    osxBeginTask([](void*) {}, 0, 0, nullptr, &lTask, "task");
    osxEndOtherTask(lTask);
}

void runRequests() {
    ActiveObject lObject;
    lObject.init();
    auto* const lRequest = new (std::nothrow) Nothing;
    if (lObject.insert(lRequest) == -1) {
        delete lRequest;
    }
    lObject.stop();
}

void makeTimer() {
    void* lTimer = osxCreateTimer([](const void*) {}, nullptr, 1000, 0);
    osxDestroyTimer(lTimer);
}

void makePort() {
    void* lPort = nullptr;
    osxRegisterPort(lPort, 0, nullptr, nullptr, nullptr, nullptr, nullptr);
    if (lPort != nullptr) {
        osxUnregisterPort(lPort);
    }
}

struct Use {
    const char* name;
    void (*function)();
};

void PrintTo(const Use& aUse, std::ostream* aStream) {
    *aStream << aUse.name;
}

class FirstUse : public testing::TestWithParam<Use> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Of, FirstUse,
                         testing::Values(Use{"Loop", &startLoop}, Use{"Task", &beginTask},
                                         Use{"ActiveObject", &runRequests},
                                         Use{"Timer", &makeTimer}, Use{"Port", &makePort}),
                         [](const auto& aInfo) { return std::string(aInfo.param.name); });

TEST_P(FirstUse, SurvivesAnyAllocationThatFails) {
    for (const bool lOnlyOnce : {false, true}) {
        bool lFailed = true;
        for (int lAllowed = 0; lFailed; ++lAllowed) {
            ASSERT_LT(lAllowed, 1000);
            int lPipe[2] = {};
            ASSERT_EQ(0, ::pipe(lPipe));
            EXPECT_TRUE(test::inChild([&]() noexcept {
                test::RunningReactor::reactor();
                const test::FailingAllocator lNoMemory(lAllowed, lOnlyOnce);
                GetParam().function();
                const char lByte = lNoMemory.failures() != 0 ? 'f' : ' ';
                return ::write(lPipe[1], &lByte, 1) == 1;
            })) << lAllowed
                << (lOnlyOnce ? " once" : " and from then on");
            ::close(lPipe[1]);
            char lByte = 'f';
            lFailed = ::read(lPipe[0], &lByte, 1) != 1 || lByte == 'f';
            ::close(lPipe[0]);
        }
    }
}

// Now and then ThreadSanitizer sees a thread of ACE's that ended, while memory was short, unjoined.
#ifndef __SANITIZE_THREAD__
TEST(FirstSteps, OfAThreadWaitForTheMemoryThatTheyNeed) {
    bool lFailed = true;
    for (int lAllowed = 0; lFailed; ++lAllowed) {
        ASSERT_LT(lAllowed, 1000);
        int lPipe[2] = {};
        ASSERT_EQ(0, ::pipe(lPipe));
        EXPECT_TRUE(test::inChild([&]() noexcept {
            const test::FailingForOtherThreads lNoMemory(lAllowed, 20);
            bool lRan = false;
            void* lTask = nullptr;
            osxBeginTask([](void* aRan) { *static_cast<bool*>(aRan) = true; }, 0, 0, &lRan, &lTask,
                         "task");
            osxEndOtherTask(lTask);
            const char lByte = lNoMemory.failures() != 0 ? 'f' : ' ';
            return lRan && ::write(lPipe[1], &lByte, 1) == 1;
        })) << lAllowed;
        ::close(lPipe[1]);
        char lByte = 'f';
        lFailed = ::read(lPipe[0], &lByte, 1) != 1 || lByte == 'f';
        ::close(lPipe[0]);
    }
}
#endif
