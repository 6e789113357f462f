// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ace/OS_NS_netdb.h"
#include "types/ObjectID.h"

namespace {

constexpr time_t kSomeDay = 1700000000;
constexpr time_t kHour = 3600;
constexpr int kProcesses = 8;

time_t gFrozenAt = 0;
bool gHasInterfaces = true;

using Node = std::array<unsigned char, 6>;

}  // namespace

// The program's own, which the library calls in place of the system's. The clock can be stopped, so
// that identifiers differ by what else is in them.
extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval* aTime,
                                                                   void* aZone) noexcept {
    if (gFrozenAt != 0) {
        *aTime = {gFrozenAt, 0};
        return 0;
    }
    using GetTime = int (*)(timeval*, void*);
    static const auto lReal = reinterpret_cast<GetTime>(dlsym(RTLD_NEXT, "gettimeofday"));
    return lReal(aTime, aZone);
}

extern "C" __attribute__((visibility("default"))) int getifaddrs(ifaddrs** aList) noexcept {
    if (!gHasInterfaces) {
        errno = ENODEV;
        return -1;
    }
    using GetInterfaces = int (*)(ifaddrs**);
    static const auto lReal = reinterpret_cast<GetInterfaces>(dlsym(RTLD_NEXT, "getifaddrs"));
    return lReal(aList);
}

namespace {

ObjectID generated() {
    ObjectID lID;
    lID.generateObjectID();
    return lID;
}

ObjectID generatedAt(time_t aTime) {
    gFrozenAt = aTime;
    const ObjectID lID = generated();
    gFrozenAt = 0;
    return lID;
}

/// @return what a forked process generates.
ObjectID generatedByAnother() {
    int lPipe[2];
    EXPECT_EQ(0, pipe(lPipe));
    const pid_t lChild = fork();
    if (lChild == 0) {
        const ObjectID lID = generated();
        _exit(write(lPipe[1], lID.getData(), 16) == 16 ? 0 : 1);
    }
    unsigned char lBytes[16] = {};
    EXPECT_EQ(16, read(lPipe[0], lBytes, sizeof lBytes));
    int lStatus = -1;
    EXPECT_EQ(lChild, waitpid(lChild, &lStatus, 0));
    EXPECT_EQ(0, lStatus);
    close(lPipe[0]);
    close(lPipe[1]);
    ObjectID lID;
    lID.setData(lBytes, 16);
    return lID;
}

std::string text(const ObjectID& aID) {
    return aID.toString().c_str();
}

Node node(const ObjectID& aID) {
    Node lNode;
    for (std::size_t lByte = 0; lByte < lNode.size(); ++lByte) {
        lNode[lByte] = static_cast<unsigned char>(
            std::stoul(text(aID).substr(24 + 2 * lByte, 2), nullptr, 16));
    }
    return lNode;
}

bool isGroupAddress(const Node& aNode) {
    return (aNode[0] & 1) != 0;
}

}  // namespace

TEST(UuidSource, TimeIsThatOfTheClock) {
    // 100 ns since 15 October 1582.
    const unsigned long long lTicks = 0x1B21DD213814000ULL + kSomeDay * 10000000ULL;
    char lExpected[20];
    std::snprintf(lExpected, sizeof lExpected, "%08llx-%04llx-1%03llx", lTicks & 0xFFFFFFFF,
                  lTicks >> 32 & 0xFFFF, lTicks >> 48);
    EXPECT_EQ(lExpected, text(generatedAt(kSomeDay)).substr(0, 18));
}

TEST(UuidSource, NodeIsTheCardsAddressIfThereIsACard) {
    const Node lNode = node(generated());
    ACE_OS::macaddr_node_t lCard = {};
    if (ACE_OS::getmacaddress(&lCard) == 0) {
        EXPECT_TRUE(std::equal(lNode.begin(), lNode.end(), std::begin(lCard.node)));
    } else {
        EXPECT_TRUE(isGroupAddress(lNode));
    }
}

TEST(UuidSource, IdentifiersOfOneMicrosecondDiffer) {
    gFrozenAt = kSomeDay;
    std::set<std::string> lTexts;
    for (int lCount = 0; lCount < 1000; ++lCount) {
        lTexts.insert(text(generated()));
    }
    gFrozenAt = 0;
    EXPECT_EQ(1000U, lTexts.size());
}

TEST(UuidSource, ClockThatIsSetBackRepeatsNothing) {
    std::set<std::string> lTexts;
    for (int lRound = 0; lRound < 20; ++lRound) {
        lTexts.insert(text(generatedAt(kSomeDay)));
        lTexts.insert(text(generatedAt(kSomeDay + 1)));
        lTexts.insert(text(generatedAt(kSomeDay + kHour)));
    }
    EXPECT_EQ(60U, lTexts.size());
}

TEST(UuidSource, ProcessesOfOneMicrosecondDiffer) {
    gFrozenAt = kSomeDay;
    generated();
    std::set<std::string> lTexts;
    for (int lProcess = 0; lProcess < kProcesses; ++lProcess) {
        lTexts.insert(text(generatedByAnother()));
    }
    gFrozenAt = 0;
    // Each draws one number of 14 bits. That two draw the same may happen, that all do cannot.
    EXPECT_GT(lTexts.size(), 1U);
}

TEST(UuidSource, DevicesWithoutACardHaveRandomNodes) {
    gHasInterfaces = false;
    std::set<Node> lNodes;
    for (int lDevice = 0; lDevice < kProcesses; ++lDevice) {
        const ObjectID lID = generatedByAnother();
        EXPECT_EQ('1', text(lID)[14]);
        EXPECT_TRUE(isGroupAddress(node(lID)));
        lNodes.insert(node(lID));
    }
    gHasInterfaces = true;
    EXPECT_GT(lNodes.size(), 1U);
}

TEST(UuidSource, ChildForkedWhileOthersGenerateGeneratesToo) {
    constexpr int kForks = 50;
    constexpr unsigned int kHangsAfterSeconds = 60;
    std::atomic<bool> lDone{false};
    std::atomic<int> lGenerating{0};
    std::vector<std::thread> lThreads;
    for (int lThread = 0; lThread < 2; ++lThread) {
        lThreads.emplace_back([&] {
            generated();
            for (++lGenerating; !lDone;) {
                generated();
            }
        });
    }
    while (lGenerating < 2) {
        std::this_thread::yield();
    }
    bool lWorks = true;
    for (int lFork = 0; lWorks && lFork < kForks; ++lFork) {
        const pid_t lChild = fork();
        if (lChild == 0) {
            alarm(kHangsAfterSeconds);
            _exit(generated().isEmpty() ? 1 : 0);
        }
        int lStatus = -1;
        lWorks = waitpid(lChild, &lStatus, 0) == lChild && lStatus == 0;
        EXPECT_EQ(0, lStatus) << "of fork " << lFork;
    }
    lDone = true;
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
}
