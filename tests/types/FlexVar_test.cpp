// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "types/FlexVar.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <type_traits>

#include "ace/ACE.h"
#include "support/LogCapture.h"
#include "support/cancellation.h"
#include "support/logMatchers.h"
#include "types/FlexVarSamples.h"

using test::isSame;
using test::narrow;
using test::Sample;
using test::samples;
using test::wide;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Narrow = ACE_String_Base<char>;
using Wide = ACE_String_Base<wchar_t>;

std::string typeName(const Sample& aSample) {
    return aSample.type == FlexVar::FlexVar_NoType ? "No FlexVar type" : "FlexVar_" + aSample.name;
}

std::string changeLine(const Sample& aFrom, const Sample& aTo) {
    if (aFrom.type == FlexVar::FlexVar_NoType) {
        return "%t FlexVar::dataTypeCanged: Initialized to type [" + typeName(aTo) + "]\n";
    }
    return "%t FlexVar::dataTypeCanged: From type [" + typeName(aFrom) + "], To type [" +
           typeName(aTo) + "]\n";
}

std::string mismatchLine(const Sample& aWanted, const Sample& aHeld) {
    const std::string lFront = "%t FlexVar::get" + aWanted.name +
                               ": It is only allowed to call this method if it is a " +
                               aWanted.name + ", ";
    if (!aWanted.fallback.empty()) {
        return lFront + "returning " + aWanted.fallback + "\n";
    }
    return lFront +
           "so do a check before you call this method!\nType = " + std::to_string(aHeld.type) +
           "\n";
}

/// The sixteen kinds without type none.
std::vector<Sample> kinds() {
    return {samples().begin() + 1, samples().end()};
}

/// @return where the object is that a `FlexVar` holds.
const void* heldObject(const FlexVar& aVar) {
    switch (aVar.getType()) {
        case FlexVar::FlexVar_CString:
            return &aVar.getCString();
        case FlexVar::FlexVar_WString:
            return &aVar.getWString();
        case FlexVar::FlexVar_DateTime:
            return &aVar.getDateTime();
        case FlexVar::FlexVar_Blob:
            return aVar.getBlob();
        case FlexVar::FlexVar_ObjectID:
            return &aVar.getObjectID();
        default:
            return nullptr;
    }
}

}  // namespace

// What it is.

static_assert(sizeof(FlexVar) <= 16, "a type and a slot of 8 bytes");
static_assert(!std::is_polymorphic_v<FlexVar>, "");
static_assert(std::is_nothrow_move_constructible_v<FlexVar>, "");
static_assert(std::is_nothrow_move_assignable_v<FlexVar>, "");

static_assert(!std::is_constructible_v<FlexVar, const char*>, "");
static_assert(!std::is_constructible_v<FlexVar, const char (&)[5]>, "a literal text");
static_assert(!std::is_constructible_v<FlexVar, const wchar_t (&)[5]>, "");
static_assert(!std::is_constructible_v<FlexVar, void*>, "");
static_assert(!std::is_constructible_v<FlexVar, FlexVar*>, "");
static_assert(!std::is_constructible_v<FlexVar, ACE_String_Base<char>*>, "");
static_assert(!std::is_constructible_v<FlexVar, Blob*>, "");
static_assert(!std::is_constructible_v<FlexVar, std::nullptr_t>, "");
static_assert(!std::is_constructible_v<FlexVar, void (*)()>, "");
static_assert(!std::is_constructible_v<FlexVar, int Sample::*>, "");
static_assert(!std::is_assignable_v<FlexVar&, const char*>, "");
static_assert(!std::is_convertible_v<const char*, FlexVar>, "");
static_assert(std::is_convertible_v<int, FlexVar>, "");

TEST(FlexVar, NumbersAndNamesItsTypes) {
    ASSERT_EQ(17U, samples().size());
    for (std::size_t i = 0; i < samples().size(); ++i) {
        const Sample& lSample = samples()[i];
        EXPECT_EQ(static_cast<int>(i), lSample.type);
        EXPECT_EQ(typeName(lSample), test::plain(FlexVar::getTypeName(lSample.type)));
        EXPECT_EQ(typeName(lSample), test::plain(lSample.value.getTypeName()));
    }
}

TEST(FlexVar, HasOneNameForAllNumbersOutside) {
    for (const int lNumber : {17, -1, 99, std::numeric_limits<int>::max()}) {
        EXPECT_EQ("No FlexVar type",
                  test::plain(FlexVar::getTypeName(static_cast<FlexVar::Type>(lNumber))));
    }
}

TEST(FlexVar, TakesItsTypeFromTheArgumentOfItsConstructor) {
    for (const Sample& lSample : samples()) {
        EXPECT_EQ(lSample.type, lSample.value.getType()) << lSample.name;
    }
    EXPECT_EQ(FlexVar::FlexVar_Int, FlexVar(5).getType());
    EXPECT_EQ(FlexVar::FlexVar_Long, FlexVar(5L).getType());
}

TEST(FlexVar, WritesNothingWhenConstructedAndAssigned) {
    const test::LogCapture lLog;
    const test::TraceLevel lLevel(9);
    for (const Sample& lFrom : samples()) {
        for (const Sample& lTo : samples()) {
            FlexVar lVar(lFrom.value);
            lVar = lTo.value;
            FlexVar lMoved(std::move(lVar));
            lMoved = FlexVar(lFrom.value);
        }
    }
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(FlexVar, KnowsWhatIsNumericStringAndDate) {
    for (const Sample& lSample : samples()) {
        EXPECT_EQ(lSample.type >= 2 && lSample.type <= 11, lSample.value.isNumeric())
            << lSample.name;
        EXPECT_EQ(lSample.type == 12 || lSample.type == 13, lSample.value.isString())
            << lSample.name;
        EXPECT_EQ(lSample.type == 14, lSample.value.isDate()) << lSample.name;
    }
}

TEST(FlexVar, OffersTheConstantsOfItsClass) {
    EXPECT_EQ(0U, FlexVar::mEmptyCString.length());
    EXPECT_EQ(0U, FlexVar::mEmptyWString.length());
    EXPECT_TRUE(FlexVar::mEmptyObjectID.isEmpty());
    EXPECT_EQ("true", test::plain(FlexVar::mCStrBoolTrue));
    EXPECT_EQ("false", test::plain(FlexVar::mCStrBoolFalse));
    EXPECT_EQ(L"true", test::plain(FlexVar::mWStrBoolTrue));
    EXPECT_EQ(L"false", test::plain(FlexVar::mWStrBoolFalse));
}

TEST(FlexVar, KeepsTheLoadTimeAsItsEmptyDate) {
    const ACE_Date_Time& lDate = FlexVar::mEmptyACE_Date_Time;
    tm lFields{};
    lFields.tm_mday = static_cast<int>(lDate.day());
    lFields.tm_mon = static_cast<int>(lDate.month()) - 1;
    lFields.tm_year = static_cast<int>(lDate.year()) - 1900;
    lFields.tm_hour = static_cast<int>(lDate.hour());
    lFields.tm_min = static_cast<int>(lDate.minute());
    lFields.tm_sec = static_cast<int>(lDate.second());
    lFields.tm_isdst = -1;
    const double lAge = std::difftime(std::time(nullptr), std::mktime(&lFields));
    EXPECT_GE(lAge, -1.0);  // time() may lag the clock that was read by a tick
    EXPECT_LT(lAge, 600.0);
    EXPECT_EQ(&lDate, &FlexVar(5).getDateTime());
}

// Setters.

TEST(FlexVar, SetsEveryKindFromEveryTypeAndTracesTheChange) {
    const test::TraceLevel lLevel(4);
    for (const Sample& lFrom : samples()) {
        for (const Sample& lTo : kinds()) {
            const test::LogCapture lLog;
            FlexVar lVar(lFrom.value);
            lTo.set(lVar);
            EXPECT_TRUE(isSame(lTo.value, lVar)) << lFrom.name << " to " << lVar;
            if (lFrom.type == lTo.type) {
                EXPECT_THAT(lLog.texts(), IsEmpty()) << lFrom.name;
            } else {
                EXPECT_THAT(lLog.texts(), ElementsAre(changeLine(lFrom, lTo)));
            }
        }
    }
}

TEST(FlexVar, TellsWhetherTypesDifferWhateverItHolds) {
    const FlexVar lVar(5);
    for (const Sample& lFrom : samples()) {
        for (const Sample& lTo : samples()) {
            const test::LogCapture lLog;
            const test::TraceLevel lLevel(4);
            const bool lDiffer = lFrom.type != lTo.type;
            EXPECT_EQ(lDiffer, lVar.dataTypeCanged(lFrom.type, lTo.type));
            EXPECT_EQ(lLog.texts(), lDiffer ? std::vector<std::string>{changeLine(lFrom, lTo)}
                                            : std::vector<std::string>{});
        }
    }
    EXPECT_EQ(lVar.getInt(), 5);
}

TEST(FlexVar, TracesAChangeOnlyFromLevel4OnAndWithAcesSwitch) {
    for (const auto& [lLevel, lDebug] : {std::pair(3U, true), std::pair(9U, false)}) {
        const test::LogCapture lLog;
        const test::TraceLevel lTrace(lLevel, lDebug);
        FlexVar().setInt(1);
        EXPECT_EQ(0, FlexVar().getInt());
        EXPECT_EQ(nullptr, FlexVar().releaseBlob());
        EXPECT_THAT(lLog.lines(), IsEmpty());
    }
}

TEST(FlexVar, TracesAtDebugPriorityWithStatus0InItsModulesName) {
    const test::LogCapture lLog;
    const test::TraceLevel lLevel(4);
    FlexVar().setInt(1).getLong();
    const auto lLines = lLog.lines();
    ASSERT_EQ(2U, lLines.size());
    EXPECT_THAT(lLines, testing::Each(test::IsLineOf(LM_DEBUG, 0, "FlexVar.cpp")));
}

TEST(FlexVar, ChainsItsSetters) {
    FlexVar lVar;
    EXPECT_EQ(&lVar, &lVar.setInt(1).setCString(Narrow("x")).setBool(true));
    EXPECT_TRUE(lVar.getBool());
}

TEST(FlexVar, KeepsTheHeldObjectForEveryValueOfTheSameKind) {
    for (const Sample& lSample : samples()) {
        if (lSample.type < FlexVar::FlexVar_CString) {
            continue;
        }
        FlexVar lVar(lSample.value);
        const void* const lHeld = heldObject(lVar);
        const auto lExpect = [&](const FlexVar& aValue) {
            EXPECT_TRUE(isSame(aValue, lVar)) << lSample.name;
            EXPECT_EQ(lHeld, heldObject(lVar)) << lSample.name;
        };
        lVar = lSample.greater;
        lExpect(lSample.greater);
        lVar = FlexVar(lSample.value);
        lExpect(lSample.value);
        FlexVar lMoved(lSample.greater);
        lVar = std::move(lMoved);
        lExpect(lSample.greater);
        EXPECT_EQ(FlexVar::FlexVar_NoType, lMoved.getType()) << lSample.name;
        lSample.set(lVar);
        lExpect(lSample.value);
    }
}

TEST(FlexVar, ReferencesShowEachNewText) {
    FlexVar lVar(Narrow("one"));
    const Narrow& lText = lVar.getCString();
    for (const char* lNew : {"two", "", "a text that is much longer than all before", "short",
                             "a text that is longer than even the longest of all before"}) {
        FlexVar lCopy;
        lVar = lCopy = FlexVar(Narrow(lNew));
        EXPECT_STREQ(lNew, lText.c_str());
        lVar = Narrow("three");
        lVar = FlexVar(Narrow(lNew));
        EXPECT_STREQ(lNew, lText.c_str());
        lVar = Narrow("four");
        lVar = std::move(lCopy);
        EXPECT_STREQ(lNew, lText.c_str());
        lVar.setCString(Narrow("five"));
        lVar.setCString(Narrow(lNew));
        EXPECT_STREQ(lNew, lText.c_str());
        lVar += FlexVar(Narrow("+"));
        EXPECT_EQ(std::string(lNew) + "+", lText.c_str());
        EXPECT_EQ(0, lVar.setValueFromString(Narrow("six")));
        EXPECT_STREQ("six", lText.c_str());
        lVar.setTypeAndValue(Narrow("\"seven\""));
        EXPECT_STREQ("seven", lText.c_str());
    }
}

TEST(FlexVar, ReferencesShowEachNewWideText) {
    FlexVar lVar(Wide(L"one"));
    const Wide& lText = lVar.getWString();
    for (const wchar_t* lNew : {L"two", L"", L"a text that is much longer than all before"}) {
        lVar = FlexVar(Wide(lNew));
        EXPECT_STREQ(lNew, lText.c_str());
        lVar.setWString(Wide(L"three"));
        EXPECT_STREQ(L"three", lText.c_str());
        lVar = Wide(lNew);
        EXPECT_STREQ(lNew, lText.c_str());
    }
}

TEST(FlexVar, MovesATextOfAnyMakeIntoTheHeldOne) {
    char lLent[] = "lent";
    FlexVar lGrown(Narrow("grown"));
    lGrown += lGrown;
    FlexVar lGiven;
    lGiven.setCString(new Narrow("given by a pointer"));
    FlexVar lBorrower;
    lBorrower.setCString(new Narrow(lLent, 4, nullptr, false));
    FlexVar lVar(Narrow("held"));
    const Narrow& lText = lVar.getCString();
    for (FlexVar* const lSource : {&lGrown, &lGiven, &lBorrower}) {
        const std::string lExpected = test::text(*lSource);
        lVar = std::move(*lSource);
        EXPECT_EQ(lExpected, lText.c_str());
        EXPECT_EQ(FlexVar::FlexVar_NoType, lSource->getType());
    }
    lLent[0] = 's';
    EXPECT_STREQ("lent", lText.c_str());
}

TEST(FlexVar, MovesTheBytesOfABlobIntoTheHeldOne) {
    FlexVar lVar(samples()[15].value);
    const Blob* const lHeld = lVar.getBlob();
    FlexVar lSource(samples()[15].greater);
    const unsigned char* const lBytes = lSource.getBlob()->getData();
    lVar = std::move(lSource);
    EXPECT_EQ(lHeld, lVar.getBlob());
    EXPECT_EQ(lBytes, lHeld->getData());
    EXPECT_TRUE(lHeld->isOwner());

    FlexVar lBorrower;
    lBorrower.setBlob(new Blob(lHeld->getData() + 1, 2, false));
    lVar = std::move(lBorrower);
    ASSERT_EQ(2, lHeld->getSize());
    EXPECT_EQ(0xAB, lHeld->getData()[0]);
    EXPECT_EQ(3, lHeld->getData()[1]);
}

TEST(FlexVar, TakesASliceOfItsOwnContent) {
    FlexVar lText(Narrow("0123456789"));
    lText.setCString(Narrow(lText.getCString().c_str() + 2, 7, nullptr, false));
    EXPECT_EQ("2345678", test::text(lText));
    lText.setCString(Narrow(lText.getCString().c_str(), 3, nullptr, false));
    EXPECT_EQ("234", test::text(lText));
    const std::size_t lWithTerminator = 4;
    lText.setCString(Narrow(lText.getCString().c_str(), lWithTerminator, nullptr, false));
    EXPECT_EQ(std::string("234\0", 4), test::plain(lText.getCString()));
    EXPECT_EQ(0,
              lText.setValueFromString(Narrow(lText.getCString().c_str() + 1, 2, nullptr, false)));
    EXPECT_EQ("34", test::text(lText));

    FlexVar lBorrower;
    lBorrower.setCString(new Narrow(lText.getCString().c_str() + 1, 1, nullptr, false));
    lText = std::move(lBorrower);
    EXPECT_EQ("4", test::text(lText));

    FlexVar lWide(Wide(L"0123456789"));
    lWide.setWString(Wide(lWide.getWString().c_str() + 1, 8, nullptr, false));
    EXPECT_EQ("12345678", test::text(lWide));

    unsigned char lBytes[] = {0, 1, 2, 3, 4, 5};
    FlexVar lBlob(Blob(lBytes, 6, false));
    lBlob.setBlob(Blob(lBlob.getBlob()->getData() + 1, 4, false));
    ASSERT_EQ(4, lBlob.getBlob()->getSize());
    EXPECT_EQ(0, std::memcmp(lBytes + 1, lBlob.getBlob()->getData(), 4));
}

TEST(FlexVar, LeavesCharactersThatAreLentToItAlone) {
    char lLent[] = "lent by somebody";
    FlexVar lVar;
    lVar.setCString(new Narrow(lLent, 16, nullptr, false));
    const Narrow* const lHeld = &lVar.getCString();
    lVar.setCString(Narrow("new"));
    lVar = FlexVar(Narrow("newer"));
    EXPECT_EQ("newer", test::text(lVar));
    EXPECT_EQ(lHeld, &lVar.getCString());
    EXPECT_STREQ("lent by somebody", lLent);
}

TEST(FlexVar, CutsALongToItsLow32Bits) {
    EXPECT_EQ(-1L, FlexVar(static_cast<long>(0xFFFFFFFFUL)).getLong());
    EXPECT_EQ(0xFFFFFFFFUL, FlexVar(static_cast<unsigned long>(-1L)).getULong());
    FlexVar lVar;
    EXPECT_EQ(std::numeric_limits<int>::min(),
              lVar.setLong(static_cast<long>(0x80000000UL)).getLong());
    EXPECT_EQ(0x80000000UL, lVar.setULong(0x80000000UL).getULong());
    if constexpr (sizeof(long) > 4) {
        const auto lWide = static_cast<long>(0x1234567890ULL);
        EXPECT_EQ(0x34567890L, FlexVar(lWide).getLong());
        EXPECT_EQ(0x34567890L, lVar.setLong(lWide).getLong());
        EXPECT_EQ(0x34567890UL, FlexVar(static_cast<unsigned long>(lWide)).getULong());
        EXPECT_EQ(0x34567890UL, lVar.setULong(static_cast<unsigned long>(lWide)).getULong());
    }
}

TEST(FlexVar, CopiesABlobSoThatItOwnsItsBytes) {
    unsigned char lBytes[] = {1, 2};
    const Blob lBorrowed(lBytes, 2, false);
    for (const FlexVar& lVar : {FlexVar(lBorrowed), FlexVar().setBlob(lBorrowed)}) {
        ASSERT_NE(nullptr, lVar.getBlob());
        EXPECT_TRUE(lVar.getBlob()->isOwner());
        EXPECT_NE(lBytes, lVar.getBlob()->getData());
    }
}

// Setters that take an object over.

TEST(FlexVar, TakesGivenObjectsOver) {
    for (const Sample& lFrom : samples()) {
        FlexVar lVar(lFrom.value);
        auto* const lText = new Narrow("abc");
        lVar.setCString(lText);
        EXPECT_EQ(lText, &lVar.getCString());
        auto* const lWide = new Wide(L"wide");
        lVar.setWString(lWide);
        EXPECT_EQ(lWide, &lVar.getWString());
        auto* const lDate = new ACE_Date_Time(1, 2, 2003);
        lVar.setDateTime(lDate);
        EXPECT_EQ(lDate, &lVar.getDateTime());
        auto* const lBlob = new Blob(nullptr, 0, false);
        lVar.setBlob(lBlob);
        EXPECT_EQ(lBlob, lVar.getBlob());
        auto* const lIdentifier = new ObjectID;
        lVar.setObjectID(lIdentifier);
        EXPECT_EQ(lIdentifier, &lVar.getObjectID());
    }
}

TEST(FlexVar, ReplacesTheHeldObjectByAGivenOneOfTheSameKindWithoutALine) {
    const test::LogCapture lLog;
    const test::TraceLevel lLevel(4);
    FlexVar lVar(Narrow("one"));
    auto* const lText = new Narrow("two");
    lVar.setCString(lText);
    EXPECT_EQ(lText, &lVar.getCString());
    EXPECT_THAT(lLog.lines(), IsEmpty());
    lVar.setBlob(new Blob);
    EXPECT_THAT(lLog.texts(), ElementsAre(changeLine(samples()[12], samples()[15])));
}

TEST(FlexVar, KeepsTheHeldObjectThatIsGivenAgain) {
    FlexVar lVar(samples()[15].value);
    Blob* const lBlob = lVar.getBlob();
    lVar.setBlob(lBlob);
    EXPECT_EQ(lBlob, lVar.getBlob());
    EXPECT_TRUE(isSame(samples()[15].value, lVar));
}

namespace {

void setNull(FlexVar& aVar, FlexVar::Type aType) {
    switch (aType) {
        case FlexVar::FlexVar_CString:
            aVar.setCString(static_cast<Narrow*>(nullptr));
            break;
        case FlexVar::FlexVar_WString:
            aVar.setWString(static_cast<Wide*>(nullptr));
            break;
        case FlexVar::FlexVar_DateTime:
            aVar.setDateTime(static_cast<ACE_Date_Time*>(nullptr));
            break;
        case FlexVar::FlexVar_Blob:
            aVar.setBlob(static_cast<Blob*>(nullptr));
            break;
        default:
            aVar.setObjectID(static_cast<ObjectID*>(nullptr));
    }
}

}  // namespace

TEST(FlexVar, ReportsANullObjectAndStoresItAllTheSame) {
    for (const Sample& lFrom : samples()) {
        for (int lType = 12; lType <= 16; ++lType) {
            const Sample& lTo = samples()[static_cast<std::size_t>(lType)];
            const test::LogCapture lLog;
            FlexVar lVar(lFrom.value);
            setNull(lVar, lTo.type);
            EXPECT_EQ(lTo.type, lVar.getType());
            const auto lLines = lLog.lines();
            ASSERT_EQ(2U, lLines.size());
            EXPECT_EQ("FlexVar::set" + lTo.name + ": Null pointer for aValue!\n", lLines[0].text);
            EXPECT_THAT(lLines[1].text, testing::HasSubstr("assertion failed for 'false'"));
            EXPECT_THAT(lLines, testing::Each(test::IsLineOf(LM_ERROR, -1, "FlexVar.cpp")));
        }
    }
}

TEST(FlexVar, OfAKindWithoutAnObjectReadsLikeTheEmptyValue) {
    const test::LogCapture lLog;
    for (int lType = 12; lType <= 16; ++lType) {
        const Sample& lKind = samples()[static_cast<std::size_t>(lType)];
        FlexVar lVar;
        setNull(lVar, lKind.type);
        EXPECT_TRUE(lKind.isDefault(lVar)) << lKind.name;
        EXPECT_EQ(lType != 15, lVar == FlexVar(lVar)) << lKind.name;
        EXPECT_FALSE(lVar < FlexVar(lVar)) << lKind.name;
        EXPECT_EQ(FlexVar(lVar).hash(), lVar.hash()) << lKind.name;
        EXPECT_EQ(lType == 12 || lType == 13, test::text(lVar).empty()) << lVar;

        FlexVar lOther(lKind.value);
        lOther = lVar;
        EXPECT_TRUE(lKind.isDefault(lOther)) << lKind.name;
        FlexVar lSet(lVar);
        lKind.set(lSet);
        EXPECT_TRUE(isSame(lKind.value, lSet)) << lSet;
        lOther = lKind.value;
        EXPECT_TRUE(isSame(lKind.value, lOther)) << lOther;
        EXPECT_EQ(nullptr, lVar.releaseBlob());
    }
}

// Getters.

TEST(FlexVar, ReadAsAnotherTypeGivesTheDefaultAndALine) {
    const test::TraceLevel lLevel(4);
    for (const Sample& lHeld : samples()) {
        for (const Sample& lWanted : kinds()) {
            const test::LogCapture lLog;
            const bool lIsDefault = lWanted.isDefault(lHeld.value);
            EXPECT_EQ(lHeld.type != lWanted.type, lIsDefault) << lHeld.name << lWanted.name;
            if (lHeld.type == lWanted.type) {
                EXPECT_THAT(lLog.texts(), IsEmpty());
            } else {
                EXPECT_THAT(lLog.texts(), ElementsAre(mismatchLine(lWanted, lHeld)));
            }
        }
    }
}

TEST(FlexVar, ReturnsTheValuesItWasGiven) {
    EXPECT_TRUE(FlexVar(true).getBool());
    EXPECT_EQ('a', samples()[2].value.getChar());
    EXPECT_EQ(200, samples()[3].value.getUChar());
    EXPECT_EQ(-300, samples()[4].value.getShort());
    EXPECT_EQ(60000, samples()[5].value.getUShort());
    EXPECT_EQ(-70000, samples()[6].value.getInt());
    EXPECT_EQ(4000000000U, samples()[7].value.getUInt());
    EXPECT_EQ(-80000L, samples()[8].value.getLong());
    EXPECT_EQ(4100000000UL, samples()[9].value.getULong());
    EXPECT_EQ(-1.5F, samples()[10].value.getFloat());
    EXPECT_EQ(-2.25, samples()[11].value.getDouble());
    EXPECT_EQ("abc", test::plain(samples()[12].value.getCString()));
    EXPECT_EQ(L"wide", test::plain(samples()[13].value.getWString()));
    EXPECT_EQ(2008, samples()[14].value.getDateTime().year());
    EXPECT_EQ(3, samples()[15].value.getBlob()->getSize());
    EXPECT_EQ(0x01020304U, samples()[16].value.getObjectID().hash());
}

TEST(FlexVar, CopiesOutOnlyItsOwnKindAndWritesNothing) {
    const test::LogCapture lLog;
    const test::TraceLevel lLevel(9);
    for (const Sample& lHeld : samples()) {
        for (const Sample& lWanted : kinds()) {
            if (lWanted.copyOut) {
                EXPECT_EQ(lHeld.type == lWanted.type ? 0 : -1, lWanted.copyOut(lHeld.value))
                    << lHeld.name << " as " << lWanted.name;
            }
        }
    }
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(FlexVar, LeavesTheArgumentOfAFailedCopyOutAlone) {
    long lLong = 7;
    EXPECT_EQ(-1, FlexVar(5).getLong(lLong));
    EXPECT_EQ(7, lLong);
    Narrow lText("old");
    EXPECT_EQ(-1, FlexVar(5).getCString(lText));
    EXPECT_EQ("old", test::plain(lText));
    ACE_Date_Time lDate(1, 2, 3);
    EXPECT_EQ(-1, FlexVar(5).getDateTime(lDate));
    EXPECT_EQ(3, lDate.year());
}

TEST(FlexVar, CopiesItsValueOut) {
    long lLong = 7;
    EXPECT_EQ(0, FlexVar(-5L).getLong(lLong));
    EXPECT_EQ(-5, lLong);
    unsigned long lULong = 7;
    EXPECT_EQ(0, FlexVar(0xFFFFFFFFUL).getULong(lULong));
    EXPECT_EQ(0xFFFFFFFFUL, lULong);
    Narrow lText("old");
    EXPECT_EQ(0, samples()[12].value.getCString(lText));
    EXPECT_EQ("abc", test::plain(lText));
    Wide lWide;
    EXPECT_EQ(0, samples()[13].value.getWString(lWide));
    EXPECT_EQ(L"wide", test::plain(lWide));
    ObjectID lIdentifier;
    EXPECT_EQ(0, samples()[16].value.getObjectID(lIdentifier));
    EXPECT_TRUE(samples()[16].value.getObjectID() == lIdentifier);
}

// Copies, moves and assignments.

TEST(FlexVar, CopiesEveryTypeDeeply) {
    for (const Sample& lSample : samples()) {
        FlexVar lCopy(lSample.value);
        EXPECT_TRUE(isSame(lSample.value, lCopy)) << lSample.name;
        lCopy.setInt(1);
        EXPECT_EQ(lSample.type, lSample.value.getType()) << lSample.name;
    }
    const FlexVar lCopy(samples()[12].value);
    EXPECT_NE(&samples()[12].value.getCString(), &lCopy.getCString());
}

TEST(FlexVar, AssignsEveryTypeToEveryType) {
    for (const Sample& lFrom : samples()) {
        for (const Sample& lTo : samples()) {
            FlexVar lVar(lFrom.value);
            EXPECT_EQ(&lVar, &(lVar = lTo.value));
            EXPECT_TRUE(isSame(lTo.value, lVar)) << lFrom.name << " to " << lVar;
        }
    }
}

TEST(FlexVar, MovesEveryTypeAndLeavesTypeNone) {
    for (const Sample& lFrom : samples()) {
        for (const Sample& lTo : samples()) {
            FlexVar lSource(lTo.value);
            FlexVar lMoved(std::move(lSource));
            EXPECT_EQ(FlexVar::FlexVar_NoType, lSource.getType());
            FlexVar lVar(lFrom.value);
            lVar = std::move(lMoved);
            EXPECT_EQ(FlexVar::FlexVar_NoType, lMoved.getType());
            EXPECT_TRUE(isSame(lTo.value, lVar)) << lFrom.name << " to " << lVar;
        }
    }
}

TEST(FlexVar, MovesTheVeryObject) {
    FlexVar lSource(Narrow("abc"));
    const Narrow* const lText = &lSource.getCString();
    const FlexVar lMoved(std::move(lSource));
    EXPECT_EQ(lText, &lMoved.getCString());
}

TEST(FlexVar, SurvivesAssignmentToItself) {
    for (const Sample& lSample : samples()) {
        FlexVar lVar(lSample.value);
        const FlexVar& lSelf = lVar;
        lVar = lSelf;
        EXPECT_TRUE(isSame(lSample.value, lVar)) << lSample.name;
        FlexVar& lAlias = lVar;
        lVar = std::move(lAlias);
        EXPECT_TRUE(isSame(lSample.value, lVar)) << lSample.name;
    }
}

TEST(FlexVar, AssignedToItselfKeepsTheCharactersThatItBorrows) {
    static const char kText[] = "borrowed";
    FlexVar lVar;
    lVar.setCString(new ACE_CString(kText, sizeof kText - 1, nullptr, false));
    const FlexVar& lSelf = lVar;
    lVar = lSelf;
    EXPECT_EQ(kText, lVar.getCString().fast_rep());
}

TEST(FlexVar, TakesItsOwnContentAsArgument) {
    FlexVar lText(Narrow("a text that needs memory"));
    lText.setCString(lText.getCString());
    EXPECT_EQ("a text that needs memory", test::plain(lText.getCString()));
    FlexVar lWide(Wide(L"wide"));
    lWide.setWString(lWide.getWString());
    EXPECT_EQ(L"wide", test::plain(lWide.getWString()));
    FlexVar lDate(samples()[14].value);
    lDate.setDateTime(lDate.getDateTime());
    EXPECT_TRUE(isSame(samples()[14].value, lDate));
    FlexVar lBlob(samples()[15].value);
    lBlob.setBlob(*lBlob.getBlob());
    EXPECT_TRUE(isSame(samples()[15].value, lBlob));
    FlexVar lIdentifier(samples()[16].value);
    lIdentifier.setObjectID(lIdentifier.getObjectID());
    EXPECT_TRUE(isSame(samples()[16].value, lIdentifier));
}

TEST(FlexVar, TakesABlobThatBorrowsFromTheHeldString) {
    FlexVar lVar(Narrow("bytes"));
    auto* const lBytes =
        reinterpret_cast<unsigned char*>(const_cast<char*>(lVar.getCString().fast_rep()));
    lVar.setBlob(Blob(lBytes, 5, false));
    EXPECT_EQ("Size 5 [0x62 0x79 0x74 0x65 0x73 ]", test::text(lVar));
}

TEST(FlexVar, CopiesOutIntoTheHeldStringItself) {
    FlexVar lVar(Narrow("abc"));
    auto& lHeld = const_cast<Narrow&>(lVar.getCString());
    EXPECT_EQ(0, lVar.getCString(lHeld));
    EXPECT_EQ("abc", test::plain(lHeld));
}

// Blobs given away.

TEST(FlexVar, GivesItsBlobAwayWithoutALine) {
    const test::LogCapture lLog;
    const test::TraceLevel lLevel(9);
    FlexVar lVar(samples()[15].value);
    Blob* const lHeld = lVar.getBlob();
    const std::unique_ptr<Blob> lBlob(lVar.releaseBlob());
    EXPECT_EQ(lHeld, lBlob.get());
    EXPECT_EQ(FlexVar::FlexVar_NoType, lVar.getType());
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(FlexVar, HasNoBlobToGiveAwayWhenOfAnotherType) {
    const test::TraceLevel lLevel(4);
    for (const Sample& lSample : samples()) {
        if (lSample.type == FlexVar::FlexVar_Blob) {
            continue;
        }
        const test::LogCapture lLog;
        FlexVar lVar(lSample.value);
        EXPECT_EQ(nullptr, lVar.releaseBlob());
        EXPECT_TRUE(isSame(lSample.value, lVar));
        EXPECT_THAT(lLog.texts(),
                    ElementsAre("%t FlexVar::releaseBlob: It is only allowed to call this method "
                                "if it is a Blob, so do a check before you call this method!\n"
                                "Type = " +
                                std::to_string(lSample.type) + "\n"));
    }
}

// Hashes.

TEST(FlexVar, HashesIntegersAsTheyAre) {
    EXPECT_EQ(0xFFFFFFFFU, FlexVar(char(-1)).hash());
    EXPECT_EQ(255U, FlexVar(static_cast<unsigned char>(255)).hash());
    EXPECT_EQ(0xFFFF8000U, FlexVar(static_cast<short>(-32768)).hash());
    EXPECT_EQ(65535U, FlexVar(static_cast<unsigned short>(65535)).hash());
    EXPECT_EQ(0xFFFFFFFEU, FlexVar(-2).hash());
    EXPECT_EQ(4000000000U, FlexVar(4000000000U).hash());
    EXPECT_EQ(0xFFFFFFFDU, FlexVar(-3L).hash());
    EXPECT_EQ(4000000000U, FlexVar(4000000000UL).hash());
}

TEST(FlexVar, HashesFloatingNumbersTruncated) {
    EXPECT_EQ(0xFFFFFFFFU, FlexVar(-1.9F).hash());
    EXPECT_EQ(3U, FlexVar(3.99).hash());
    EXPECT_EQ(1U, FlexVar(4294967297.5).hash());
    EXPECT_EQ(0xFFFFFFFFU, FlexVar(-4294967297.0).hash());
    EXPECT_EQ(0xFFFFFC00U, FlexVar(9223372036854774784.0).hash());
}

TEST(FlexVar, HashesWhatDoesNotFitAs0) {
    for (const double lNumber :
         {1e300, -1e300, 9223372036854775808.0, std::numeric_limits<double>::infinity(),
          std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(0U, FlexVar(lNumber).hash()) << lNumber;
        EXPECT_EQ(0U, FlexVar(static_cast<float>(lNumber)).hash()) << lNumber;
    }
}

TEST(FlexVar, HashesStringsByTheirBytes) {
    const std::string lText = "a text of \xE9\xFF bytes, long enough to fold over";
    EXPECT_EQ(static_cast<std::uint32_t>(ACE::hash_pjw(lText.data(), lText.size())),
              FlexVar(narrow(lText)).hash());
    EXPECT_EQ(21450U, FlexVar(Narrow("ab")).hash());
    EXPECT_EQ(218214714U, FlexVar(narrow(lText)).hash());
    EXPECT_EQ(28080U, FlexVar(wide(L"w\x100")).hash());
    const std::wstring lWide = L"w\x100\x7FFFFFFF";
    EXPECT_EQ(static_cast<std::uint32_t>(ACE::hash_pjw(reinterpret_cast<const char*>(lWide.data()),
                                                       lWide.size() * sizeof(wchar_t))),
              FlexVar(wide(lWide)).hash());
}

TEST(FlexVar, HashesTheRestByAFieldOrNotAtAll) {
    EXPECT_EQ(59U, samples()[14].value.hash());
    EXPECT_EQ(0x01020304U, samples()[16].value.hash());
    EXPECT_EQ(0U, FlexVar().hash());
    EXPECT_EQ(0U, FlexVar(true).hash());
    EXPECT_EQ(0U, samples()[15].value.hash());
}

TEST(FlexVar, FinishesWhatItDoesWhenTheThreadIsCancelledAtALine) {
    const test::CancellingLog lLog;
    const test::TraceLevel lTrace(9);
    FlexVar lValue(1);
    EXPECT_TRUE(test::outlastsItsCancellation([&] { lValue.setCString(narrow("text")); }));
    EXPECT_EQ(narrow("text"), lValue.getCString());
    EXPECT_TRUE(test::outlastsItsCancellation([&] { EXPECT_EQ(0, lValue.getInt()); }));
    EXPECT_TRUE(test::outlastsItsCancellation([&] { lValue.dump(); }));
    EXPECT_TRUE(test::outlastsItsCancellation(
        [&] { lValue.setCString(static_cast<ACE_String_Base<char>*>(nullptr)); }));
}

TEST(FlexVar, HashesStringsAsAceDoes) {
    std::mt19937 lRandom(1);
    for (int lRound = 0; lRound < 20000; ++lRound) {
        std::string lBytes(lRandom() % 40, '\0');
        std::wstring lWide(lRandom() % 20, L'\0');
        for (char& lByte : lBytes) {
            lByte = static_cast<char>(lRandom() & 0xFF);
        }
        for (wchar_t& lCharacter : lWide) {
            lCharacter = static_cast<wchar_t>(lRandom() & 0x7FFFFFFF);
        }
        const FlexVar lNarrowValue(ACE_String_Base<char>(lBytes.data(), lBytes.size()));
        const FlexVar lWideValue(ACE_String_Base<wchar_t>(lWide.data(), lWide.size()));
        EXPECT_EQ(static_cast<unsigned int>(ACE::hash_pjw(lBytes.data(), lBytes.size())),
                  lNarrowValue.hash());
        EXPECT_EQ(static_cast<unsigned int>(ACE::hash_pjw(
                      reinterpret_cast<const char*>(lWide.data()), lWide.size() * sizeof(wchar_t))),
                  lWideValue.hash());
    }
}
