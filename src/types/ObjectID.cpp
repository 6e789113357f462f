// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Identifiers as values and as texts. New ones come from `uuidSource`. Digits are written and read
// by tables, because identifiers are printed and parsed far more often than anything else is done
// with them; what `strtoul` takes beside digits is left to it.
#include "types/ObjectID.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "base/allocate.h"
#include "types/uuidSource.h"

namespace {

constexpr std::size_t kTextLength = 36;

// Given where there is no memory for an identifier's text.
const ACE_CString kNoText;

constexpr char kDigits[] = "0123456789abcdef";
constexpr std::size_t kByteValues = 256;

/// The two digits of each byte.
constexpr auto kDigitPairs = [] {
    std::array<std::array<char, 2>, kByteValues> lPairs{};
    for (std::size_t lByte = 0; lByte < kByteValues; ++lByte) {
        lPairs[lByte] = {kDigits[lByte >> 4], kDigits[lByte & 0xF]};
    }
    return lPairs;
}();

/// Writes the four digits of a half word.
void printHalf(char* aText, std::uint32_t aHalf) {
    std::memcpy(aText, kDigitPairs[aHalf >> 8 & 0xFF].data(), 2);
    std::memcpy(aText + 2, kDigitPairs[aHalf & 0xFF].data(), 2);
}

/// Writes the digits of an identifier between the hyphens.
void print(char* aText, const std::uint32_t (&aWords)[4]) {
    printHalf(aText, aWords[0] >> 16);
    printHalf(aText + 4, aWords[0]);
    printHalf(aText + 9, aWords[1] >> 16);
    printHalf(aText + 14, aWords[1]);
    printHalf(aText + 19, aWords[2] >> 16);
    printHalf(aText + 24, aWords[2]);
    printHalf(aText + 28, aWords[3] >> 16);
    printHalf(aText + 32, aWords[3]);
}

/// The value of each digit, of either case. What is no digit has a bit that no value has.
constexpr unsigned char kNoDigit = 0x80;
constexpr auto kDigitValues = [] {
    std::array<unsigned char, kByteValues> lValues{};
    for (unsigned char& lValue : lValues) {
        lValue = kNoDigit;
    }
    for (unsigned char lDigit = 0; lDigit < 10; ++lDigit) {
        lValues['0' + lDigit] = lDigit;
    }
    for (unsigned char lLetter = 0; lLetter < 6; ++lLetter) {
        lValues['a' + lLetter] = static_cast<unsigned char>(10 + lLetter);
        lValues['A' + lLetter] = static_cast<unsigned char>(10 + lLetter);
    }
    return lValues;
}();

/// @return the hexadecimal number that fills part of a text, cut to 32 bits; 0 if none does.
std::uint32_t parseOddField(const char* aField, std::size_t aLength) {
    char lField[9] = {};
    std::memcpy(lField, aField, aLength);
    char* lEnd = nullptr;
    const unsigned long lValue = std::strtoul(lField, &lEnd, 16);
    return lEnd == lField + aLength ? static_cast<std::uint32_t>(lValue) : 0;
}

/// The same, by the table; what is not all digits is left to `strtoul`.
template <std::size_t kLength>
std::uint32_t parseField(const char* aField) {
    std::uint32_t lValue = 0;
    unsigned int lSeen = 0;
    for (std::size_t lIndex = 0; lIndex < kLength; ++lIndex) {
        const unsigned int lDigit = kDigitValues[static_cast<unsigned char>(aField[lIndex])];
        lSeen |= lDigit;
        lValue = lValue << 4 | lDigit;
    }
    return (lSeen & kNoDigit) == 0 ? lValue : parseOddField(aField, kLength);
}

}  // namespace

const ObjectID ObjectID::mNull;
bool ObjectID::mGeneratorInitialized = false;

// Printed when the library is loaded, so that no later print, of any thread, writes to it.
[[maybe_unused]] static const ACE_CString& gTextOfNull = ObjectID::mNull.toString();

void ObjectID::deleteText() noexcept {
    mText.reset();
}

void ObjectID::setEmpty() noexcept {
    std::fill(std::begin(mWords), std::end(mWords), 0U);
    mTextStale = true;
}

const unsigned char* ObjectID::getData() const noexcept {
    return reinterpret_cast<const unsigned char*>(mWords);
}

void ObjectID::setData(const unsigned char* aData, long aSize) noexcept {
    if (aSize != kSize || aData == nullptr) {
        setEmpty();
        return;
    }
    std::memmove(mWords, aData, sizeof mWords);
    mTextStale = true;
}

void ObjectID::generateObjectID() noexcept {
    setEmpty();
    osx::makeUuid(mWords, mGeneratorInitialized);  // without memory it stays all zero
}

const ACE_CString& ObjectID::toString() const noexcept {
    if (mText == nullptr) {
        mText = osx::allocate<ACE_CString>();
    }
    if (mText == nullptr) {
        return kNoText;
    }
    if (mTextStale) {
        char lText[] = "........-....-....-....-............";
        static_assert(sizeof lText == kTextLength + 1);
        print(lText, mWords);
        mText->set(lText, kTextLength, true);
        // The string stays empty when it finds no memory; later it reuses its buffer.
        mTextStale = mText->length() != kTextLength;
    }
    return *mText;
}

void ObjectID::setFromString(const ACE_CString& aText) noexcept {
    setEmpty();
    if (aText.length() != kTextLength) {
        return;
    }
    const char* const lText = aText.fast_rep();
    mWords[0] = parseField<8>(lText);
    mWords[1] = parseField<4>(lText + 9) << 16;
    mWords[1] += parseField<4>(lText + 14);
    mWords[2] = parseField<4>(lText + 19) << 16;
    mWords[2] += parseField<4>(lText + 24);
    mWords[3] = parseField<8>(lText + 28);
}
