// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "nmea/Sentence.h"

#include <array>
#include <charconv>
#include <cstdio>

namespace nmea {

unsigned int checksum(std::string_view aBody) {
    unsigned int lSum = 0;
    for (const char lCharacter : aBody) {
        lSum ^= static_cast<unsigned char>(lCharacter);
    }
    return lSum;
}

std::string sentence(std::string_view aBody) {
    std::array<char, 4> lSum{};
    std::snprintf(lSum.data(), lSum.size(), "*%02X", checksum(aBody) & 0xFFU);
    return "$" + std::string(aBody) + lSum.data();
}

bool isValid(std::string_view aLine) {
    constexpr std::size_t kTail = 3;  // "*hh"
    if (aLine.size() <= kTail + 1 || aLine.front() != '$' || aLine[aLine.size() - kTail] != '*') {
        return false;
    }
    unsigned int lGiven = 0;
    const char* const lEnd = aLine.data() + aLine.size();
    const auto lResult = std::from_chars(lEnd - 2, lEnd, lGiven, 16);
    return lResult.ec == std::errc() && lResult.ptr == lEnd &&
           lGiven == checksum(aLine.substr(1, aLine.size() - 1 - kTail));
}

}  // namespace nmea
