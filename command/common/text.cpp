// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "common/text.h"

#include <charconv>
#include <cstdint>

namespace command {

namespace {

constexpr char kDigits[] = "0123456789abcdef";

struct Character {
    std::size_t length;  ///< 0 if there is no character.
    std::uint32_t code;
};

bool isContinuation(std::string_view aText, std::size_t aIndex) {
    return aIndex < aText.size() && (static_cast<unsigned char>(aText[aIndex]) & 0xC0U) == 0x80U;
}

/// Lengths of a first byte's character, and the lowest code that needs so many bytes.
Character firstOf(std::string_view aText) {
    constexpr std::uint32_t kLowest[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto lFirst = static_cast<unsigned char>(aText.front());
    if (lFirst < 0x80U) {
        return {1, lFirst};
    }
    const std::size_t lLength = lFirst >= 0xF0U ? 4 : lFirst >= 0xE0U ? 3 : 2;
    if (lFirst < 0xC0U || lFirst > 0xF4U) {
        return {0, 0};
    }
    std::uint32_t lCode = lFirst & (0x7FU >> lLength);
    for (std::size_t lIndex = 1; lIndex < lLength; ++lIndex) {
        if (!isContinuation(aText, lIndex)) {
            return {0, 0};
        }
        lCode = (lCode << 6U) | (static_cast<unsigned char>(aText[lIndex]) & 0x3FU);
    }
    const bool lIsSurrogate = lCode >= 0xD800U && lCode <= 0xDFFFU;
    if (lCode < kLowest[lLength] || lCode > 0x10FFFFU || lIsSurrogate) {
        return {0, 0};
    }
    return {lLength, lCode};
}

void appendEscaped(std::string& aText, char aByte) {
    const auto lByte = static_cast<unsigned char>(aByte);
    aText += "\\x";
    aText += kDigits[lByte >> 4U];
    aText += kDigits[lByte & 0xFU];
}

/// @return whether a terminal takes it for a command, or for a change of the writing's direction.
bool steers(std::uint32_t aCode) {
    const bool lIsControl = (aCode < 0x20U && aCode != '\t') || (aCode >= 0x7FU && aCode < 0xA0U);
    const bool lTurns = aCode == 0x61CU || (aCode >= 0x200EU && aCode <= 0x200FU) ||
                        (aCode >= 0x2028U && aCode <= 0x202EU) ||
                        (aCode >= 0x2066U && aCode <= 0x2069U);
    return lIsControl || lTurns;
}

template <class Kept>
std::string escaped(std::string_view aBytes, Kept aKept) {
    std::string lText;
    lText.reserve(aBytes.size());
    while (!aBytes.empty()) {
        const Character lNext = firstOf(aBytes);
        const std::size_t lLength = lNext.length == 0 ? 1 : lNext.length;
        for (const char lByte : aBytes.substr(0, lLength)) {
            if (lNext.length != 0 && aKept(lNext.code)) {
                lText += lByte;
            } else {
                appendEscaped(lText, lByte);
            }
        }
        aBytes.remove_prefix(lLength);
    }
    return lText;
}

}  // namespace

std::string toUtf8(std::string_view aBytes) {
    return escaped(aBytes, [](std::uint32_t) { return true; });
}

std::string forTerminal(std::string_view aBytes) {
    return escaped(aBytes, [](std::uint32_t aCode) { return !steers(aCode); });
}

std::string toHex(std::string_view aBytes) {
    std::string lText;
    lText.reserve(2 * aBytes.size());
    for (const char lByte : aBytes) {
        lText += kDigits[static_cast<unsigned char>(lByte) >> 4U];
        lText += kDigits[static_cast<unsigned char>(lByte) & 0xFU];
    }
    return lText;
}

std::optional<unsigned long> toNumber(std::string_view aText, unsigned long aLowest,
                                      unsigned long aHighest) {
    unsigned long lNumber = 0;
    const char* const lEnd = aText.data() + aText.size();
    const auto [lStop, lError] = std::from_chars(aText.data(), lEnd, lNumber);
    if (lError != std::errc() || lStop != lEnd || lNumber < aLowest || lNumber > aHighest) {
        return std::nullopt;
    }
    return lNumber;
}

std::string_view trimmed(std::string_view aText) {
    constexpr std::string_view kSpace = " \t\r\n";
    const std::size_t lFirst = aText.find_first_not_of(kSpace);
    if (lFirst == std::string_view::npos) {
        return {};
    }
    return aText.substr(lFirst, aText.find_last_not_of(kSpace) - lFirst + 1);
}

}  // namespace command
