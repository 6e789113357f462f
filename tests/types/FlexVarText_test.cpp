// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cfenv>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "support/LogCapture.h"
#include "types/FlexVar.h"
#include "types/FlexVarSamples.h"

using test::isSame;
using test::narrow;
using test::Sample;
using test::samples;
using test::text;
using test::wide;
using testing::IsEmpty;

namespace {

std::wstring widened(const std::string& aText) {
    std::wstring lWide;
    for (const char lCharacter : aText) {
        lWide += static_cast<wchar_t>(static_cast<unsigned char>(lCharacter));
    }
    return lWide;
}

std::wstring wideText(const FlexVar& aValue) {
    ACE_String_Base<wchar_t> lText = wide(L"old");
    aValue.getValueAsString(lText);
    return test::plain(lText);
}

/// Parses a text in both widths, which must agree. @return the result; the value is in `aVar`.
long parse(FlexVar& aVar, const std::string& aText) {
    FlexVar lOther(aVar);
    const long lResult = aVar.setValueFromString(narrow(aText));
    EXPECT_EQ(lResult, lOther.setValueFromString(wide(widened(aText)))) << aText;
    EXPECT_EQ(text(aVar), text(lOther)) << aText;
    EXPECT_EQ(aVar.getType(), lOther.getType()) << aText;
    return lResult;
}

struct Parsed {
    long result;
    FlexVar value;
};

Parsed parsed(const FlexVar& aStart, const std::string& aText) {
    FlexVar lVar(aStart);
    const long lResult = parse(lVar, aText);
    return {lResult, lVar};
}

/// Expects that a text is taken, with this value.
void expectTaken(const FlexVar& aExpected, const FlexVar& aStart, const std::string& aText) {
    const Parsed lParsed = parsed(aStart, aText);
    EXPECT_EQ(0, lParsed.result) << aText;
    EXPECT_TRUE(isSame(aExpected, lParsed.value)) << aText << " gave " << lParsed.value;
}

/// Expects that a text is refused and the value stays.
void expectRefused(const FlexVar& aStart, const std::string& aText) {
    const Parsed lParsed = parsed(aStart, aText);
    EXPECT_EQ(-1, lParsed.result) << aText;
    EXPECT_TRUE(isSame(aStart, lParsed.value)) << aText << " gave " << lParsed.value;
}

FlexVar guessed(const std::string& aText) {
    FlexVar lVar;
    lVar.setTypeAndValue(narrow(aText));
    return lVar;
}

FlexVar date(long aDay, long aMonth, long aYear, long aHour = 0, long aMinute = 0, long aSecond = 0,
             long aMicrosecond = 0) {
    return FlexVar(ACE_Date_Time(aDay, aMonth, aYear, aHour, aMinute, aSecond, aMicrosecond));
}

FlexVar blobOf(long aSize) {
    unsigned char* const lBytes = Blob::allocate(aSize);
    for (long i = 0; i < aSize; ++i) {
        lBytes[i] = static_cast<unsigned char>(i);
    }
    return FlexVar(Blob(lBytes, aSize, true));
}

std::string hexadecimal(int aCount) {
    std::ostringstream lText;
    for (int i = 0; i < aCount; ++i) {
        lText << "0x" << std::hex << i << ' ';
    }
    return lText.str();
}

std::vector<FlexVar> integerKinds() {
    std::vector<FlexVar> lKinds;
    for (std::size_t i = FlexVar::FlexVar_Char; i <= FlexVar::FlexVar_ULong; ++i) {
        lKinds.push_back(samples()[i].value);
    }
    return lKinds;
}

/// The parser of numbers and dates by itself. @return its result; the value is in `aVar`.
long parseNumberOrDate(FlexVar& aVar, const std::string& aText) {
    FlexVar lOther(aVar);
    const long lResult = aVar.setValueFromStringCommon<ACE_String_Base<char>, char>(narrow(aText));
    EXPECT_EQ(
        lResult,
        (lOther.setValueFromStringCommon<ACE_String_Base<wchar_t>, wchar_t>(wide(widened(aText)))))
        << aText;
    EXPECT_TRUE(isSame(aVar, lOther)) << aText;
    return lResult;
}

/// @param aFormat of a number in at most 500 characters.
std::string printed(double aValue, const char* aFormat = "%f") {
    char lText[512];
    return {lText, static_cast<std::size_t>(std::snprintf(lText, sizeof lText, aFormat, aValue))};
}

/// Doubles of all sizes, and of those that "%f" does not show as mere zeros.
double randomDouble(std::mt19937_64& aRandom) {
    const std::uint64_t lBits = aRandom();
    double lValue = 0;
    std::memcpy(&lValue, &lBits, sizeof lValue);
    switch (aRandom() % 4) {
        case 0:
            return lValue;  // any bits: subnormals, infinities and NaNs among them
        case 1:             // half way between two texts
            return static_cast<double>(static_cast<std::int64_t>(lBits) >> 30) / 128;
        case 2:
            return static_cast<double>(static_cast<std::int64_t>(lBits) >> 20) / 1e6;
        default:
            return std::ldexp(static_cast<double>(static_cast<std::int64_t>(lBits)),
                              -static_cast<int>(aRandom() % 90));
    }
}

const std::vector<double>& specialDoubles() {
    using Limits = std::numeric_limits<double>;
    static const std::vector<double> lDoubles = {0.0,
                                                 -0.0,
                                                 0.5,
                                                 -0.5,
                                                 5e-7,
                                                 -5e-7,
                                                 1.5e-6,
                                                 2.5e-6,
                                                 4.9999999e-7,
                                                 0.0078125,
                                                 0.0234375,
                                                 0.9999995,
                                                 0.99999949999,
                                                 -0.99999995,
                                                 999999.9999995,
                                                 1e15,
                                                 1e16,
                                                 1e22,
                                                 1e23,
                                                 1e100,
                                                 123456789012345678.0,
                                                 4503599627370496.5,
                                                 9007199254740993.0,
                                                 Limits::max(),
                                                 Limits::lowest(),
                                                 Limits::min(),
                                                 Limits::denorm_min(),
                                                 -Limits::denorm_min(),
                                                 Limits::infinity(),
                                                 -Limits::infinity(),
                                                 Limits::quiet_NaN(),
                                                 -Limits::quiet_NaN()};
    return lDoubles;
}

/// Makes a language whose numbers have another decimal point, and takes it.
bool takeDecimalPoint(const std::string& aPoint, const std::string& aCharacters) {
    const std::string lName = "points" + std::to_string(aPoint.size());
    const std::string lFolder = testing::TempDir() + "osx_locale_" + std::to_string(getpid());
    const std::string lCommand =
        "mkdir -p " + lFolder + " && cd " + lFolder + " && printf 'LC_NUMERIC\\ndecimal_point \"" +
        aPoint + "\"\\nthousands_sep \"\"\\ngrouping -1\\nEND LC_NUMERIC\\n' > source && " +
        "(localedef --no-archive -c -i source -f " + aCharacters + " " + lFolder + "/" + lName +
        " || true) > log 2>&1";
    const bool lIsMade = std::system(lCommand.c_str()) == 0;
    setenv("LOCPATH", lFolder.c_str(), 1);
    const bool lIsTaken = lIsMade && std::setlocale(LC_NUMERIC, lName.c_str()) != nullptr;
    EXPECT_EQ(0, std::system(("rm -r " + lFolder).c_str()));
    return lIsTaken;
}

void expectPrintedAsByTheSystem(double aValue) {
    EXPECT_EQ(printed(aValue), text(FlexVar(aValue)));
}

/// Texts that are a number in part, in another notation, or not at all, and extreme ones.
const std::string kOddDoubles[] = {
    "1.5",     "+1.5",    "-1.5",   "--1.5",   "+-1.5",     ".5",       "5.",     ".",
    "-",       "+",       "e5",     "1e5",     "1E5",       "1e+5",     "1e-5",   "1e",
    "1e+",     "1.5e5.5", " 1.5",   "1.5 ",    "\t1.5",     "1,5",      "1_5",    "0x1p3",
    "0x1.8p1", "0x",      "-0",     "-0.0",    "000001.5",  "inf",      "-inf",   "INFINITY",
    "infinit", "nan",     "-nan",   "NAN(12)", "1.5f",      "1.5L",     "1e308",  "1.8e308",
    "1e400",   "-1e400",  "1e-307", "4e-324",  "2.4e-324",  "2.5e-324", "1e-400", "1e99999999999",
    "0e99999", "1 5",     "1..5",   "1.5.5",   "99999e-99", "١"};

std::uint64_t bits(double aValue) {
    std::uint64_t lBits = 0;
    std::memcpy(&lBits, &aValue, sizeof lBits);
    return lBits;
}

void expectReadAsByTheSystem(const std::string& aText) {
    char* lEnd = nullptr;
    const double lExpected = std::strtod(aText.c_str(), &lEnd);
    const bool lIsNumber = lEnd == aText.c_str() + aText.size();
    FlexVar lDouble(0.125);
    EXPECT_EQ(lIsNumber ? 0 : -1, lDouble.setValueFromString(narrow(aText))) << aText;
    EXPECT_EQ(bits(lIsNumber ? lExpected : 0.125), bits(lDouble.getDouble())) << aText;
}

}  // namespace

// Rendering.

TEST(FlexVarText, RendersEveryKind) {
    const std::string lTexts[] = {"",
                                  "true",
                                  "a",
                                  "200",
                                  "-300",
                                  "60000",
                                  "-70000",
                                  "-294967296",
                                  "-80000",
                                  "-194967296",
                                  "-1.500000",
                                  "-2.250000",
                                  "abc",
                                  "wide",
                                  "31-12-2008 23:59:58 123456",
                                  "Size 3 [0x1 0xab 0x3 ]",
                                  "01020304-0506-1708-090a-0b0c0d0e0f10"};
    for (const Sample& lSample : samples()) {
        const std::string& lExpected = lTexts[lSample.type];
        EXPECT_EQ(lExpected, text(lSample.value)) << lSample.name;
        ACE_String_Base<char> lText("old");
        lSample.value.getValueAsString(lText);
        EXPECT_EQ(lExpected, test::plain(lText)) << lSample.name;
        EXPECT_EQ(widened(lExpected), wideText(lSample.value)) << lSample.name;
    }
    EXPECT_EQ("false", text(FlexVar(false)));
}

TEST(FlexVarText, RendersANumberOfNoKindAsAnEmptyText) {
    FlexVar lVar(5);
    const int lNoKind = 17;
    std::memcpy(static_cast<void*>(&lVar), &lNoKind, sizeof lNoKind);
    ACE_String_Base<char> lText("old");
    lVar.getValueAsString(lText);
    EXPECT_EQ("", test::plain(lText));
    EXPECT_EQ(L"", wideText(lVar));
}

TEST(FlexVarText, RendersACharAsItself) {
    EXPECT_EQ("\xE9", text(FlexVar('\xE9')));
    EXPECT_EQ(L"\xE9", wideText(FlexVar('\xE9')));
    EXPECT_EQ("%", text(FlexVar('%')));
    EXPECT_EQ("", text(FlexVar('\0')));
}

TEST(FlexVarText, RendersLargeUnsignedNumbersAsNegative) {
    EXPECT_EQ("-294967296", text(FlexVar(4000000000UL)));
    EXPECT_EQ("-1", text(FlexVar(0xFFFFFFFFU)));
    EXPECT_EQ("2147483647", text(FlexVar(2147483647UL)));
}

TEST(FlexVarText, RendersFloatingNumbersWithSixDecimals) {
    EXPECT_EQ("0.333333", text(FlexVar(1.0 / 3)));
    EXPECT_EQ("0.100000", text(FlexVar(0.1F)));
    EXPECT_EQ("inf", text(FlexVar(std::numeric_limits<double>::infinity())));
    const std::string lLargest = text(FlexVar(std::numeric_limits<double>::max()));
    EXPECT_EQ(309U + 7U, lLargest.size());
    EXPECT_EQ(0U, lLargest.find("17976931348623157"));
}

TEST(FlexVarText, RendersStringsWhole) {
    const std::string lLong(5000, 'x');
    EXPECT_EQ(lLong, text(FlexVar(narrow(lLong))));
    EXPECT_EQ(lLong, text(FlexVar(wide(widened(lLong)))));
    EXPECT_EQ(widened(lLong), wideText(FlexVar(narrow(lLong))));
    const std::string lZero("a\0b", 3);
    EXPECT_EQ(lZero, text(FlexVar(narrow(lZero))));
    EXPECT_EQ("100%s%n", text(FlexVar(narrow("100%s%n"))));
}

TEST(FlexVarText, NarrowsAWideStringToTheLow8BitsOfEachCharacter) {
    EXPECT_EQ("A\xE9z", text(FlexVar(wide(L"\x141\xE9z"))));
    EXPECT_EQ("ab", text(FlexVar(wide(L"ab\x100"
                                      L"cd"))));
    EXPECT_EQ(
        L"ab\x100"
        L"cd",
        wideText(FlexVar(wide(L"ab\x100"
                              L"cd"))));
}

TEST(FlexVarText, RendersIntoTheHeldStringItself) {
    FlexVar lNarrow(narrow("abc"));
    lNarrow.getValueAsString(const_cast<ACE_String_Base<char>&>(lNarrow.getCString()));
    EXPECT_EQ("abc", text(lNarrow));
    FlexVar lWide(wide(L"abc"));
    lWide.getValueAsString(const_cast<ACE_String_Base<wchar_t>&>(lWide.getWString()));
    EXPECT_EQ("abc", text(lWide));
}

TEST(FlexVarText, PadsTheFieldsOfADate) {
    EXPECT_EQ("01-02-0003 04:05:06 000007", text(date(1, 2, 3, 4, 5, 6, 7)));
    EXPECT_EQ("00-00-0000 00:00:00 000000", text(date(0, 0, 0)));
}

TEST(FlexVarText, RendersOutlandishDatesWithoutHarm) {
    constexpr long lHighest = std::numeric_limits<int>::max();
    constexpr long lLowest = std::numeric_limits<int>::min();
    EXPECT_EQ("2147483647-2147483647-2147483647 2147483647:2147483647:2147483647 2147483647",
              text(date(lHighest, lHighest, lHighest, lHighest, lHighest, lHighest, lHighest)));
    EXPECT_EQ("-2147483648-02-2003 00:00:00 000000", text(date(lLowest, 2, 2003)));
    EXPECT_EQ("-05-02-0-03 00:00:00 000000"[0], text(date(-5, 2, -3))[0]);
}

TEST(FlexVarText, ShowsTheFirst30BytesOfABlob) {
    EXPECT_EQ("Size 0 []", text(FlexVar(Blob())));
    EXPECT_EQ("Size 2 [0x0 0x1 ]", text(blobOf(2)));
    EXPECT_EQ("Size 29 [" + hexadecimal(29) + "]", text(blobOf(29)));
    EXPECT_EQ("Size 30 [" + hexadecimal(30) + "...]", text(blobOf(30)));
    EXPECT_EQ("Size 31 [" + hexadecimal(30) + "...]", text(blobOf(31)));
    EXPECT_EQ("Size 40 [" + hexadecimal(30) + "...]", text(blobOf(40)));
}

TEST(FlexVarText, ShowsABlobWhoseBytesAreMissing) {
    FlexVar lVar;
    lVar.setBlob(new Blob(nullptr, 5, false));
    EXPECT_EQ("Size 5 []", text(lVar));
    lVar.setBlob(new Blob(nullptr, -5, false));
    EXPECT_EQ("Size -5 []", text(lVar));
}

// Parsing.

TEST(FlexVarText, TakesAnEmptyTextWithoutAChange) {
    for (const Sample& lSample : samples()) {
        expectTaken(lSample.value, lSample.value, "");
    }
}

TEST(FlexVarText, RefusesEveryTextForTypeNoneAndBlob) {
    for (const char* const lText : {"1", "true", "Size 3 [0x1 0xab 0x3 ]", "abc"}) {
        expectRefused(FlexVar(), lText);
        expectRefused(samples()[15].value, lText);
    }
}

TEST(FlexVarText, ReadsIntegersInAnyBase) {
    for (const FlexVar& lKind : integerKinds()) {
        FlexVar lDecimal(lKind);
        EXPECT_EQ(0, parse(lDecimal, "31"));
        EXPECT_EQ(31U, lDecimal.hash());
        expectTaken(lDecimal, lKind, "0x1F");
        expectTaken(lDecimal, lKind, "0X1f");
        expectTaken(lDecimal, lKind, "037");
        expectTaken(lDecimal, lKind, "+31");
        expectTaken(lDecimal, lKind, " \t31");
    }
    expectTaken(FlexVar(8), FlexVar(0), "010");
    expectTaken(FlexVar(-31L), FlexVar(0L), "-0x1F");
}

TEST(FlexVarText, RefusesWhatIsNotWhollyAnInteger) {
    for (const FlexVar& lKind : integerKinds()) {
        for (const std::string& lText :
             {std::string("12abc"), std::string("abc"), std::string(" "), std::string("-"),
              std::string("1 "), std::string("08"), std::string("0x"), std::string("0b1"),
              std::string("1.0"), std::string("1e3"), std::string("12\0", 3),
              std::string("12\0x", 4), std::string("\0", 1)}) {
            expectRefused(lKind, lText);
        }
    }
}

TEST(FlexVarText, SaturatesAt32BitsBeforeItCuts) {
    for (const char* const lText :
         {"2147483647", "2147483648", "4000000000", "99999999999999999999", "0xFFFFFFFF"}) {
        expectTaken(FlexVar(2147483647), FlexVar(0), lText);
        expectTaken(FlexVar(2147483647U), FlexVar(0U), lText);
        expectTaken(FlexVar(2147483647L), FlexVar(0L), lText);
        expectTaken(FlexVar(2147483647UL), FlexVar(0UL), lText);
        expectTaken(FlexVar(char(-1)), FlexVar(char(0)), lText);
        expectTaken(FlexVar(static_cast<unsigned char>(255)),
                    FlexVar(static_cast<unsigned char>(0)), lText);
        expectTaken(FlexVar(static_cast<short>(-1)), FlexVar(static_cast<short>(0)), lText);
        expectTaken(FlexVar(static_cast<unsigned short>(65535)),
                    FlexVar(static_cast<unsigned short>(0)), lText);
    }
    for (const char* const lText : {"-2147483648", "-2147483649", "-99999999999999999999"}) {
        expectTaken(FlexVar(std::numeric_limits<int>::min()), FlexVar(0), lText);
        expectTaken(FlexVar(2147483648U), FlexVar(0U), lText);
        expectTaken(FlexVar(2147483648UL), FlexVar(0UL), lText);
        expectTaken(FlexVar(char(0)), FlexVar('x'), lText);
    }
}

TEST(FlexVarText, ReadsNumbersOfEveryLengthAsTheSystemsConversionDoes) {
    const std::string lDigits = "123456789012";
    for (const char* lBefore : {"", "0", "00", "-", "+", "-0", " ", "0x", "x", "\t-", "9"}) {
        for (std::size_t lLength = 0; lLength <= lDigits.size(); ++lLength) {
            for (const char* lAfter : {"", "0", "8", "a", " ", "."}) {
                const std::string lText = lBefore + lDigits.substr(0, lLength) + lAfter;
                char* lEnd = nullptr;
                const long long lNumber = std::strtoll(lText.c_str(), &lEnd, 0);
                const long long lLowest = std::numeric_limits<std::int32_t>::min();
                const long long lHighest = std::numeric_limits<std::int32_t>::max();
                if (lText.empty() || *lEnd != '\0') {
                    continue;
                }
                const auto lExpected =
                    static_cast<int>(std::min(std::max(lNumber, lLowest), lHighest));
                expectTaken(FlexVar(lExpected), FlexVar(7), lText);
                expectTaken(FlexVar(static_cast<char>(lExpected)), FlexVar('c'), lText);
            }
        }
    }
}

TEST(FlexVarText, ReadsATextByItsLength) {
    // ACE's strings lend the front of a longer text as it is, without a terminator.
    const auto lFront = [](const char* aText, std::size_t aLength) {
        return ACE_String_Base<char>(aText, aLength, nullptr, false);
    };
    const auto lWideFront = [](const wchar_t* aText, std::size_t aLength) {
        return ACE_String_Base<wchar_t>(aText, aLength, nullptr, false);
    };
    FlexVar lInt(0);
    EXPECT_EQ(0, lInt.setValueFromString(lFront("0x1F99", 4)));
    EXPECT_EQ(31, lInt.getInt());
    EXPECT_EQ(0, lInt.setValueFromString(lWideFront(L"01799", 3)));
    EXPECT_EQ(15, lInt.getInt());
    EXPECT_EQ(-1, lInt.setValueFromString(lFront("0x1F", 2)));
    EXPECT_EQ(-1, lInt.setValueFromString(lFront("-1", 1)));
    FlexVar lDouble(0.0);
    EXPECT_EQ(0, lDouble.setValueFromString(lFront("1.567", 3)));
    EXPECT_EQ(1.5, lDouble.getDouble());
    EXPECT_EQ(0, lDouble.setValueFromString(lWideFront(L"2.567", 3)));
    EXPECT_EQ(2.5, lDouble.getDouble());
    FlexVar lFloat(0.0F);
    EXPECT_EQ(0, lFloat.setValueFromString(lFront("1e25", 3)));
    EXPECT_EQ(100.0F, lFloat.getFloat());
    FlexVar lDate(ACE_Date_Time(1, 1, 2000));
    EXPECT_EQ(0, lDate.setValueFromString(lFront("31-12-2008 23:59:58 123456789", 26)));
    EXPECT_EQ(123456, lDate.getDateTime().microsec());
    EXPECT_EQ(0, lDate.setValueFromString(lFront("31-12-2008 23:59:58", 17)));
    EXPECT_EQ(0, lDate.getDateTime().second());
    FlexVar lBool(false);
    EXPECT_EQ(0, lBool.setValueFromString(lFront("trueish", 4)));
    EXPECT_TRUE(lBool.getBool());
    FlexVar lGuessed;
    lGuessed.setTypeAndValue(lFront("4299", 2));
    EXPECT_EQ(42, lGuessed.getLong());
    lGuessed.setTypeAndValue(lFront("4.2599", 4));
    EXPECT_EQ(4.25, lGuessed.getDouble());
    lGuessed.setTypeAndValue(lFront("\"text\"", 5));
    EXPECT_EQ("text", text(lGuessed));
}

TEST(FlexVarText, ReadsNothingBehindAText) {
    for (const Sample& lSample : samples()) {
        for (const std::string& lText : {std::string("12"), std::string("1.5"), std::string("0x"),
                                         std::string(300, '1'), std::string("31-12-2008 2")}) {
            const std::vector<char> lExact(lText.begin(), lText.end());
            const std::vector<wchar_t> lWide(lText.begin(), lText.end());
            FlexVar lVar(lSample.value);
            lVar.setValueFromString(
                ACE_String_Base<char>(lExact.data(), lExact.size(), nullptr, false));
            lVar.setValueFromString(
                ACE_String_Base<wchar_t>(lWide.data(), lWide.size(), nullptr, false));
            EXPECT_EQ(lSample.type, lVar.getType());
            lVar.setTypeAndValue(
                ACE_String_Base<char>(lExact.data(), lExact.size(), nullptr, false));
        }
    }
}

TEST(FlexVarText, ReadsNoBinaryNumbersWhateverTheCLibrary) {
    for (const Sample& lSample : samples()) {
        if (lSample.value.isNumeric()) {
            for (const char* const lText : {"0b11", "0B11", "-0b1", " 0b0", "0b"}) {
                expectRefused(lSample.value, lText);
            }
        }
    }
    const Parsed lDate = parsed(date(1, 1, 2000), "0b-12-0b11 23:59:58 0b1111");
    EXPECT_EQ(-1, lDate.result);
    EXPECT_TRUE(isSame(date(0, 12, 0, 23, 59, 58, 0), lDate.value)) << lDate.value;
    EXPECT_EQ(0, guessed("0b11").getLong());
}

TEST(FlexVarText, ReadsIntegersAsTheSystemsConversionDoes) {
    std::mt19937 lRandom(4711);
    const std::string lParts = "00123789-+ xXaAfFgG\t";
    for (int lRound = 0; lRound < 100000; ++lRound) {
        std::string lText(1 + lRandom() % 12, '0');
        std::generate(lText.begin(), lText.end(),
                      [&] { return lParts[lRandom() % lParts.size()]; });
        char* lEnd = nullptr;
        const long long lNumber = std::strtoll(lText.c_str(), &lEnd, 0);
        FlexVar lVar(77);
        const long lResult = lVar.setValueFromString(narrow(lText));
        const bool lIsWhole = lEnd == lText.c_str() + lText.size();
        ASSERT_EQ(lIsWhole ? 0 : -1, lResult) << lText;
        const auto lClamped = std::clamp<long long>(lNumber, std::numeric_limits<int>::min(),
                                                    std::numeric_limits<int>::max());
        ASSERT_EQ(lIsWhole ? lClamped : 77, lVar.getInt()) << lText;
    }
}

TEST(FlexVarText, CutsANumberToTheWidthOfItsKind) {
    expectTaken(FlexVar(char(0x2C)), FlexVar('x'), "300");
    expectTaken(FlexVar(static_cast<unsigned char>(255)), samples()[3].value, "-1");
    expectTaken(FlexVar(static_cast<short>(-32768)), samples()[4].value, "32768");
    expectTaken(FlexVar(static_cast<unsigned short>(1)), samples()[5].value, "65537");
    expectTaken(FlexVar(4294967295U), samples()[7].value, "-1");
}

TEST(FlexVarText, ReadsFloatingNumbersWhole) {
    expectTaken(FlexVar(3.5), FlexVar(0.0), "3.5");
    expectTaken(FlexVar(-0.25F), FlexVar(0.0F), "-.25");
    expectTaken(FlexVar(1e300), FlexVar(0.0), " 1e300");
    expectTaken(FlexVar(std::numeric_limits<float>::infinity()), FlexVar(0.0F), "1e300");
    expectTaken(FlexVar(16.0), FlexVar(0.0), "0x10");
    for (const std::string& lText :
         {std::string("3.5x"), std::string("x"), std::string(" "), std::string("1.0 "),
          std::string("1,5"), std::string("1.5\0", 4)}) {
        expectRefused(FlexVar(7.0), lText);
        expectRefused(FlexVar(7.0F), lText);
    }
}

TEST(FlexVarText, ReadsOnlyTheTwoWordsAsBool) {
    expectTaken(FlexVar(true), FlexVar(false), "true");
    expectTaken(FlexVar(false), FlexVar(true), "false");
    for (const char* const lText :
         {"True", "TRUE", "true ", " true", "1", "0", "tru", "truefalse"}) {
        expectRefused(FlexVar(true), lText);
        expectRefused(FlexVar(false), lText);
    }
}

TEST(FlexVarText, TakesAnyTextAsAString) {
    for (const std::string& lText : {std::string("x"), std::string("\xE9\xFF"),
                                     std::string(5000, 'y'), std::string("a\0b", 3)}) {
        expectTaken(FlexVar(narrow(lText)), FlexVar(narrow("old")), lText);
        expectTaken(FlexVar(wide(widened(lText))), FlexVar(wide(L"old")), lText);
    }
}

TEST(FlexVarText, NarrowsAWideTextForANarrowString) {
    FlexVar lVar(narrow("old"));
    EXPECT_EQ(0, lVar.setValueFromString(wide(L"\x141\x263A")));
    EXPECT_EQ("A:", text(lVar));
    EXPECT_EQ(0, lVar.setValueFromString(wide(L"a\x100z")));
    EXPECT_EQ(std::string("a\0z", 3), text(lVar));
}

TEST(FlexVarText, TakesAWideTextForAWideStringAsItIs) {
    FlexVar lVar(wide(L"old"));
    EXPECT_EQ(0, lVar.setValueFromString(wide(L"\x141\x263A")));
    EXPECT_EQ(L"\x141\x263A", wideText(lVar));
}

TEST(FlexVarText, TakesItsOwnTextAgain) {
    FlexVar lNarrow(narrow("abc"));
    EXPECT_EQ(0, lNarrow.setValueFromString(lNarrow.getCString()));
    EXPECT_EQ("abc", text(lNarrow));
    FlexVar lWide(wide(L"abc"));
    EXPECT_EQ(0, lWide.setValueFromString(lWide.getWString()));
    EXPECT_EQ("abc", text(lWide));
    FlexVar lIdentifier(samples()[16].value);
    EXPECT_EQ(0, lIdentifier.setValueFromString(lIdentifier.getObjectID().toString()));
    EXPECT_TRUE(isSame(samples()[16].value, lIdentifier));
    FlexVar lGuessed(narrow("\"inner\""));
    lGuessed.setTypeAndValue(lGuessed.getCString());
    EXPECT_EQ("inner", text(lGuessed));
}

TEST(FlexVarText, ReadsAnIdentifierAndNeverRefuses) {
    const FlexVar lOld = samples()[16].value;
    const std::string lText = "11020304-0506-1708-090A-0b0c0d0e0f10";
    expectTaken(samples()[16].greater, lOld, lText);
    expectTaken(FlexVar(ObjectID()), lOld, "no identifier");
    expectTaken(FlexVar(ObjectID()), lOld, lText + "0");
    const Parsed lPart = parsed(lOld, "xxxxxxxx-0506-1708-090a-0b0c0d0e0f10");
    EXPECT_EQ(0, lPart.result);
    EXPECT_EQ("00000000-0506-1708-090a-0b0c0d0e0f10", text(lPart.value));
}

TEST(FlexVarText, ReadsADateByItsColumns) {
    const FlexVar lOld = samples()[14].value;
    expectTaken(date(31, 12, 2008, 23, 59, 59), lOld, "31-12-2008 23:59:59 000000");
    expectTaken(date(1, 2, 1999, 3, 4, 5, 654321), lOld, "01/02.1999x03_04_05_654321");
    expectTaken(date(10, 10, 1000, 10, 10, 10, 100000), lOld, "10-10-1000 10:10:10 100000rest");
    expectTaken(date(1, 1, -123), lOld, "01-01--123 00:00:00 000000");
}

TEST(FlexVarText, ReadsADatesFieldsInBase0) {
    const FlexVar lOld = samples()[14].value;
    expectTaken(date(7, 7, 7, 7, 7, 7, 83), lOld, "07-07-0007 07:07:07 000123");
    // 08 and 09 are no octal numbers and stop at their first digit.
    expectTaken(date(10, 10, 2008), lOld, "10-10-2008 08:09:08 000000");
    const Parsed lDay = parsed(lOld, "09-12-2008 10:00:00 000000");
    EXPECT_EQ(-1, lDay.result);
    EXPECT_TRUE(isSame(date(0, 12, 2008, 10), lDay.value)) << lDay.value;
    const Parsed lMonth = parsed(lOld, "10-08-2008 10:00:00 000000");
    EXPECT_EQ(-1, lMonth.result);
    EXPECT_TRUE(isSame(date(10, 0, 2008, 10), lMonth.value)) << lMonth.value;
}

TEST(FlexVarText, LeavesFieldsOutOfRangeAt0AndSetsTheDateAllTheSame) {
    const FlexVar lOld = samples()[14].value;
    const struct {
        std::string text;
        FlexVar value;
    } lCases[] = {
        {"32-12-2008 23:59:59 999999", date(0, 12, 2008, 23, 59, 59, 999999)},
        {"00-12-2008 23:59:59 999999", date(0, 12, 2008, 23, 59, 59, 999999)},
        {"31-13-2008 23:59:59 999999", date(31, 0, 2008, 23, 59, 59, 999999)},
        {"31-12-2008 24:59:59 999999", date(31, 12, 2008, 0, 59, 59, 999999)},
        {"31-12-2008 -1:59:59 999999", date(31, 12, 2008, 0, 59, 59, 999999)},
        {"31-12-2008 23:60:59 999999", date(31, 12, 2008, 23, 0, 59, 999999)},
        {"31-12-2008 23:59:60 999999", date(31, 12, 2008, 23, 59, 0, 999999)},
        {"31-12-2008 23:59:59 -99999", date(31, 12, 2008, 23, 59, 59, 0)},
        {"no date at all, but long enough", date(0, 0, 0)},
    };
    for (const auto& lCase : lCases) {
        const Parsed lParsed = parsed(lOld, lCase.text);
        EXPECT_EQ(-1, lParsed.result) << lCase.text;
        EXPECT_TRUE(isSame(lCase.value, lParsed.value)) << lCase.text << " gave " << lParsed.value;
    }
}

TEST(FlexVarText, ReadsMissingColumnsOfADateAs0) {
    const FlexVar lOld = samples()[14].value;
    expectTaken(date(31, 12, 2008), lOld, "31-12-2008");
    expectTaken(date(31, 12, 20), lOld, "31-12-20");
    expectTaken(date(31, 12, 0), lOld, "31-12-");
    expectTaken(date(31, 12, 2008, 2), lOld, "31-12-2008 2");
    const Parsed lParsed = parsed(lOld, "31");
    EXPECT_EQ(-1, lParsed.result);
    EXPECT_TRUE(isSame(date(31, 0, 0), lParsed.value)) << lParsed.value;
}

TEST(FlexVarText, ParsesWithoutALine) {
    const test::LogCapture lLog;
    const test::TraceLevel lLevel(9);
    for (const Sample& lSample : samples()) {
        FlexVar lVar(lSample.value);
        for (const char* const lText : {"", "1", "true", "31-12-2008 23:59:59 000000", "x"}) {
            parse(lVar, lText);
            EXPECT_EQ(lSample.type, lVar.getType());
        }
    }
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

// Guessing.

TEST(FlexVarText, GuessesWideStringsFirst) {
    EXPECT_TRUE(isSame(FlexVar(wide(L"abc")), guessed("L\"abc\"")));
    EXPECT_TRUE(isSame(FlexVar(wide(L"abc")), guessed("L\"abc")));
    EXPECT_TRUE(isSame(FlexVar(wide(L"")), guessed("L\"\"")));
    EXPECT_TRUE(isSame(FlexVar(wide(L"")), guessed("L\"")));
    EXPECT_TRUE(isSame(FlexVar(wide(L"\xE9 true 3.5")), guessed("x = L\"\xE9 true 3.5\" rest")));
    EXPECT_TRUE(isSame(FlexVar(wide(L" and ")), guessed("\"a\" or L\" and \"")));
}

TEST(FlexVarText, GuessesNarrowStringsNext) {
    EXPECT_TRUE(isSame(FlexVar(narrow("abc")), guessed("\"abc\"")));
    EXPECT_TRUE(isSame(FlexVar(narrow("abc")), guessed("\"abc")));
    EXPECT_TRUE(isSame(FlexVar(narrow("")), guessed("\"")));
    EXPECT_TRUE(isSame(FlexVar(narrow("3.5 true")), guessed("say \"3.5 true\" false")));
}

TEST(FlexVarText, GuessesADoubleFromAPoint) {
    EXPECT_TRUE(isSame(FlexVar(3.5), guessed("3.5")));
    EXPECT_TRUE(isSame(FlexVar(3.5), guessed("3.5 true")));
    EXPECT_TRUE(isSame(FlexVar(0.0), guessed("true.")));
    EXPECT_TRUE(isSame(FlexVar(0.0), guessed(".")));
    EXPECT_TRUE(isSame(FlexVar(-1.25), guessed(" -1.25abc")));
}

TEST(FlexVarText, GuessesABoolFromItsWordAnywhere) {
    EXPECT_TRUE(isSame(FlexVar(true), guessed("true")));
    EXPECT_TRUE(isSame(FlexVar(true), guessed("untrue 5")));
    EXPECT_TRUE(isSame(FlexVar(true), guessed("false or true")));
    EXPECT_TRUE(isSame(FlexVar(false), guessed("false")));
    EXPECT_TRUE(isSame(FlexVar(0L), guessed("TRUE")));
}

TEST(FlexVarText, GuessesALongOtherwise) {
    EXPECT_TRUE(isSame(FlexVar(42L), guessed("42")));
    EXPECT_TRUE(isSame(FlexVar(-42L), guessed("-42x")));
    EXPECT_TRUE(isSame(FlexVar(0L), guessed("0x10")));
    EXPECT_TRUE(isSame(FlexVar(10L), guessed("010")));
    EXPECT_TRUE(isSame(FlexVar(0L), guessed("")));
    EXPECT_TRUE(isSame(FlexVar(0L), guessed("abc")));
    EXPECT_TRUE(isSame(FlexVar(2147483647L), guessed("4000000000")));
    EXPECT_TRUE(isSame(FlexVar(-2147483647L - 1), guessed("-4000000000")));
}

TEST(FlexVarText, GuessesFromEveryTypeAndTracesTheChange) {
    const test::TraceLevel lLevel(4);
    for (const Sample& lFrom : samples()) {
        const test::LogCapture lLog;
        FlexVar lVar(lFrom.value);
        lVar.setTypeAndValue(narrow("\"abc\""));
        EXPECT_TRUE(isSame(FlexVar(narrow("abc")), lVar)) << lFrom.name;
        EXPECT_EQ(lFrom.type == FlexVar::FlexVar_CString ? 0U : 1U, lLog.lines().size());
    }
}

// The log.

TEST(FlexVarText, DumpsTypeAndValueInThreeEntriesAtAnyLevel) {
    const test::TraceLevel lLevel(0, false);
    for (const Sample& lSample : samples()) {
        const test::LogCapture lLog;
        lSample.value.dump();
        const auto lLines = lLog.lines();
        ASSERT_EQ(3U, lLines.size());
        EXPECT_EQ("FlexVar::dump: mType[" + test::plain(lSample.value.getTypeName()) + "] ",
                  lLines[0].text);
        EXPECT_EQ(text(lSample.value) + " ", lLines[1].text);
        EXPECT_EQ("\n", lLines[2].text);
        for (const test::LogLine& lLine : lLines) {
            EXPECT_EQ(LM_ERROR, lLine.priority);
            EXPECT_EQ("FlexVar.cpp", lLine.module);
        }
    }
}

TEST(FlexVarText, DumpsATextThatLooksLikeAFormat) {
    const test::LogCapture lLog;
    FlexVar(narrow("100%a %s%n%p")).dump();
    ASSERT_EQ(3U, lLog.lines().size());
    EXPECT_EQ("100%a %s%n%p ", lLog.lines()[1].text);
}

TEST(FlexVarText, DumpsATextLongerThanALogLine) {
    const test::LogCapture lLog;
    const std::string lText(100000, 'x');
    FlexVar(narrow(lText)).dump();
    ASSERT_EQ(3U, lLog.lines().size());
    EXPECT_LE(4000U, lLog.lines()[1].text.size());
    EXPECT_EQ(std::string::npos, lLog.lines()[1].text.find_first_not_of("x "));
}

// Round trips.

TEST(FlexVarText, ReadsBackTheIntegersThatItWrites) {
    std::mt19937 lRandom(1U);
    for (int i = 0; i < 2000; ++i) {
        const auto lNumber = static_cast<unsigned int>(lRandom()) >> (i % 32);
        for (const FlexVar& lValue :
             {FlexVar(static_cast<unsigned char>(lNumber)), FlexVar(static_cast<short>(lNumber)),
              FlexVar(static_cast<unsigned short>(lNumber)), FlexVar(static_cast<int>(lNumber)),
              FlexVar(lNumber), FlexVar(static_cast<long>(static_cast<int>(lNumber))),
              FlexVar(static_cast<unsigned long>(lNumber))}) {
            FlexVar lStart(lValue);
            lStart++;
            expectTaken(lValue, lStart, text(lValue));
        }
    }
}

TEST(FlexVarText, ReadsBackTheFloatingNumbersThatItWrites) {
    std::mt19937 lRandom(2U);
    for (int i = 0; i < 2000; ++i) {
        // Multiples of 1/64 have at most six decimals.
        const double lNumber = static_cast<int>(lRandom()) / 64.0;
        expectTaken(FlexVar(lNumber), FlexVar(0.0), text(FlexVar(lNumber)));
        const float lFloat = static_cast<float>(static_cast<short>(lRandom())) / 64.0F;
        expectTaken(FlexVar(lFloat), FlexVar(0.0F), text(FlexVar(lFloat)));
        // Any other number gives the same text again.
        const FlexVar lThird(lNumber / 3);
        FlexVar lRead(0.0);
        parse(lRead, text(lThird));
        EXPECT_EQ(text(lThird), text(lRead));
    }
}

TEST(FlexVarText, ReadsBackTheStringsThatItWrites) {
    std::mt19937 lRandom(3U);
    for (int i = 0; i < 500; ++i) {
        std::string lText(1 + lRandom() % 600, ' ');
        for (char& lCharacter : lText) {
            lCharacter = static_cast<char>(1 + lRandom() % 255);
        }
        const FlexVar lNarrow(narrow(lText));
        expectTaken(lNarrow, FlexVar(narrow("old")), text(lNarrow));
        const FlexVar lWide(wide(widened(lText)));
        expectTaken(lWide, FlexVar(wide(L"old")), text(lWide));
    }
}

TEST(FlexVarText, ReadsBackTheDatesThatItWritesWithoutOctalTraps) {
    // Below 8, or without a leading zero, a column reads alike in bases 8 and 10.
    auto lPlain = [lRandom = std::mt19937(4U)](long aLowest, long aHighest,
                                               long aFirstWithoutZero) mutable {
        const long lNumber =
            aLowest +
            static_cast<long>(lRandom() % static_cast<unsigned long>(aHighest - aLowest + 1));
        return lNumber >= 8 && lNumber < aFirstWithoutZero ? 7 : lNumber;
    };
    for (int i = 0; i < 2000; ++i) {
        const FlexVar lDate =
            date(lPlain(1, 31, 10), lPlain(1, 12, 10), lPlain(0, 9999, 1000), lPlain(0, 23, 10),
                 lPlain(0, 59, 10), lPlain(0, 59, 10), lPlain(0, 999999, 100000));
        expectTaken(lDate, samples()[14].value, text(lDate));
    }
}

TEST(FlexVarText, ReadsBackTheIdentifiersAndBoolsThatItWrites) {
    std::mt19937 lRandom(5U);
    for (int i = 0; i < 1000; ++i) {
        unsigned char lBytes[16];
        for (unsigned char& lByte : lBytes) {
            lByte = static_cast<unsigned char>(lRandom());
        }
        ObjectID lIdentifier;
        lIdentifier.setData(lBytes, sizeof lBytes);
        const FlexVar lValue(lIdentifier);
        expectTaken(lValue, samples()[16].value, text(lValue));
    }
    for (const bool lValue : {false, true}) {
        expectTaken(FlexVar(lValue), FlexVar(!lValue), text(FlexVar(lValue)));
    }
}

TEST(FlexVarText, TheParserOfNumbersAndDatesLeavesTheOtherKindsToItsCaller) {
    for (const Sample& lSample : samples()) {
        FlexVar lValue(lSample.value);
        if (lValue.isNumeric()) {
            EXPECT_EQ(parseNumberOrDate(lValue, "5"), 0) << lSample.name;
            EXPECT_EQ(parseNumberOrDate(lValue, "5x"), -1) << lSample.name;
        } else if (!lValue.isDate()) {
            EXPECT_EQ(parseNumberOrDate(lValue, "5"), 1) << lSample.name;
            EXPECT_TRUE(isSame(lValue, lSample.value)) << lSample.name;
        }
        EXPECT_EQ(lValue.getType(), lSample.type);
    }
    FlexVar lDate = samples()[14].value;
    EXPECT_EQ(parseNumberOrDate(lDate, "31-12-2008 23:59:59 000000"), 0);
    EXPECT_EQ(text(lDate), "31-12-2008 23:59:59 000000");
    EXPECT_EQ(parseNumberOrDate(lDate, "32-12-2008 23:59:59 000000"), -1);
}

TEST(FlexVarText, PrintsDoublesAsTheSystemDoes) {
    constexpr int kValues = 200000;
    std::mt19937_64 lRandom(1);
    std::for_each(specialDoubles().begin(), specialDoubles().end(), expectPrintedAsByTheSystem);
    for (int lCount = 0; lCount < kValues && !testing::Test::HasFailure(); ++lCount) {
        const double lValue = randomDouble(lRandom);
        expectPrintedAsByTheSystem(lValue);
        const float lFloat = static_cast<float>(std::fmod(lValue, 1e30));
        EXPECT_EQ(printed(static_cast<double>(lFloat)), text(FlexVar(lFloat)));
    }
}

TEST(FlexVarText, PrintsDoublesInTheRoundingOfTheThread) {
    for (const int lRounding : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO, FE_TONEAREST}) {
        ASSERT_EQ(0, std::fesetround(lRounding));
        std::for_each(specialDoubles().begin(), specialDoubles().end(), expectPrintedAsByTheSystem);
    }
}

TEST(FlexVarText, PrintsDoublesWithTheDecimalPointOfTheLanguage) {
    if (!takeDecimalPoint(",", "ANSI_X3.4-1968")) {
        GTEST_SKIP() << "no language with another decimal point could be made";
    }
    EXPECT_EQ("1,500000", text(FlexVar(1.5)));
    EXPECT_EQ("-0,250000", text(FlexVar(-0.25F)));
    std::for_each(specialDoubles().begin(), specialDoubles().end(), expectPrintedAsByTheSystem);
}

TEST(FlexVarText, PrintsDoublesWithADecimalPointOfSeveralBytes) {
    if (!takeDecimalPoint("<U066B>", "UTF-8")) {
        GTEST_SKIP() << "no language with such a decimal point could be made";
    }
    EXPECT_EQ(
        "1\xD9\xAB"
        "500000",
        text(FlexVar(1.5)));
    std::for_each(specialDoubles().begin(), specialDoubles().end(), expectPrintedAsByTheSystem);
}

TEST(FlexVarText, ReadsDoublesAsTheSystemDoes) {
    constexpr int kValues = 100000;
    std::for_each(std::begin(kOddDoubles), std::end(kOddDoubles), expectReadAsByTheSystem);
    std::mt19937_64 lRandom(2);
    for (int lCount = 0; lCount < kValues && !testing::Test::HasFailure(); ++lCount) {
        const double lValue = randomDouble(lRandom);
        for (const char* lFormat : {"%.3g", "%.17g", "%.25e", "%f"}) {
            expectReadAsByTheSystem(printed(lValue, lFormat));
        }
        expectReadAsByTheSystem(std::to_string(lRandom() >> 11) + "e" +
                                std::to_string(lRandom() % 30));
    }
}

TEST(FlexVarText, ReadsDoublesInTheRoundingOfTheThread) {
    for (const int lRounding : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO, FE_TONEAREST}) {
        ASSERT_EQ(0, std::fesetround(lRounding));
        std::for_each(std::begin(kOddDoubles), std::end(kOddDoubles), expectReadAsByTheSystem);
    }
}

TEST(FlexVarText, ReadsDoublesWithTheDecimalPointOfTheLanguage) {
    if (!takeDecimalPoint(",", "ANSI_X3.4-1968")) {
        GTEST_SKIP() << "no language with another decimal point could be made";
    }
    expectReadAsByTheSystem("1,5");
    std::for_each(std::begin(kOddDoubles), std::end(kOddDoubles), expectReadAsByTheSystem);
}
