// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What a FlexVar is when memory is short.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include "ace/Malloc_Allocator.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "types/FlexVar.h"
#include "types/FlexVarSamples.h"

using test::isSame;
using test::narrow;
using test::Sample;
using test::samples;
using test::wide;

namespace {

constexpr int kAllocationsOfACopy = 2;  // at most: the object and what it holds

std::vector<Sample> objectKinds() {
    return {samples().begin() + FlexVar::FlexVar_CString, samples().end()};
}

const std::string kLong(300, 'x');

}  // namespace

TEST(FlexVarMemory, CopiesToTypeNoneWhenTheObjectCannotBeCopied) {
    for (const Sample& lSample : objectKinds()) {
        for (int lAllowed = 0; lAllowed < kAllocationsOfACopy; ++lAllowed) {
            errno = 0;
            const test::FailingAllocator lFailing(lAllowed);
            const FlexVar lCopy(lSample.value);
            if (lFailing.failures() == 0) {
                EXPECT_TRUE(isSame(lSample.value, lCopy)) << lSample.name;
            } else {
                EXPECT_EQ(FlexVar::FlexVar_NoType, lCopy.getType()) << lSample.name;
                EXPECT_EQ(ENOMEM, errno) << lSample.name;
            }
        }
    }
}

TEST(FlexVarMemory, IsConstructedAsTypeNoneFromAStringThatCannotBeCopied) {
    const ACE_String_Base<char> lText = narrow(kLong);
    const ACE_String_Base<wchar_t> lWide(L"wide");
    const test::FailingAllocator lFailing;
    EXPECT_EQ(FlexVar::FlexVar_NoType, FlexVar(lText).getType());
    EXPECT_EQ(FlexVar::FlexVar_NoType, FlexVar(lWide).getType());
    EXPECT_EQ(2, lFailing.failures());
}

TEST(FlexVarMemory, HeldStringTakesATextOfItsLengthWithoutMemory) {
    const ACE_String_Base<char> lText = narrow("new");
    const ACE_String_Base<wchar_t> lWide(L"new");
    FlexVar lVar(narrow("old"));
    FlexVar lWideVar(wide(L"old"));
    FlexVar lCopy(lVar);
    {
        const test::FailingAllocator lFailing;
        lVar.setCString(lText);
        lWideVar.setWString(lWide);
        lCopy = lVar;
        EXPECT_EQ(0, lFailing.failures());
    }
    EXPECT_EQ("new", test::text(lVar));
    EXPECT_EQ("new", test::text(lWideVar));
    EXPECT_EQ("new", test::text(lCopy));
}

TEST(FlexVarMemory, HeldStringOutgrowsAndShrinksLikeAnyOther) {
    FlexVar lVar(narrow("short"));
    const ACE_String_Base<char>* const lHeld = &lVar.getCString();
    const FlexVar lCopy(lVar);
    lVar += lVar;
    EXPECT_EQ("shortshort", test::text(lVar));
    lVar.setCString(narrow(kLong));
    EXPECT_EQ(kLong, test::text(lVar));
    lVar.setCString(narrow(""));
    EXPECT_EQ("", test::text(lVar));
    lVar += lCopy;
    EXPECT_EQ("short", test::text(lVar));
    EXPECT_EQ(lHeld, &lVar.getCString());
    lVar.setCString(new ACE_String_Base<char>("given"));
    EXPECT_EQ("given", test::text(FlexVar(lVar)));
    EXPECT_EQ("short", test::text(lCopy));
}

TEST(FlexVarMemory, CopyOfAStringOutlivesIt) {
    ACE_String_Base<char> lText;
    ACE_String_Base<wchar_t> lWide;
    {
        const FlexVar lVar(narrow(kLong));
        const FlexVar lWideVar(wide(L"wide"));
        lText = lVar.getCString();
        lWide = ACE_String_Base<wchar_t>(lWideVar.getWString());
    }
    EXPECT_EQ(kLong, test::plain(lText));
    EXPECT_EQ(L"wide", test::plain(lWide));
}

TEST(FlexVarMemory, KeepsItsValueWhenASetterCannotCopy) {
    for (const Sample& lFrom : samples()) {
        for (const Sample& lTo : objectKinds()) {
            if (lFrom.type == lTo.type) {
                continue;
            }
            FlexVar lSet(lFrom.value);
            FlexVar lAssigned(lFrom.value);
            {
                const test::FailingAllocator lFailing;
                lTo.set(lSet);
                lAssigned = lTo.value;
                EXPECT_LE(2, lFailing.failures());
            }
            EXPECT_TRUE(isSame(lFrom.value, lSet)) << lFrom.name << " to " << lTo.name;
            EXPECT_TRUE(isSame(lFrom.value, lAssigned)) << lFrom.name << " to " << lTo.name;
        }
    }
}

TEST(FlexVarMemory, WritesNoChangeThatDidNotHappen) {
    const test::LogCapture lLog;
    const test::TraceLevel lLevel(4);
    FlexVar lVar(5);
    const ObjectID lIdentifier;
    {
        const test::FailingAllocator lFailing;
        lVar.setObjectID(lIdentifier);
    }
    EXPECT_EQ(5, lVar.getInt());
    EXPECT_THAT(lLog.lines(), testing::IsEmpty());
}

TEST(FlexVarMemory, KeepsAHeldStringThatCannotGrow) {
    const ACE_String_Base<char> lLong = narrow(kLong);
    const FlexVar lLongVar(lLong);
    FlexVar lVar(narrow("old"));
    {
        const test::FailingAllocator lFailing;
        lVar.setCString(lLong);
        lVar = lLongVar;
        lVar += lLongVar;
        EXPECT_EQ(-1, lVar.setValueFromString(lLong));
    }
    EXPECT_EQ("old", test::text(lVar));
}

TEST(FlexVarMemory, AMoveThatFindsNoMemoryChangesNothing) {
    FlexVar lVar(narrow("old"));
    FlexVar lSource(narrow(kLong));
    const ACE_String_Base<char>* const lHeld = &lVar.getCString();
    {
        const test::FailingAllocator lFailing;
        errno = 0;
        lVar = std::move(lSource);
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ("old", test::text(lVar));
    EXPECT_EQ(kLong, test::text(lSource));
    EXPECT_EQ(lHeld, &lVar.getCString());
}

TEST(FlexVarMemory, SaysThatATextOfTheHeldOnesLengthFoundNoMemory) {
    FlexVar lVar;
    lVar.setCString(new ACE_String_Base<char>("lent", 4, nullptr, false));
    const ACE_String_Base<char> lText = narrow("text");
    const test::FailingAllocator lFailing;
    EXPECT_EQ(-1, lVar.setValueFromString(lText));
}

TEST(FlexVarMemory, KeepsItsValueWhenATextCannotBeConverted) {
    const ACE_String_Base<wchar_t> lWide = wide(std::wstring(300, L'x'));
    const ACE_String_Base<char> lQuoted = narrow("\"" + kLong + "\"");
    FlexVar lText(narrow("old"));
    FlexVar lIdentifier(samples()[16].value);
    {
        const test::FailingAllocator lFailing;
        EXPECT_EQ(-1, lText.setValueFromString(lWide));
        EXPECT_EQ(-1, lIdentifier.setValueFromString(lWide));
        lText.setTypeAndValue(lQuoted);
        lIdentifier.setTypeAndValue(lQuoted);
    }
    EXPECT_EQ("old", test::text(lText));
    EXPECT_TRUE(isSame(samples()[16].value, lIdentifier));
}

TEST(FlexVarMemory, KeepsItsValueWhenALongNumberCannotBeRead) {
    // With a sign that the C library alone reads, which wants a terminator.
    const ACE_String_Base<char> lNumber = narrow("+1." + std::string(300, '0'));
    FlexVar lDouble(2.5);
    FlexVar lInt(5);
    {
        const test::FailingAllocator lFailing;
        EXPECT_EQ(-1, lDouble.setValueFromString(lNumber));
        lInt.setTypeAndValue(lNumber);
    }
    EXPECT_EQ(2.5, lDouble.getDouble());
    EXPECT_EQ(5, lInt.getInt());
    EXPECT_EQ(0, lDouble.setValueFromString(lNumber));
    EXPECT_EQ(1.0, lDouble.getDouble());
}

TEST(FlexVarMemory, RendersNothingWhenMemoryIsShort) {
    ACE_String_Base<char> lOut("old");
    ACE_String_Base<wchar_t> lWideOut(L"old");
    const FlexVar lVar(narrow(kLong));
    std::size_t lReturned = 1;
    {
        const test::FailingAllocator lFailing;
        lVar.getValueAsString(lOut);
        lVar.getValueAsString(lWideOut);
        lReturned = lVar.getValueAsString().length();
    }
    EXPECT_EQ("old", test::plain(lOut));
    EXPECT_EQ(L"", test::plain(lWideOut));
    EXPECT_EQ(0U, lReturned);
}

TEST(FlexVarMemory, NamesItsTypeByAnEmptyTextWhenMemoryIsShort) {
    std::size_t lLength = 1;
    {
        const test::FailingAllocator lFailing;
        const ACE_String_Base<char> lName = FlexVar(5).getTypeName();
        lLength = lName.length() + (lName.c_str() == nullptr ? 1 : 0);
    }
    EXPECT_EQ(0U, lLength);
}

TEST(FlexVarMemory, SurvivesAFailureAtEveryAllocationOfALongRun) {
    const ACE_String_Base<char> lText = narrow("L\"" + kLong + "\"");
    bool lFailed = true;
    for (int lAllowed = 0; lFailed && lAllowed < 1000; ++lAllowed) {
        const test::FailingAllocator lFailing(lAllowed, true);
        for (const Sample& lFrom : samples()) {
            FlexVar lVar(lFrom.value);
            lVar.setTypeAndValue(lText);
            lVar += lVar;
            lVar = lFrom.value;
            lVar.setValueFromString(lVar.getValueAsString());
            const FlexVar lMoved(std::move(lVar));
            lMoved.hash();
        }
        lFailed = lFailing.failures() > 0;
    }
    EXPECT_FALSE(lFailed) << "the run never came through";
}

namespace {

/// An application's own allocator, which may be gone before the FlexVar is.
class Arena : public ACE_New_Allocator {
public:
    void* malloc(std::size_t aSize) override {
        ++mPieces;
        return ACE_New_Allocator::malloc(aSize);
    }
    void free(void* aMemory) override {
        --mPieces;
        ACE_New_Allocator::free(aMemory);
    }
    int pieces() const { return mPieces; }

private:
    int mPieces = 0;
};

void setString(FlexVar& aVar, const ACE_String_Base<char>& aText) {
    aVar.setCString(aText);
}
void setString(FlexVar& aVar, const ACE_String_Base<wchar_t>& aText) {
    aVar.setWString(aText);
}
void holdString(FlexVar& aVar, ACE_String_Base<char>* aText) {
    aVar.setCString(aText);
}
void holdString(FlexVar& aVar, ACE_String_Base<wchar_t>* aText) {
    aVar.setWString(aText);
}

template <class Character>
void expectTextsOfItsOwn(const ACE_String_Base<Character>& aOld,
                         const ACE_String_Base<Character>& aNew) {
    using String = ACE_String_Base<Character>;
    Arena lArena;
    const auto lFromArena = [&] { return String(aNew.fast_rep(), aNew.length(), &lArena); };

    FlexVar lSet(aOld);
    setString(lSet, lFromArena());
    EXPECT_EQ(0, lArena.pieces());
    EXPECT_TRUE(isSame(FlexVar(aNew), lSet));

    FlexVar lSource;
    holdString(lSource, new String(lFromArena()));
    FlexVar lAssigned(aOld);
    lAssigned = lSource;
    EXPECT_EQ(1, lArena.pieces());
    EXPECT_TRUE(isSame(FlexVar(aNew), lAssigned));

    FlexVar lMoved(aOld);
    lMoved = std::move(lSource);
    EXPECT_EQ(0, lArena.pieces());
    EXPECT_TRUE(isSame(FlexVar(aNew), lMoved));
}

}  // namespace

TEST(FlexVarMemory, HeldStringTakesNoAllocatorOver) {
    expectTextsOfItsOwn(narrow("old"), narrow(kLong));
    expectTextsOfItsOwn(wide(L"old"), wide(L"longer than the old one"));
}
