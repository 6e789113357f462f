#include "logging/decimalNumber.h"

#include <algorithm>
#include <limits>

namespace osx {

namespace {

bool isBlank(char aCharacter) {
    return aCharacter == ' ' || (aCharacter >= '\t' && aCharacter <= '\r');
}

bool isDigit(char aCharacter) {
    return aCharacter >= '0' && aCharacter <= '9';
}

}  // namespace

std::int32_t decimalNumber(const char* aText, std::size_t aLength) noexcept {
    constexpr std::int64_t kMin = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
    const char* const lEnd = aText + aLength;
    const char* lNext = std::find_if_not(aText, lEnd, isBlank);
    const bool lNegative = lNext != lEnd && *lNext == '-';
    if (lNext != lEnd && (*lNext == '-' || *lNext == '+')) {
        ++lNext;
    }
    std::int64_t lNumber = 0;
    for (; lNext != lEnd && isDigit(*lNext); ++lNext) {
        const int lDigit = *lNext - '0';
        lNumber = lNumber * 10 + (lNegative ? -lDigit : lDigit);
        lNumber = std::clamp(lNumber, kMin, kMax);
    }
    return static_cast<std::int32_t>(lNumber);
}

}  // namespace osx
