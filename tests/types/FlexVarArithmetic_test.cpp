// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include "support/LogCapture.h"
#include "types/FlexVar.h"
#include "types/FlexVarSamples.h"

using test::isSame;
using test::narrow;
using test::Sample;
using test::samples;
using test::wide;

namespace {

using Binary = FlexVar (FlexVar::*)(const FlexVar&) const noexcept;
using InPlace = FlexVar& (FlexVar::*)(const FlexVar&) noexcept;

const std::vector<std::pair<std::string, Binary>> kBinaries = {
    {"+", &FlexVar::operator+ },
     {"-", &FlexVar::operator- }, {"*", &FlexVar::operator* }, {"/", &FlexVar::operator/ } };

bool isNumeric(const Sample& aSample) {
    return aSample.type >= FlexVar::FlexVar_Char && aSample.type <= FlexVar::FlexVar_Double;
}

FlexVar::Type promoted(FlexVar::Type aType) {
    return aType < FlexVar::FlexVar_Int ? FlexVar::FlexVar_Int : aType;
}

/// What an operator does to two integers, computed in 64 bits and cut to the type afterwards.
template <class Result>
Result expected(const std::string& aOperator, std::int64_t aLeft, std::int64_t aRight) {
    std::int64_t lWide = 0;
    if (aOperator == "/") {
        lWide = aLeft / aRight;
    } else {
        const auto lLeft = static_cast<std::uint64_t>(aLeft);
        const auto lRight = static_cast<std::uint64_t>(aRight);
        lWide = static_cast<std::int64_t>(aOperator == "+"   ? lLeft + lRight
                                          : aOperator == "-" ? lLeft - lRight
                                                             : lLeft * lRight);
    }
    return static_cast<Result>(lWide);
}

/// Numbers at the edges of the type and some in between.
template <class Number>
std::vector<Number> interesting() {
    using Limits = std::numeric_limits<Number>;
    std::mt19937 lRandom(20081231U);
    std::vector<Number> lNumbers = {
        Limits::min(),           Limits::max(),           Number(0), Number(1), Number(2),
        static_cast<Number>(-1), static_cast<Number>(100)};
    for (int i = 0; i < 20; ++i) {
        lNumbers.push_back(static_cast<Number>(lRandom()));
    }
    return lNumbers;
}

/// Runs all operators on a kind of `Value`, whose interface type is `Argument`, with results of a
/// kind of `Result`.
template <class Value, class Argument, class Result>
void checkIntegers(int (FlexVar::*aGetter)(Argument&) const noexcept,
                   int (FlexVar::*aResultGetter)(Result&) const noexcept) {
    using Cut = std::conditional_t<std::is_signed_v<Result>, std::int32_t, std::uint32_t>;
    for (const Value lLeft : interesting<Value>()) {
        for (const Value lRight : interesting<Value>()) {
            const FlexVar lFirst{Argument(lLeft)};
            const FlexVar lSecond{Argument(lRight)};
            for (const auto& [lName, lOperator] : kBinaries) {
                if (lName == "/" && lRight == 0) {
                    continue;
                }
                Result lResult = 0;
                ASSERT_EQ(0, ((lFirst.*lOperator)(lSecond).*aResultGetter)(lResult));
                EXPECT_EQ(Result(expected<Cut>(lName, lLeft, lRight)), lResult)
                    << lFirst << lName << lSecond;
            }
            Argument lOut = 0;
            FlexVar lSum(lFirst);
            lSum += lSecond;
            ASSERT_EQ(0, (lSum.*aGetter)(lOut));
            EXPECT_EQ(Argument(expected<Value>("+", lLeft, lRight)), lOut) << lFirst << lSecond;
            FlexVar lDifference(lFirst);
            lDifference -= lSecond;
            ASSERT_EQ(0, (lDifference.*aGetter)(lOut));
            EXPECT_EQ(Argument(expected<Value>("-", lLeft, lRight)), lOut) << lFirst << lSecond;
        }
        Argument lOut = 0;
        FlexVar lStepped{Argument(lLeft)};
        EXPECT_EQ(&lStepped, &lStepped++);
        ASSERT_EQ(0, (lStepped.*aGetter)(lOut));
        EXPECT_EQ(Argument(expected<Value>("+", lLeft, 1)), lOut);
        EXPECT_EQ(&lStepped, &lStepped--);
        EXPECT_EQ(&lStepped, &lStepped--);
        ASSERT_EQ(0, (lStepped.*aGetter)(lOut));
        EXPECT_EQ(Argument(expected<Value>("-", lLeft, 1)), lOut);
    }
}

template <class Number>
void checkFloating(Number (FlexVar::*aGetter)() const noexcept) {
    const Number lNumbers[] = {Number(0), Number(-1.5), Number(3.25), Number(1) / 3, Number(1e30)};
    for (const Number lLeft : lNumbers) {
        for (const Number lRight : lNumbers) {
            const FlexVar lFirst(lLeft);
            const FlexVar lSecond(lRight);
            const volatile Number lSum = lLeft + lRight;
            const volatile Number lDifference = lLeft - lRight;
            const volatile Number lProduct = lLeft * lRight;
            EXPECT_EQ(lSum, ((lFirst + lSecond).*aGetter)());
            EXPECT_EQ(lDifference, ((lFirst - lSecond).*aGetter)());
            EXPECT_EQ(lProduct, ((lFirst * lSecond).*aGetter)());
            if (lRight != 0) {
                const volatile Number lQuotient = lLeft / lRight;
                EXPECT_EQ(lQuotient, ((lFirst / lSecond).*aGetter)());
            }
            FlexVar lChanged(lFirst);
            EXPECT_EQ(lSum, ((lChanged += lSecond).*aGetter)());
            lChanged = lFirst;
            EXPECT_EQ(lDifference, ((lChanged -= lSecond).*aGetter)());
        }
    }
}

#if defined(__x86_64__) || defined(__i386__)
bool hasFusedArithmetic() {
    return __builtin_cpu_supports("fma") != 0;
}
#define OSX_TEST_FUSING __attribute__((target("fma")))
#else
bool hasFusedArithmetic() {
    return true;
}
#define OSX_TEST_FUSING
#endif

double productLess(double aLeft, double aRight, double aSum) {
    return (FlexVar(aLeft) * FlexVar(aRight) - FlexVar(aSum)).getDouble();
}

/// As programs compute that are built for one kind of processor.
OSX_TEST_FUSING double fusedProductLess(double aLeft, double aRight, double aSum) {
    return (FlexVar(aLeft) * FlexVar(aRight) - FlexVar(aSum)).getDouble();
}

}  // namespace

TEST(FlexVarArithmetic, GivesTypeNoneUnlessBothAreOfOneNumericKind) {
    for (const auto& [lName, lOperator] : kBinaries) {
        for (const Sample& lLeft : samples()) {
            for (const Sample& lRight : samples()) {
                const bool lFits = lLeft.type == lRight.type && isNumeric(lLeft);
                EXPECT_EQ(lFits ? promoted(lLeft.type) : FlexVar::FlexVar_NoType,
                          (lLeft.value.*lOperator)(lRight.value).getType())
                    << lLeft.name << lName << lRight.name;
            }
        }
    }
}

TEST(FlexVarArithmetic, InPlaceLeavesUnfitOperandsAlone) {
    for (const Sample& lLeft : samples()) {
        for (const Sample& lRight : samples()) {
            FlexVar lSum(lLeft.value);
            EXPECT_EQ(&lSum, &(lSum += lRight.value));
            EXPECT_EQ(lLeft.type, lSum.getType());
            const bool lIsSame = lLeft.type == lRight.type;
            EXPECT_EQ(lIsSame && (isNumeric(lLeft) || lLeft.value.isString()),
                      !isSame(lLeft.value, lSum))
                << lLeft.name << lRight.name;
            FlexVar lDifference(lLeft.value);
            EXPECT_EQ(&lDifference, &(lDifference -= lRight.value));
            EXPECT_EQ(lLeft.type, lDifference.getType());
            EXPECT_EQ(lIsSame && isNumeric(lLeft), !isSame(lLeft.value, lDifference))
                << lLeft.name << lRight.name;
        }
    }
}

TEST(FlexVarArithmetic, StepsOnlyNumbers) {
    for (const Sample& lSample : samples()) {
        FlexVar lUp(lSample.value);
        EXPECT_EQ(&lUp, &lUp++);
        EXPECT_EQ(isNumeric(lSample), !isSame(lSample.value, lUp)) << lSample.name;
        EXPECT_EQ(lSample.type, lUp.getType());
        EXPECT_EQ(&lUp, &lUp--);
        EXPECT_TRUE(isSame(lSample.value, lUp)) << lSample.name;
    }
}

TEST(FlexVarArithmetic, WritesNothing) {
    const test::LogCapture lLog;
    const test::TraceLevel lLevel(9);
    for (const Sample& lLeft : samples()) {
        for (const Sample& lRight : samples()) {
            for (const auto& lBinary : kBinaries) {
                (lLeft.value.*lBinary.second)(lRight.value);
            }
            FlexVar lVar(lLeft.value);
            lVar += lRight.value;
            lVar -= lRight.value;
            lVar++;
            lVar--;
        }
    }
    EXPECT_THAT(lLog.lines(), testing::IsEmpty());
}

TEST(FlexVarArithmetic, WrapsEveryIntegerKindAtItsWidth) {
    using V = FlexVar;
    checkIntegers<std::int8_t, char, int>(&V::getChar, &V::getInt);
    checkIntegers<std::uint8_t, unsigned char, int>(&V::getUChar, &V::getInt);
    checkIntegers<short, short, int>(&V::getShort, &V::getInt);
    checkIntegers<unsigned short, unsigned short, int>(&V::getUShort, &V::getInt);
    checkIntegers<int, int, int>(&V::getInt, &V::getInt);
    checkIntegers<unsigned int, unsigned int, unsigned int>(&V::getUInt, &V::getUInt);
    checkIntegers<std::int32_t, long, long>(&V::getLong, &V::getLong);
    checkIntegers<std::uint32_t, unsigned long, unsigned long>(&V::getULong, &V::getULong);
}

TEST(FlexVarArithmetic, PromotesSmallIntegersButNotInPlace) {
    FlexVar lVar(char(100));
    EXPECT_TRUE(isSame(FlexVar(200), lVar + FlexVar(char(100))));
    lVar += FlexVar(char(100));
    EXPECT_TRUE(isSame(FlexVar(char(-56)), lVar));
}

TEST(FlexVarArithmetic, WrapsTheProductOfTheLargestShorts) {
    const FlexVar lLargest(static_cast<unsigned short>(65535));
    EXPECT_EQ(-131071, (lLargest * lLargest).getInt());
}

TEST(FlexVarArithmetic, DividesIntegersByZeroToTypeNone) {
    for (const FlexVar& lZero :
         {FlexVar(char(0)), FlexVar(static_cast<unsigned char>(0)), FlexVar(static_cast<short>(0)),
          FlexVar(static_cast<unsigned short>(0)), FlexVar(0), FlexVar(0U), FlexVar(0L),
          FlexVar(0UL)}) {
        FlexVar lOne(lZero);
        lOne++;
        EXPECT_EQ(FlexVar::FlexVar_NoType, (lOne / lZero).getType()) << lZero;
        EXPECT_EQ(FlexVar::FlexVar_NoType, (lZero / lZero).getType()) << lZero;
    }
}

TEST(FlexVarArithmetic, WrapsTheOneQuotientThatDoesNotFit) {
    constexpr int lLowest = std::numeric_limits<int>::min();
    EXPECT_EQ(lLowest, (FlexVar(lLowest) / FlexVar(-1)).getInt());
    EXPECT_EQ(lLowest, (FlexVar(static_cast<long>(lLowest)) / FlexVar(-1L)).getLong());
}

TEST(FlexVarArithmetic, DividesFloatingNumbersByZeroAsIeeeDoes) {
    EXPECT_EQ(std::numeric_limits<double>::infinity(), (FlexVar(1.0) / FlexVar(0.0)).getDouble());
    EXPECT_EQ(-std::numeric_limits<float>::infinity(), (FlexVar(-1.0F) / FlexVar(0.0F)).getFloat());
    EXPECT_TRUE(std::isnan((FlexVar(0.0) / FlexVar(0.0)).getDouble()));
}

TEST(FlexVarArithmetic, ComputesFloatingNumbersInTheirPrecision) {
    checkFloating<float>(&FlexVar::getFloat);
    checkFloating<double>(&FlexVar::getDouble);
}

#if defined(__x86_64__) || defined(__i386__)
TEST(FlexVarArithmetic, RoundsADoubleOnceAsEveryProcessorDoes) {
    // Wide enough that rounding its results to those of a double is rounding once.
    __extension__ using Wide = __float128;
    std::mt19937_64 lRandom(815);
    const auto lNumber = [&] {
        const auto lMantissa = static_cast<double>((lRandom() >> 11) | 1);
        return std::ldexp(lMantissa, static_cast<int>(lRandom() % 1200) - 600);
    };
    for (int lRound = 0; lRound < 200000; ++lRound) {
        const double lLeft = lNumber();
        const double lRight = lNumber();
        const volatile double lStored =
            lLeft * std::ldexp(1.0, static_cast<int>(lRandom() % 120) - 60) / 3;
        const double lNear = lStored;
        const auto lExpect = [&](Wide aExact, const FlexVar& aResult) {
            const volatile Wide lExact = aExact;  // or the compiler computes in double at once
            const volatile auto lRounded = static_cast<double>(lExact);
            ASSERT_EQ(lRounded, aResult.getDouble()) << lLeft << " and " << lRight << ", " << lNear;
        };
        lExpect(Wide(lLeft) * lRight, FlexVar(lLeft) * FlexVar(lRight));
        lExpect(Wide(lLeft) / lRight, FlexVar(lLeft) / FlexVar(lRight));
        lExpect(Wide(lLeft) + lNear, FlexVar(lLeft) + FlexVar(lNear));
        lExpect(Wide(lLeft) - lNear, FlexVar(lLeft) -= FlexVar(lNear));
    }
}
#endif

TEST(FlexVarArithmetic, RoundsSubnormalAndInfiniteResultsOnce) {
    const auto lProduct = [](double aLeft, double aRight) {
        return (FlexVar(aLeft) * FlexVar(aRight)).getDouble();
    };
    const auto lQuotient = [](double aLeft, double aRight) {
        return (FlexVar(aLeft) / FlexVar(aRight)).getDouble();
    };
    const double lLeast = std::numeric_limits<double>::denorm_min();
    const double lMost = std::numeric_limits<double>::max();
    EXPECT_EQ(lLeast, lQuotient(lLeast, 1));
    EXPECT_EQ(0.0, lProduct(lLeast, 0.5));
    EXPECT_EQ(lLeast, lProduct(lLeast, 0.5 + 0x1p-53));
    EXPECT_EQ(1.0, lQuotient(lLeast, lLeast));
    EXPECT_EQ(lLeast * 2, lProduct(lLeast * 3, 0.5));
    EXPECT_EQ(1.0, lQuotient(lMost, lMost));
    EXPECT_EQ(lMost, lProduct(lMost, 1));
    EXPECT_TRUE(std::isinf(lProduct(lMost, 1 + 0x1p-52)));
    EXPECT_TRUE(std::isinf(lQuotient(1, lLeast)));
    EXPECT_TRUE(std::isnan(lProduct(0, std::numeric_limits<double>::infinity())));
    EXPECT_TRUE(std::signbit(lProduct(-lLeast, lLeast)));
}

TEST(FlexVarArithmetic, RoundsAProductAlsoWhereTheProgramFusesItWithASum) {
    const volatile double lFactor = 1 + 0x1p-30;
    const volatile double lRoundedSquare = 1 + 0x1p-29;
    EXPECT_EQ(0.0, productLess(lFactor, lFactor, lRoundedSquare));
    if (hasFusedArithmetic()) {
        EXPECT_EQ(0.0, fusedProductLess(lFactor, lFactor, lRoundedSquare));
    }
}

TEST(FlexVarArithmetic, StepsFloatingNumbersByOne) {
    FlexVar lVar(0.5);
    EXPECT_EQ(1.5, (lVar++).getDouble());
    FlexVar lFloat(0.5F);
    EXPECT_EQ(-0.5F, (lFloat--).getFloat());
}

TEST(FlexVarArithmetic, AnIncrementIsTheObjectItself) {
    FlexVar lVar(5);
    EXPECT_EQ(6, (lVar++).getInt());
    EXPECT_EQ(6, lVar.getInt());
    EXPECT_EQ(&lVar, &lVar++);
}

TEST(FlexVarArithmetic, AppendsStrings) {
    FlexVar lVar(narrow("abc"));
    lVar += FlexVar(narrow("def"));
    EXPECT_EQ("abcdef", test::text(lVar));
    FlexVar lWide(wide(L"ab"));
    lWide += FlexVar(wide(L"\x100"));
    EXPECT_EQ(L"ab\x100", test::plain(lWide.getWString()));
    lWide += FlexVar(narrow("x"));
    EXPECT_EQ(3U, lWide.getWString().length());
}

TEST(FlexVarArithmetic, AppendsAStringToItself) {
    FlexVar lVar(narrow("ab"));
    for (int i = 0; i < 10; ++i) {
        lVar += lVar;
    }
    std::string lExpected;
    for (int i = 0; i < 1024; ++i) {
        lExpected += "ab";
    }
    EXPECT_EQ(lExpected, test::text(lVar));
}

TEST(FlexVarArithmetic, TakesItselfAsOperand) {
    FlexVar lVar(21);
    const FlexVar& lItself = lVar;
    lVar += lItself;
    EXPECT_EQ(42, lVar.getInt());
    lVar -= lItself;
    EXPECT_EQ(0, lVar.getInt());
}

TEST(FlexVarArithmetic, AppendsToAKindWithoutAnObject) {
    const test::LogCapture lLog;
    FlexVar lVar;
    lVar.setCString(static_cast<ACE_String_Base<char>*>(nullptr));
    lVar += FlexVar(narrow("abc"));
    EXPECT_EQ("abc", test::text(lVar));
}
