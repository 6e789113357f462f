// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "types/ObjectIDMap.h"

#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/FailingAllocator.h"
#include "support/InstalledBackend.h"
#include "support/LogCapture.h"

namespace {

constexpr char kFirstText[] = "00000001-0000-0000-0000-000000000000";

ObjectID id(unsigned int aFirst, unsigned int aLast = 0) {
    char lText[40];
    std::snprintf(lText, sizeof lText, "%08x-0000-0000-0000-0000%08x", aFirst, aLast);
    ObjectID lID;
    lID.setFromString(ACE_CString(lText));
    return lID;
}

ObjectID translated(const ObjectIDMap& aMap, ObjectID aID) {
    aMap.translate(aID);
    return aID;
}

std::string failure(const std::string& aText, int aSize) {
    return "ObjectIDMap::translate: failed, aObjectID[" + aText + "] size[" +
           std::to_string(aSize) + "]\n";
}

std::int64_t processorTime() {
    timespec lTime{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &lTime);
    return lTime.tv_sec * std::int64_t(1000000000) + lTime.tv_nsec;
}

/// @return the processor time of adding and translating identifiers whose first words differ by
///         multiples of `aStep`.
std::int64_t timeOfUse(unsigned int aPairs, unsigned int aStep) {
    ObjectIDMap lMap;
    const std::int64_t lStart = processorTime();
    ObjectID lKey;
    std::uint32_t lWords[4] = {0, 0, 0, 1};
    for (int lRound = 0; lRound < 2; ++lRound) {
        for (unsigned int lIndex = 0; lIndex < aPairs; ++lIndex) {
            lWords[0] = lIndex * aStep;
            lKey.setData(reinterpret_cast<unsigned char*>(lWords), sizeof lWords);
            if (lRound == 0) {
                lMap.add(lKey, lKey);
            } else {
                lMap.translate(lKey);
            }
        }
    }
    return processorTime() - lStart;
}

/// A log back end that uses the table itself.
class Translator : public test::LineBackend {
public:
    explicit Translator(ObjectIDMap& aMap) : mMap(aMap) {}
    ssize_t log(ACE_Log_Record&) override {
        mMap.add(id(1), id(2));
        return 0;
    }

private:
    ObjectIDMap& mMap;
    test::InstalledBackend mInstalled{*this};
};

}  // namespace

TEST(ObjectIDMap, TranslatesAKeyIntoItsValue) {
    ObjectIDMap lMap;
    lMap.add(id(1), id(100));
    lMap.add(id(2), id(200));
    const test::LogCapture lLog;
    EXPECT_EQ(id(100), translated(lMap, id(1)));
    EXPECT_EQ(id(200), translated(lMap, id(2)));
    EXPECT_TRUE(lLog.lines().empty());
}

TEST(ObjectIDMap, HasAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<ObjectIDMap>);
}

TEST(ObjectIDMap, TellsKeysOfOneHashApart) {
    ObjectIDMap lMap;
    lMap.add(id(1, 1), id(100));
    lMap.add(id(1, 2), id(200));
    EXPECT_EQ(id(100), translated(lMap, id(1, 1)));
    EXPECT_EQ(id(200), translated(lMap, id(1, 2)));
    // The same bucket of 2999, another hash.
    lMap.add(id(1 + 2999, 1), id(300));
    EXPECT_EQ(id(100), translated(lMap, id(1, 1)));
    EXPECT_EQ(id(300), translated(lMap, id(1 + 2999, 1)));
}

TEST(ObjectIDMap, UnknownKeyStaysAsItIsAndIsLogged) {
    const ObjectIDMap lMap;
    const test::LogCapture lLog;
    EXPECT_EQ(id(1), translated(lMap, id(1)));
    const auto lLines = lLog.lines();
    ASSERT_EQ(1U, lLines.size());
    EXPECT_EQ(failure(kFirstText, 0), lLines[0].text);
    EXPECT_EQ(LM_ERROR, lLines[0].priority);
    EXPECT_EQ(-1, lLines[0].status);
    EXPECT_EQ("ObjectIDMap.cpp", lLines[0].module);
    EXPECT_GT(lLines[0].sourceLine, 0);
}

TEST(ObjectIDMap, FailureShowsTheNumberOfPairs) {
    ObjectIDMap lMap;
    lMap.add(id(2), id(200));
    lMap.add(id(3), id(300));
    const test::LogCapture lLog;
    translated(lMap, id(1));
    EXPECT_EQ(1U, lLog.count(failure(kFirstText, 2)));
}

TEST(ObjectIDMap, EmptyIdentifierIsLeftAloneWhateverTheTableHolds) {
    ObjectIDMap lMap;
    const test::LogCapture lLog;
    EXPECT_TRUE(translated(lMap, ObjectID()).isEmpty());
    lMap.add(ObjectID(), id(100));
    EXPECT_TRUE(translated(lMap, ObjectID()).isEmpty());
    EXPECT_TRUE(lLog.lines().empty());
}

TEST(ObjectIDMap, AddingAKnownKeyReplacesItsValue) {
    ObjectIDMap lMap;
    lMap.add(id(2), id(100));
    lMap.add(id(2), id(200));
    EXPECT_EQ(id(200), translated(lMap, id(2)));
    const test::LogCapture lLog;
    translated(lMap, id(1));
    EXPECT_EQ(1U, lLog.count(failure(kFirstText, 1)));
}

TEST(ObjectIDMap, UnregistersAKey) {
    ObjectIDMap lMap;
    lMap.add(id(1), id(100));
    lMap.add(id(2), id(200));
    lMap.unregisterObjectID(id(1));
    const test::LogCapture lLog;
    EXPECT_EQ(id(1), translated(lMap, id(1)));
    EXPECT_EQ(1U, lLog.count(failure(kFirstText, 1)));
    EXPECT_EQ(id(200), translated(lMap, id(2)));
}

TEST(ObjectIDMap, UnregisteringAnUnknownKeyIsHarmless) {
    ObjectIDMap lMap;
    lMap.add(id(2), id(200));
    const test::LogCapture lLog;
    errno = 0;
    lMap.unregisterObjectID(id(1));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_TRUE(lLog.lines().empty());
    EXPECT_EQ(id(200), translated(lMap, id(2)));
}

TEST(ObjectIDMap, AfterClearEveryTranslationFails) {
    ObjectIDMap lMap;
    for (unsigned int lIndex = 1; lIndex <= 5000; ++lIndex) {
        lMap.add(id(lIndex), id(lIndex, 1));
    }
    EXPECT_EQ(id(4999, 1), translated(lMap, id(4999)));
    lMap.clear();
    {
        const test::LogCapture lLog;
        EXPECT_EQ(id(1), translated(lMap, id(1)));
        EXPECT_EQ(id(4999), translated(lMap, id(4999)));
        EXPECT_EQ(1U, lLog.count(failure(kFirstText, 0)));
        EXPECT_EQ(2U, lLog.lines().size());
    }
    lMap.add(id(1), id(100));
    EXPECT_EQ(id(100), translated(lMap, id(1)));
}

TEST(ObjectIDMap, ABackEndMayUseTheTableWhileAFailureIsWritten) {
    ObjectIDMap lMap;
    {
        const Translator lBackEnd(lMap);
        EXPECT_EQ(id(1), translated(lMap, id(1)));
    }
    EXPECT_EQ(id(2), translated(lMap, id(1)));
}

TEST(ObjectIDMap, WithoutMemoryForTheTableDoesNothing) {
    const test::LogCapture lLog;
    alignas(ObjectIDMap) unsigned char lPlace[sizeof(ObjectIDMap)];
    ObjectIDMap* lUnusable = nullptr;
    {
        const test::FailingAllocator lFailing(0, true);
        lUnusable = new (lPlace) ObjectIDMap;
        EXPECT_EQ(1, lFailing.failures());
    }
    EXPECT_EQ(1U, lLog.count("ACE_Hash_Map_Manager_Ex\n"));
    lUnusable->add(id(1), id(100));
    lUnusable->unregisterObjectID(id(1));
    EXPECT_EQ(id(1), translated(*lUnusable, id(1)));
    EXPECT_EQ(1U, lLog.count(failure(kFirstText, 0)));
    lUnusable->clear();
    lUnusable->~ObjectIDMap();
}

TEST(ObjectIDMap, WithoutMemoryForAPairEntersNothing) {
    ObjectIDMap lMap;
    const ObjectID lKey = id(1);
    {
        const test::FailingAllocator lFailing;
        errno = 0;
        lMap.add(lKey, lKey);
        EXPECT_EQ(ENOMEM, errno);
    }
    const test::LogCapture lLog;
    translated(lMap, id(1));
    EXPECT_EQ(1U, lLog.count(failure(kFirstText, 0)));
}

TEST(ObjectIDMap, DoesWhatAStandardMapDoes) {
    constexpr int kSteps = 100000;
    std::mt19937 lRandom(1);
    const auto lNumber = [&lRandom](unsigned int aEnd) {
        return static_cast<unsigned int>(lRandom() % aEnd);
    };
    std::map<std::string, ObjectID> lModel;
    ObjectIDMap lMap;
    const test::LogCapture lLog;  // of the failures
    for (int lStep = 0; lStep < kSteps; ++lStep) {
        // Up to four keys of one hash.
        const ObjectID lKey = id(lNumber(3000) * 10, 1 + lNumber(4));
        const std::string lText = lKey.toString().c_str();
        const ObjectID lValue = id(lNumber(1000000), 7);
        switch (lNumber(8)) {
            case 0:
            case 1:
            case 2:
                lMap.add(lKey, lValue);
                lModel[lText] = lValue;
                break;
            case 3:
                lMap.unregisterObjectID(lKey);
                lModel.erase(lText);
                break;
            default:
                const auto lFound = lModel.find(lText);
                ASSERT_EQ(lFound == lModel.end() ? lKey : lFound->second, translated(lMap, lKey));
                break;
        }
        if (lNumber(50000) == 0) {
            lMap.clear();
            lModel.clear();
        }
    }
    for (const auto& [lText, lValue] : lModel) {
        ObjectID lKey;
        lKey.setFromString(lText.c_str());
        EXPECT_EQ(lValue, translated(lMap, lKey));
    }
}

// Before the map had an index, all these keys stood in one bucket: 4000 times as long.
TEST(ObjectIDMap, TakesAsLongWhateverTheKeysAndHoweverMany) {
    constexpr unsigned int kPairs = 60000;
    constexpr std::int64_t kManyTimes = 100;
    const std::int64_t lUsual = timeOfUse(kPairs, 1);
    EXPECT_LT(timeOfUse(kPairs, 2999), kManyTimes * lUsual);
}

TEST(ObjectIDMap, SaysOfEachAdditionThatThereWasNoMemoryForTheTable) {
    std::optional<ObjectIDMap> lMap;
    {
        const test::FailingAllocator lFailing;
        lMap.emplace();
    }
    errno = 0;
    lMap->add(id(1), id(2));
    EXPECT_EQ(ENOMEM, errno);
}

TEST(ObjectIDMap, WithoutMemoryToGrowGoesOn) {
    std::vector<ObjectID> lKeys;
    for (unsigned int lIndex = 0; lIndex < 60; ++lIndex) {
        lKeys.push_back(id(1 + lIndex));
    }
    const ObjectID lValue = id(100);
    ObjectIDMap lMap;
    lMap.add(lKeys[0], lValue);  // takes memory for many pairs
    {
        const test::FailingAllocator lFailing;
        for (unsigned int lIndex = 1; lIndex < 30; ++lIndex) {
            errno = EDOM;
            lMap.add(lKeys[lIndex], lValue);
            EXPECT_NE(ENOMEM, errno);
        }
        EXPECT_GT(lFailing.failures(), 0);
    }
    lMap.unregisterObjectID(lKeys[7]);
    for (unsigned int lIndex = 30; lIndex < 60; ++lIndex) {
        lMap.add(lKeys[lIndex], lValue);
    }
    const test::LogCapture lLog;
    for (unsigned int lIndex = 0; lIndex < 60; ++lIndex) {
        EXPECT_EQ(lIndex == 7 ? lKeys[7] : lValue, translated(lMap, lKeys[lIndex]));
    }
    EXPECT_EQ(1U, lLog.lines().size());
}

TEST(ObjectIDMap, SeveralThreadsUseOneTable) {
    constexpr unsigned int kEach = 300;
    ObjectIDMap lMap;
    lMap.add(id(1), id(100));
    std::vector<std::thread> lThreads;
    for (unsigned int lThread = 1; lThread <= 4; ++lThread) {
        lThreads.emplace_back([&lMap, lThread] {
            for (unsigned int lIndex = 1; lIndex <= kEach; ++lIndex) {
                const ObjectID lKey = id(lIndex, lThread);
                lMap.add(lKey, id(lThread));
                EXPECT_EQ(id(lThread), translated(lMap, lKey));
                EXPECT_EQ(id(100), translated(lMap, id(1)));
                lMap.unregisterObjectID(lKey);
            }
        });
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    const test::LogCapture lLog;
    translated(lMap, id(2));
    EXPECT_EQ(1U, lLog.countContaining("size[1]"));
}
