// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "types/ObjectID.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/FailingAllocator.h"
#include "support/cancellation.h"
#include "support/inChild.h"
#include "types/FlexVar.h"

namespace {

constexpr char kZeroText[] = "00000000-0000-0000-0000-000000000000";

std::string text(const ObjectID& aID) {
    return aID.toString().c_str();
}

ObjectID parsed(const std::string& aText) {
    ObjectID lID;
    lID.setFromString(ACE_CString(aText.data(), aText.size()));
    return lID;
}

std::string reprinted(const std::string& aText) {
    return text(parsed(aText));
}

std::array<std::uint32_t, 4> words(const ObjectID& aID) {
    std::array<std::uint32_t, 4> lWords;
    std::memcpy(lWords.data(), aID.getData(), sizeof lWords);
    return lWords;
}

/// @return one group as the system's conversion reads it.
std::uint32_t group(const std::string& aText, std::size_t aStart, std::size_t aLength) {
    const std::string lGroup = aText.substr(aStart, aLength);
    char* lEnd = nullptr;
    const unsigned long lValue = std::strtoul(lGroup.c_str(), &lEnd, 16);
    return lEnd == lGroup.c_str() + aLength ? static_cast<std::uint32_t>(lValue) : 0;
}

std::array<std::uint32_t, 4> wordsByTheSystem(const std::string& aText) {
    return {group(aText, 0, 8), (group(aText, 9, 4) << 16) + group(aText, 14, 4),
            (group(aText, 19, 4) << 16) + group(aText, 24, 4), group(aText, 28, 8)};
}

// Built while the static objects are, perhaps before those of the library's sources.
const ObjectID gCopyOfNull(ObjectID::mNull);

}  // namespace

TEST(ObjectID, IsAllZeroAtFirst) {
    const ObjectID lID;
    EXPECT_TRUE(lID.isEmpty());
    EXPECT_EQ(16, lID.getSize());
    EXPECT_EQ((std::array<std::uint32_t, 4>{0, 0, 0, 0}), words(lID));
    EXPECT_STREQ(kZeroText, lID.toString().c_str());
    EXPECT_EQ(36U, lID.toString().length());
}

TEST(ObjectID, NullIsAllZero) {
    EXPECT_TRUE(ObjectID::mNull.isEmpty());
    EXPECT_TRUE(gCopyOfNull.isEmpty());
    EXPECT_EQ(ObjectID(), ObjectID::mNull);
    EXPECT_EQ(kZeroText, text(ObjectID::mNull));
}

TEST(ObjectID, HasAVirtualDestructorAndNothingElseVirtual) {
    EXPECT_TRUE(std::has_virtual_destructor_v<ObjectID>);
    // The table pointer, the words, the pointer to the text, the flag.
    EXPECT_EQ(3 * sizeof(void*) + 16, sizeof(ObjectID));
}

TEST(ObjectID, PrintsItsWordsInLowerCaseGroups) {
    const ObjectID lID = parsed("01234567-89AB-CDEF-0a1B-2c3D4e5F6789");
    EXPECT_EQ("01234567-89ab-cdef-0a1b-2c3d4e5f6789", text(lID));
    EXPECT_EQ((std::array<std::uint32_t, 4>{0x01234567, 0x89abcdef, 0x0a1b2c3d, 0x4e5f6789}),
              words(lID));
    EXPECT_EQ(0x01234567U, lID.hash());
    EXPECT_FALSE(lID.isEmpty());
}

TEST(ObjectID, PrintsIntoOneCacheThatItKeeps) {
    ObjectID lID = parsed("01234567-89ab-cdef-0a1b-2c3d4e5f6789");
    const ACE_CString& lText = lID.toString();
    EXPECT_EQ(&lText, &lID.toString());
    lID.setEmpty();
    EXPECT_STREQ("01234567-89ab-cdef-0a1b-2c3d4e5f6789", lText.c_str());
    EXPECT_EQ(&lText, &lID.toString());
    EXPECT_STREQ(kZeroText, lText.c_str());
}

TEST(ObjectID, PrintsAnewAfterEveryKindOfChange) {
    const ObjectID lSource = parsed("01234567-89ab-cdef-0a1b-2c3d4e5f6789");
    ObjectID lID;
    EXPECT_EQ(kZeroText, text(lID));
    lID = lSource;
    EXPECT_EQ(text(lSource), text(lID));
    lID.setEmpty();
    EXPECT_EQ(kZeroText, text(lID));
    lID.setData(lSource.getData(), 16);
    EXPECT_EQ(text(lSource), text(lID));
    lID.setData(lSource.getData(), 15);
    EXPECT_EQ(kZeroText, text(lID));
    lID.setFromString(lSource.toString());
    EXPECT_EQ(text(lSource), text(lID));
    lID.setFromString(ACE_CString("short"));
    EXPECT_EQ(kZeroText, text(lID));
    lID.generateObjectID();
    EXPECT_NE(kZeroText, text(lID));
}

TEST(ObjectID, CopyHasATextOfItsOwn) {
    const ObjectID lSource = parsed("01234567-89ab-cdef-0a1b-2c3d4e5f6789");
    const ACE_CString& lText = lSource.toString();
    const ObjectID lCopy(lSource);
    EXPECT_EQ(lSource, lCopy);
    EXPECT_NE(&lText, &lCopy.toString());
    EXPECT_EQ(text(lSource), text(lCopy));
}

TEST(ObjectID, SelfAssignmentKeepsTheTextThatWasMade) {
    ObjectID lID = parsed("01234567-89ab-cdef-0a1b-2c3d4e5f6789");
    const ACE_CString& lText = lID.toString();
    const ObjectID& lSelf = lID;
    lID = lSelf;
    EXPECT_EQ(&lText, &lID.toString());
    EXPECT_EQ("01234567-89ab-cdef-0a1b-2c3d4e5f6789", text(lID));
}

TEST(ObjectID, TakesSixteenBytesAndNothingElse) {
    unsigned char lBytes[17];
    for (unsigned char lIndex = 0; lIndex < 17; ++lIndex) {
        lBytes[lIndex] = static_cast<unsigned char>(lIndex + 1);
    }
    for (const long lSize : {0L, 15L, 17L, -16L}) {
        ObjectID lID = parsed("01234567-89ab-cdef-0a1b-2c3d4e5f6789");
        lID.setData(lBytes, lSize);
        EXPECT_TRUE(lID.isEmpty()) << lSize;
    }
    ObjectID lID;
    lID.setData(lBytes, 16);
    EXPECT_EQ(0, std::memcmp(lBytes, lID.getData(), 16));
    lID.setData(nullptr, 16);
    EXPECT_TRUE(lID.isEmpty());
}

TEST(ObjectID, IsEqualWhenAllWordsAre) {
    const ObjectID lID = parsed("00000001-0002-0003-0004-000500060007");
    EXPECT_EQ(lID, parsed("00000001-0002-0003-0004-000500060007"));
    for (const char* lOther :
         {"00000009-0002-0003-0004-000500060007", "00000001-0009-0003-0004-000500060007",
          "00000001-0002-0003-0009-000500060007", "00000001-0002-0003-0004-000500060009"}) {
        EXPECT_NE(lID, parsed(lOther)) << lOther;
        EXPECT_FALSE(lID == parsed(lOther)) << lOther;
        EXPECT_FALSE(parsed(lOther).isEmpty());
    }
}

TEST(ObjectID, IsNotEmptyWhenAnyWordIsSet) {
    for (const char* lText :
         {"00000001-0000-0000-0000-000000000000", "00000000-0000-0001-0000-000000000000",
          "00000000-0000-0000-0000-000100000000", "00000000-0000-0000-0000-000000000001"}) {
        EXPECT_FALSE(parsed(lText).isEmpty()) << lText;
    }
}

TEST(ObjectID, HashIsTheFirstWordAlone) {
    const ObjectID lOne = parsed("fedcba98-0002-0003-0004-000500060007");
    const ObjectID lOther = parsed("fedcba98-1112-1113-1114-111511161117");
    EXPECT_EQ(0xfedcba98U, lOne.hash());
    EXPECT_EQ(lOne.hash(), lOther.hash());
}

TEST(ObjectID, ParsesOnlyTextsOfThirtySixCharacters) {
    const std::string lText = "01234567-89ab-cdef-0a1b-2c3d4e5f6789";
    EXPECT_TRUE(parsed(lText.substr(0, 35)).isEmpty());
    EXPECT_TRUE(parsed(lText + "0").isEmpty());
    EXPECT_TRUE(parsed("").isEmpty());
    EXPECT_FALSE(parsed(lText).isEmpty());
}

TEST(ObjectID, AcceptsAnySeparators) {
    EXPECT_EQ("01234567-89ab-cdef-0a1b-2c3d4e5f6789",
              reprinted("01234567x89ab0cdef\n0a1bF2c3d4e5f6789"));
    EXPECT_EQ("01234567-89ab-cdef-0a1b-2c3d4e5f6789",
              reprinted(std::string("01234567\0"
                                    "89ab-cdef-0a1b-2c3d4e5f6789",
                                    36)));
}

TEST(ObjectID, LeavesOutAGroupThatIsNoNumberAndTakesTheOthers) {
    EXPECT_EQ("00000000-89ab-cdef-0a1b-2c3d4e5f6789",
              reprinted("0123456g-89ab-cdef-0a1b-2c3d4e5f6789"));
    EXPECT_EQ("01234567-0000-cdef-0a1b-2c3d4e5f6789",
              reprinted("01234567-89a.-cdef-0a1b-2c3d4e5f6789"));
    EXPECT_EQ("01234567-89ab-0000-0a1b-2c3d4e5f6789",
              reprinted("01234567-89ab-zdef-0a1b-2c3d4e5f6789"));
    EXPECT_EQ("01234567-89ab-cdef-0000-2c3d4e5f6789",
              reprinted("01234567-89ab-cdef-0a1 -2c3d4e5f6789"));
    EXPECT_EQ("01234567-89ab-cdef-0a1b-00004e5f6789",
              reprinted("01234567-89ab-cdef-0a1b-    4e5f6789"));
    EXPECT_EQ("01234567-89ab-cdef-0a1b-2c3d00000000",
              reprinted("01234567-89ab-cdef-0a1b-2c3d4e5f678-"));
    EXPECT_EQ(kZeroText, reprinted(std::string(36, '?')));
    EXPECT_EQ(kZeroText, reprinted(std::string(36, '\0')));
}

TEST(ObjectID, ReadsBlanksSignsAndPrefixesWithinAGroup) {
    EXPECT_EQ("00000123-0001-0002-0003-000400000005",
              reprinted("     123-+001- 0x2-\t\n 3-0X04+0000005"));
}

TEST(ObjectID, NegativeGroupsWrapInThirtyTwoBits) {
    EXPECT_EQ("ffffffff-0000-0000-0000-000000000000",
              reprinted("      -1-0000-0000-0000-000000000000"));
    EXPECT_EQ("f0000001-0000-0000-0000-000000000000",
              reprinted("-fffffff-0000-0000-0000-000000000000"));
    // -1 in the upper half leaves 0xffff there; in the lower half it is added to the whole word.
    EXPECT_EQ("00000000-ffff-0000-0000-000000000000",
              reprinted("00000000--001-0000-0000-000000000000"));
    EXPECT_EQ("00000000-0004-ffff-0000-000000000000",
              reprinted("00000000-0005--001-0000-000000000000"));
    EXPECT_EQ("00000000-0000-0000-0006-fffe00000000",
              reprinted("00000000-0000-0000-0007--00200000000"));
}

TEST(ObjectID, ReadsEveryByteInAGroupAsTheSystemsConversionDoes) {
    for (const std::size_t lPosition : {0U, 7U, 9U, 12U, 14U, 24U, 28U, 35U}) {
        for (int lByte = 0; lByte < 256; ++lByte) {
            std::string lText = "01234567-89ab-cdef-0a1b-2c3d4e5f6789";
            lText[lPosition] = static_cast<char>(lByte);
            ASSERT_EQ(wordsByTheSystem(lText), words(parsed(lText)))
                << "byte " << lByte << " at " << lPosition;
        }
    }
}

TEST(ObjectID, ReadsAnyMixtureAsTheSystemsConversionDoes) {
    constexpr char kCharacters[] = "0123456789abcdefABCDEF0123456789xX+- \t\ng";
    std::mt19937 lRandom(4711);
    for (int lRound = 0; lRound < 20000; ++lRound) {
        std::string lText(36, '\0');
        for (char& lCharacter : lText) {
            lCharacter = kCharacters[lRandom() % (sizeof kCharacters - 1)];
        }
        ASSERT_EQ(wordsByTheSystem(lText), words(parsed(lText))) << lText;
    }
}

TEST(ObjectID, ParsesItsOwnText) {
    ObjectID lID = parsed("01234567-89ab-cdef-0a1b-2c3d4e5f6789");
    lID.setFromString(lID.toString());
    EXPECT_EQ("01234567-89ab-cdef-0a1b-2c3d4e5f6789", text(lID));
}

TEST(ObjectID, TextAndBackIsTheSameIdentifier) {
    std::mt19937 lRandom(4711);
    for (int lRound = 0; lRound < 1000; ++lRound) {
        unsigned char lBytes[16];
        std::generate(std::begin(lBytes), std::end(lBytes),
                      [&] { return static_cast<unsigned char>(lRandom()); });
        ObjectID lID;
        lID.setData(lBytes, 16);
        ASSERT_EQ(lID, parsed(text(lID))) << text(lID);
    }
}

TEST(ObjectID, PrintsAnEmptyTextWithoutMemory) {
    const ObjectID lID = parsed("01234567-89ab-cdef-0a1b-2c3d4e5f6789");
    for (const int lAllowed : {0, 1}) {
        const test::FailingAllocator lFailing(lAllowed);
        EXPECT_STREQ("", lID.toString().c_str());
        EXPECT_GT(lFailing.failures(), 0);
    }
    EXPECT_EQ("01234567-89ab-cdef-0a1b-2c3d4e5f6789", text(lID));
}

TEST(ObjectID, ConstantsHaveTheirTextFromTheLoadOn) {
    const test::FailingAllocator lFailing;
    EXPECT_STREQ(kZeroText, ObjectID::mNull.toString().c_str());
    EXPECT_STREQ(kZeroText, FlexVar::mEmptyObjectID.toString().c_str());
    EXPECT_EQ(0, lFailing.failures());
}

TEST(ObjectID, ConstantsArePrintedByManyThreadsAtOnce) {
    constexpr int kThreads = 4;
    std::atomic<int> lReady{0};
    std::atomic<int> lWrong{0};
    std::vector<std::thread> lThreads;
    for (int lThread = 0; lThread < kThreads; ++lThread) {
        lThreads.emplace_back([&] {
            for (++lReady; lReady < kThreads;) {
                std::this_thread::yield();
            }
            lWrong += text(ObjectID::mNull) == kZeroText ? 0 : 1;
            lWrong += text(FlexVar(5).getObjectID()) == kZeroText ? 0 : 1;
        });
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    EXPECT_EQ(0, lWrong);
}

TEST(ObjectID, PrintsAChangeWithoutFurtherMemory) {
    ObjectID lID;
    lID.toString();
    lID.setFromString(ACE_CString("01234567-89ab-cdef-0a1b-2c3d4e5f6789"));
    const test::FailingAllocator lFailing;
    EXPECT_STREQ("01234567-89ab-cdef-0a1b-2c3d4e5f6789", lID.toString().c_str());
}

TEST(ObjectID, GeneratesVersionOneWithVariantZero) {
    ObjectID lID;
    lID.generateObjectID();
    EXPECT_EQ('1', text(lID)[14]);
    EXPECT_EQ(0U, words(lID)[2] >> 30);
}

TEST(ObjectID, GeneratesWhatUuidparseReadsAsTimeBased) {
    ObjectID lID;
    lID.generateObjectID();
    std::string lText = text(lID);
    // It names the type of the common variant alone; older ones named it of every variant.
    lText[19] = '8';
    const std::string lCommand = "uuidparse -n -o TYPE " + lText;
    FILE* lPipe = popen(lCommand.c_str(), "re");
    ASSERT_NE(nullptr, lPipe);
    char lLine[64] = {};
    EXPECT_NE(nullptr, std::fgets(lLine, sizeof lLine, lPipe));
    EXPECT_EQ(0, pclose(lPipe));
    EXPECT_EQ(0, std::strncmp(lLine, "time-based", 10)) << lLine;
}

TEST(ObjectID, WithoutMemoryForTheGeneratorIsEmptyAndLaterWorks) {
    ObjectID lID = parsed("01234567-89ab-cdef-0a1b-2c3d4e5f6789");
    bool lFailed = true;
    for (int lAllowed = 0; lFailed; ++lAllowed) {
        const test::FailingAllocator lFailing(lAllowed);
        lID.generateObjectID();
        lFailed = lFailing.failures() > 0;
        EXPECT_TRUE(!lFailed || lID.isEmpty() || lAllowed > 0);
    }
    EXPECT_FALSE(lID.isEmpty());
    EXPECT_EQ('1', text(lID)[14]);
}

namespace {
bool generatesThoughItsThreadIsCancelled() {
    ObjectID lID;
    return test::outlastsItsCancellation([&] { lID.generateObjectID(); }) && !lID.isEmpty();
}
}  // namespace

TEST(ObjectID, IsGeneratedForTheFirstTimeInAThreadThatIsCancelled) {
    EXPECT_TRUE(test::inChild(generatesThoughItsThreadIsCancelled));
}

TEST(ObjectID, IsGeneratedInAForkedChildsThreadThatIsCancelled) {
    ObjectID().generateObjectID();
    EXPECT_TRUE(test::inChild(generatesThoughItsThreadIsCancelled));
}

TEST(ObjectID, AMillionFromEightThreadsAreDistinct) {
    constexpr std::size_t kThreads = 8;
    constexpr std::size_t kEach = 125000;
    std::vector<std::array<std::uint32_t, 4>> lAll(kThreads * kEach);
    std::vector<std::thread> lThreads;
    for (std::size_t lThread = 0; lThread < kThreads; ++lThread) {
        lThreads.emplace_back([&lAll, lThread] {
            ObjectID lID;
            for (std::size_t lIndex = 0; lIndex < kEach; ++lIndex) {
                lID.generateObjectID();
                lAll[lThread * kEach + lIndex] = words(lID);
            }
        });
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    std::sort(lAll.begin(), lAll.end());
    EXPECT_EQ(lAll.end(), std::adjacent_find(lAll.begin(), lAll.end()));
    EXPECT_TRUE(std::all_of(lAll.begin(), lAll.end(),
                            [](const auto& aWords) { return (aWords[1] >> 12 & 0xF) == 1; }));
}
