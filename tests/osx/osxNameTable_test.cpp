// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "osx/osx.h"
#include "support/InstalledBackend.h"
#include "support/LogCapture.h"
#include "support/logMatchers.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kNotFound[] = "name not found";

void* handle(std::uintptr_t aNumber) {
    return reinterpret_cast<void*>(aNumber);
}

void fillTable() {
    for (std::uintptr_t lNumber = 1; lNumber <= OSX_NAME_TABLE_SIZE; ++lNumber) {
        ASSERT_TRUE(osxNameTableRegister(handle(lNumber), "name"));
    }
}

std::string nameOfLength(std::size_t aLength) {
    std::string lName(aLength, 'n');
    for (std::size_t lIndex = 0; lIndex < aLength; ++lIndex) {
        lName[lIndex] = static_cast<char>('a' + lIndex % 26);
    }
    return lName;
}

/// What the table promises, in the plainest way: the first free entry is filled, then all are
/// sorted, and those of the same name keep their order.
class Model {
public:
    bool add(void* aHandle, const char* aName) {
        NameTableEntry* const lFree = find(nullptr);
        if (lFree == nullptr) {
            return false;
        }
        lFree->handle = aHandle;
        std::strncpy(lFree->name, aName, OSX_NAME_LEN - 1);
        std::stable_sort(
            mEntries.begin(), mEntries.end(),
            [](const auto& aLeft, const auto& aRight) { return cmp_names(&aLeft, &aRight) < 0; });
        return true;
    }
    bool remove(void* aHandle) {
        NameTableEntry* const lEntry = find(aHandle);
        if (lEntry == nullptr) {
            return false;
        }
        *lEntry = {};
        return true;
    }
    std::vector<std::string> list() const {
        std::vector<std::string> lLines;
        for (std::size_t lIndex = 0; lIndex < mEntries.size(); ++lIndex) {
            if (mEntries[lIndex].handle != nullptr) {
                std::ostringstream lLine;
                lLine << "name = " << mEntries[lIndex].name << ", handle = " << std::hex
                      << reinterpret_cast<std::uintptr_t>(mEntries[lIndex].handle)
                      << ", index = " << std::dec << lIndex << ".\n";
                lLines.push_back(lLine.str());
            }
        }
        lLines.push_back("Total number of objects registered: " + std::to_string(lLines.size()) +
                         ".\n");
        return lLines;
    }

private:
    NameTableEntry* find(const void* aHandle) {
        const auto lEntry =
            std::find_if(mEntries.begin(), mEntries.end(),
                         [&](const NameTableEntry& aEntry) { return aEntry.handle == aHandle; });
        return lEntry == mEntries.end() ? nullptr : &*lEntry;
    }

    std::vector<NameTableEntry> mEntries = std::vector<NameTableEntry>(OSX_NAME_TABLE_SIZE);
};

std::vector<std::string> listed(test::LogCapture& aLog) {
    aLog.clear();
    osxNameTableList();
    return aLog.texts();
}

/// Registers and removes at random, more of the one and then of the other, with many equal names.
void exerciseLikeTheModel(test::LogCapture& aLog, unsigned int aSeed, unsigned int aHandles,
                          unsigned int aSteps) {
    constexpr std::array<const char*, 9> kNames{"b",    "B", "a", "task", "Task",
                                                "TASK", "z", "q", ""};
    std::minstd_rand lRandom(aSeed);
    const auto lBelow = [&lRandom](unsigned int aLimit) { return lRandom() / 7 % aLimit; };
    Model lModel;
    osxNameTableInit();
    for (unsigned int lStep = 0; lStep < aSteps; ++lStep) {
        void* const lHandle = handle(lBelow(aHandles));
        const bool lGrows = lStep / aHandles % 2 == 0;
        if (lBelow(4) < (lGrows ? 3U : 1U)) {
            // Empty names are rare at first, so that the common case is seen as well.
            const char* const lName = kNames[lBelow(lStep < aSteps / 2 ? 8U : 9U)];
            const char* const lStored = lHandle == nullptr ? "" : lName;
            ASSERT_EQ(lModel.add(lHandle, lStored), osxNameTableRegister(lHandle, lName));
        } else {
            ASSERT_EQ(lModel.remove(lHandle), osxNameTableUnRegister(lHandle));
        }
        if (lStep % (1 + aHandles / 16) == 0) {
            ASSERT_EQ(lModel.list(), listed(aLog)) << lStep;
        }
    }
}

/// A back end that asks the table while a line is being written.
class AskingBackend : public test::LineBackend {
public:
    ssize_t log(ACE_Log_Record&) override {
        mCount = osxNameTableCount();
        return 0;
    }
    int count() const { return mCount; }

private:
    int mCount = -1;
    test::InstalledBackend mInstalled{*this};
};

}  // namespace

TEST(NameTable, ListsInTheOrderOfTheNamesWithoutRegardToCase) {
    const test::LogCapture lLog;
    EXPECT_TRUE(osxNameTableRegister(handle(0x10), "beta"));
    EXPECT_TRUE(osxNameTableRegister(handle(0x20), "Alpha"));
    EXPECT_TRUE(osxNameTableRegister(handle(0xABC), "gamma"));
    EXPECT_EQ(3, osxNameTableList());
    EXPECT_THAT(lLog.texts(), ElementsAre("name = Alpha, handle = 20, index = 253.\n",
                                          "name = beta, handle = 10, index = 254.\n",
                                          "name = gamma, handle = abc, index = 255.\n",
                                          "Total number of objects registered: 3.\n"));
    EXPECT_THAT(lLog.lines(), testing::Each(test::IsLineOf(LM_ERROR, -1, "osxNameTable.cpp")));
}

TEST(NameTable, ListsNothingButTheTotalWhenEmpty) {
    const test::LogCapture lLog;
    EXPECT_EQ(0, osxNameTableList());
    EXPECT_THAT(lLog.texts(), ElementsAre("Total number of objects registered: 0.\n"));
}

TEST(NameTable, FindsTheNameOfAHandle) {
    osxNameTableRegister(handle(1), "one");
    EXPECT_STREQ("one", osxNameTableGetName(handle(1)));
    EXPECT_STREQ(kNotFound, osxNameTableGetName(handle(2)));
    EXPECT_EQ(1, osxNameTableCount());
}

TEST(NameTable, RefusesTheEntryAfterTheLastAndKeepsTheOthers) {
    const test::LogCapture lLog;
    fillTable();
    EXPECT_THAT(lLog.lines(), IsEmpty());
    EXPECT_FALSE(osxNameTableRegister(handle(1000), "one too many"));
    EXPECT_THAT(lLog.texts(),
                ElementsAre("Error: Cannot register one too many, the name table is full!\n"));
    EXPECT_EQ(LM_ERROR, lLog.lines()[0].priority);
    EXPECT_EQ(-1, lLog.lines()[0].status);
    EXPECT_EQ(OSX_NAME_TABLE_SIZE, osxNameTableCount());
    EXPECT_STREQ("name", osxNameTableGetName(handle(OSX_NAME_TABLE_SIZE)));
    EXPECT_STREQ(kNotFound, osxNameTableGetName(handle(1000)));
}

TEST(NameTable, HasRoomAgainAfterARemoval) {
    fillTable();
    EXPECT_TRUE(osxNameTableUnRegister(handle(7)));
    EXPECT_TRUE(osxNameTableRegister(handle(1000), "late"));
    EXPECT_STREQ("late", osxNameTableGetName(handle(1000)));
}

TEST(NameTable, CutsNamesTo63Characters) {
    for (const std::size_t lLength : {0U, 1U, 63U, 64U, 100U, 10000U}) {
        osxNameTableInit();
        const std::string lName = nameOfLength(lLength);
        EXPECT_TRUE(osxNameTableRegister(handle(1), lName.c_str()));
        EXPECT_EQ(lName.substr(0, 63), osxNameTableGetName(handle(1)));
    }
}

TEST(NameTable, TakesANullNameForAnEmptyOne) {
    EXPECT_TRUE(osxNameTableRegister(handle(1), nullptr));
    EXPECT_STREQ("", osxNameTableGetName(handle(1)));
    EXPECT_EQ(1, osxNameTableCount());
}

TEST(NameTable, RemovesOnlyTheFirstEntryOfAHandle) {
    osxNameTableRegister(handle(1), "zulu");
    osxNameTableRegister(handle(1), "Echo");
    EXPECT_EQ(2, osxNameTableCount());
    EXPECT_STREQ("Echo", osxNameTableGetName(handle(1)));
    EXPECT_TRUE(osxNameTableUnRegister(handle(1)));
    EXPECT_EQ(1, osxNameTableCount());
    EXPECT_STREQ("zulu", osxNameTableGetName(handle(1)));
    EXPECT_TRUE(osxNameTableUnRegister(handle(1)));
    EXPECT_STREQ(kNotFound, osxNameTableGetName(handle(1)));
    EXPECT_FALSE(osxNameTableUnRegister(handle(1)));
}

TEST(NameTable, IsSortedAgainByTheRegistrationAfterARemoval) {
    const test::LogCapture lLog;
    osxNameTableRegister(handle(1), "a");
    osxNameTableRegister(handle(2), "b");
    osxNameTableRegister(handle(3), "c");
    osxNameTableUnRegister(handle(2));
    osxNameTableList();
    EXPECT_EQ(1U, lLog.count("name = a, handle = 1, index = 253.\n"));
    osxNameTableRegister(handle(4), "d");
    osxNameTableList();
    EXPECT_EQ(2U, lLog.count("name = a, handle = 1, index = 253.\n"));
    EXPECT_EQ(1U, lLog.count("name = c, handle = 3, index = 254.\n"));
}

TEST(NameTable, HasTheOrderOfAStableSortWhateverWasRemovedBefore) {
    test::LogCapture lLog;
    for (const unsigned int lHandles : {2U, 5U, 16U, 60U, 400U}) {
        for (unsigned int lSeed = 1; lSeed <= 3; ++lSeed) {
            exerciseLikeTheModel(lLog, lSeed * lHandles, lHandles, 8 * lHandles + 200);
        }
    }
}

TEST(NameTable, NullIsAFreeEntryWithAnEmptyName) {
    EXPECT_TRUE(osxNameTableRegister(handle(1), "one"));
    EXPECT_TRUE(osxNameTableRegister(nullptr, "nobody"));
    EXPECT_EQ(1, osxNameTableCount());
    EXPECT_STREQ("", osxNameTableGetName(nullptr));
    EXPECT_TRUE(osxNameTableUnRegister(nullptr));
    EXPECT_STREQ("one", osxNameTableGetName(handle(1)));
}

TEST(NameTable, NullIsNotFoundInAFullTable) {
    const test::LogCapture lLog;
    fillTable();
    EXPECT_FALSE(osxNameTableRegister(nullptr, "nobody"));
    EXPECT_FALSE(osxNameTableUnRegister(nullptr));
    EXPECT_STREQ(kNotFound, osxNameTableGetName(nullptr));
}

TEST(NameTable, InitClearsIt) {
    osxNameTableRegister(handle(1), "one");
    osxNameTableInit();
    EXPECT_EQ(0, osxNameTableCount());
    EXPECT_STREQ(kNotFound, osxNameTableGetName(handle(1)));
}

TEST(NameTable, ComparesNamesWithoutRegardToCase) {
    const NameTableEntry lLower{nullptr, "alpha"};
    const NameTableEntry lUpper{nullptr, "ALPHA"};
    const NameTableEntry lBeta{nullptr, "Beta"};
    EXPECT_EQ(0, cmp_names(&lLower, &lUpper));
    EXPECT_LT(cmp_names(&lUpper, &lBeta), 0);
    EXPECT_GT(cmp_names(&lBeta, &lLower), 0);
}

TEST(NameTable, MayBeUsedByTheLogBackEndOfItsOwnLines) {
    fillTable();
    const AskingBackend lBackend;
    EXPECT_FALSE(osxNameTableRegister(handle(1000), "x"));
    EXPECT_EQ(OSX_NAME_TABLE_SIZE, lBackend.count());
}

TEST(NameTable, MayBeUsedByManyThreads) {
    std::vector<std::thread> lThreads;
    for (std::uintptr_t lThread = 1; lThread <= 4; ++lThread) {
        lThreads.emplace_back([lThread] {
            const std::string lName = "thread " + std::to_string(lThread);
            for (int lCount = 0; lCount < 200; ++lCount) {
                ASSERT_TRUE(osxNameTableRegister(handle(lThread), lName.c_str()));
                ASSERT_LE(1, osxNameTableCount());
                ASSERT_TRUE(osxNameTableUnRegister(handle(lThread)));
            }
        });
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    EXPECT_EQ(0, osxNameTableCount());
}

TEST(NameTableDeathTest, MayBeUsedWhileTheProcessEnds) {
    EXPECT_EXIT(
        {
            std::atomic<bool> lStarted{false};
            std::thread([&lStarted] {
                for (;;) {
                    osxNameTableRegister(handle(1), "late");
                    osxNameTableUnRegister(handle(1));
                    lStarted = true;
                }
            }).detach();
            while (!lStarted) {
                std::this_thread::yield();
            }
            std::exit(7);
        },
        testing::ExitedWithCode(7), "");
}
