// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Integers in texts that need not be terminated.
#ifndef OSX_BASE_INTEGERTEXT_H
#define OSX_BASE_INTEGERTEXT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cwctype>
#include <limits>
#include <string_view>

namespace osx {

constexpr int kAnyBase = 0;
constexpr int kDecimal = 10;

/// What stands at the front of a text.
struct IntegerText {
    std::int32_t number;  ///< The nearest one if it does not fit; 0 if there is none.
    std::size_t length;   ///< How many characters it takes up; 0 if there is none.
};

inline bool isBlank(char aCharacter) noexcept {
    return aCharacter == ' ' || (aCharacter >= '\t' && aCharacter <= '\r');
}
inline bool isBlank(wchar_t aCharacter) noexcept {
    return std::iswspace(static_cast<std::wint_t>(aCharacter)) != 0;
}

/// @return the value of a digit; one that no base has if it is none.
template <class Character>
int digitValue(Character aCharacter) noexcept {
    constexpr int kNone = 99;
    if (aCharacter >= '0' && aCharacter <= '9') {
        return static_cast<int>(aCharacter - '0');
    }
    const auto lLetter = static_cast<Character>(aCharacter | 0x20);
    return lLetter >= 'a' && lLetter <= 'f' ? static_cast<int>(lLetter - 'a') + 10 : kNone;
}

/// Finds the base of a number by its prefix, as base 0 asks for, and skips "0x".
template <class Character>
int takeBase(std::basic_string_view<Character> aText, std::size_t& aNext) noexcept {
    constexpr int kOctal = 8;
    constexpr int kHexadecimal = 16;
    const auto lText = aText.substr(aNext);
    if (lText.empty() || lText[0] != '0') {
        return kDecimal;
    }
    if (lText.size() > 2 && (lText[1] | 0x20) == 'x' && digitValue(lText[2]) < kHexadecimal) {
        aNext += 2;
        return kHexadecimal;
    }
    return kOctal;
}

/// Reads as `strtol` does where a `long` has 32 bits: blanks, a sign, digits; but not beyond the
/// text's end, and without the binary numbers ("0b11") that some C libraries take.
/// @param aBase `kDecimal` or `kAnyBase`.
template <class Character>
IntegerText readInteger(std::basic_string_view<Character> aText, int aBase) noexcept {
    constexpr std::int64_t kHighest = std::numeric_limits<std::int32_t>::max();
    std::size_t lNext = 0;
    while (lNext < aText.size() && isBlank(aText[lNext])) {
        ++lNext;
    }
    const bool lIsNegative = lNext < aText.size() && aText[lNext] == '-';
    if (lIsNegative || (lNext < aText.size() && aText[lNext] == '+')) {
        ++lNext;
    }
    const int lBase = aBase == kAnyBase ? takeBase(aText, lNext) : aBase;
    const std::size_t lFirst = lNext;
    std::int64_t lNumber = 0;
    for (; lNext < aText.size() && digitValue(aText[lNext]) < lBase; ++lNext) {
        lNumber = std::min(lNumber * lBase + digitValue(aText[lNext]), kHighest + 1);
    }
    lNumber = lIsNegative ? -lNumber : std::min(lNumber, kHighest);
    return {static_cast<std::int32_t>(lNumber), lNext == lFirst ? 0 : lNext};
}

}  // namespace osx

#endif
