// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// From value to text.
#include <array>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <type_traits>

#include "base/NoCancellation.h"
#include "base/diagnosticLine.h"
#include "types/FlexVar.h"
#include "types/FlexVarKinds.h"
#include "types/characters.h"
#include "types/heldString.h"

namespace {

using CString = ACE_String_Base<char>;
using WString = ACE_String_Base<wchar_t>;

constexpr std::size_t kTextSize = 1024;
constexpr long kShownBytes = 30;
constexpr std::size_t kLongestInteger = sizeof "-2147483648" - 1;
constexpr int kDecimals = 6;  // of "%f"
constexpr std::size_t kLongestDouble = DBL_MAX_10_EXP + sizeof "-1." + kDecimals;

/// A text that is put together in a bounded buffer.
class Text {
public:
    Text() noexcept { mText[0] = '\0'; }

    __attribute__((format(printf, 2, 3))) Text& add(const char* aFormat, ...) noexcept {
        va_list lArguments;
        va_start(lArguments, aFormat);
        const int lCount =
            std::vsnprintf(&mText[mLength], mText.size() - mLength, aFormat, lArguments);
        va_end(lArguments);
        mLength =
            std::min(mText.size() - 1, mLength + static_cast<std::size_t>(std::max(0, lCount)));
        return *this;
    }
    void copyTo(CString& aOut) const noexcept { aOut.set(mText.data(), mLength, true); }

private:
    std::array<char, kTextSize> mText;
    std::size_t mLength = 0;
};

/// Numbers are printed as 32 signed bits, the unsigned kinds too.
int shown(long aNumber) noexcept {
    return static_cast<int>(aNumber);
}

template <class Integer>
void render(Integer aValue, CString& aOut) noexcept {
    static_assert(std::is_integral_v<Integer>, "other kinds have an overload");
    std::array<char, kLongestInteger> lText;
    const auto lEnd =
        std::to_chars(lText.begin(), lText.end(), static_cast<std::int32_t>(aValue)).ptr;
    aOut.set(lText.data(), static_cast<std::size_t>(lEnd - lText.data()), true);
}
void render(bool aValue, CString& aOut) noexcept {
    aOut = aValue ? FlexVar::mCStrBoolTrue : FlexVar::mCStrBoolFalse;
}
void render(char aValue, CString& aOut) noexcept {
    aOut.set(&aValue, aValue == '\0' ? 0 : 1, true);
}
/// `to_chars` takes half the time of "%f" or less. It rounds to nearest and writes a point: where
/// "%f" does so, too, both write the same, but for the character of the point.
void render(double aValue, CString& aOut) noexcept {
    const char lPoint = osx::decimalPoint();
    if (lPoint == '\0' || !osx::isRoundingToNearest()) {
        Text().add("%f", aValue).copyTo(aOut);
        return;
    }
    std::array<char, kLongestDouble> lText;
    char* const lEnd =
        std::to_chars(lText.begin(), lText.end(), aValue, std::chars_format::fixed, kDecimals).ptr;
    if (std::isfinite(aValue)) {
        *(lEnd - kDecimals - 1) = lPoint;
    }
    aOut.set(lText.data(), static_cast<std::size_t>(lEnd - lText.data()), true);
}
void render(float aValue, CString& aOut) noexcept {
    render(static_cast<double>(aValue), aOut);
}
/// ACE's assignment copies the characters, also those that the value's string only borrows.
void render(const CString& aValue, CString& aOut) noexcept {
    aOut = aValue;
}
void render(const WString& aValue, CString& aOut) noexcept {
    const wchar_t* const lText = aValue.fast_rep();
    std::size_t lLength = 0;
    while (lLength < aValue.length() && osx::narrowed(lText[lLength]) != '\0') {
        ++lLength;
    }
    osx::convert(lText, lLength, aOut);
}
void render(const ACE_Date_Time& aValue, CString& aOut) noexcept {
    Text()
        .add("%2.2d-%2.2d-%4.4d ", shown(aValue.day()), shown(aValue.month()), shown(aValue.year()))
        .add("%2.2d:%2.2d:%2.2d ", shown(aValue.hour()), shown(aValue.minute()),
             shown(aValue.second()))
        .add("%6.6d", shown(aValue.microsec()))
        .copyTo(aOut);
}
void render(const Blob& aValue, CString& aOut) noexcept {
    Text lText;
    lText.add("Size %d [", shown(aValue.getSize()));
    const long lShown = aValue.getData() == nullptr ? 0 : std::min(kShownBytes, aValue.getSize());
    for (long lIndex = 0; lIndex < lShown; ++lIndex) {
        lText.add("0x%x ", static_cast<unsigned int>(aValue.getData()[lIndex]));
    }
    lText.add(aValue.getSize() >= kShownBytes ? "...]" : "]").copyTo(aOut);
}
void render(const ObjectID& aValue, CString& aOut) noexcept {
    aOut = aValue.toString();
}

}  // namespace

void FlexVar::getValueAsString(ACE_String_Base<char>& aOut) const noexcept {
    if (mType == FlexVar_CString) {  // the kinds most used come first
        render(Kinds::CString::value(mValue), aOut);
        return;
    }
    if (isWord()) {
        render(mValue.mInt, aOut);
        return;
    }
    const bool lIsOfAKind = Kinds::visit(mType, false, [&](auto aKind) {
        render(aKind.value(mValue), aOut);
        return true;
    });
    if (!lIsOfAKind) {
        aOut = mEmptyCString;
    }
}

/// The kinds most used are written where they stay. To write the digits elsewhere and copy them
/// would take twice the time: they would be read before they have left the store buffer.
ACE_String_Base<char> FlexVar::getValueAsString() const noexcept {
    ACE_String_Base<char> lText;
    if (mType == FlexVar_CString) {
        const CString& lValue = Kinds::CString::value(mValue);
        if (osx::giveRoom(lText, lValue.length() + 1)) {
            osx::fill(lText, lValue.fast_rep(), lValue.length());
        }
    } else if (isWord()) {
        if (osx::giveRoom(lText, kLongestInteger + 1)) {
            osx::fill(lText, [this](char* aRoom) {
                return std::to_chars(aRoom, aRoom + kLongestInteger, mValue.mInt).ptr;
            });
        }
    } else {
        getValueAsString(lText);
    }
    return lText;
}

void FlexVar::getValueAsString(ACE_String_Base<wchar_t>& aOut) const noexcept {
    if (mType == FlexVar_WString) {
        aOut = Kinds::WString::value(mValue);
        return;
    }
    ACE_String_Base<char> lText;
    getValueAsString(lText);
    osx::convert(lText.fast_rep(), lText.length(), aOut);
}

void FlexVar::dump() const noexcept {
    const osx::NoCancellation lGuard;
    const osx::DiagnosticLine lLine(osx::kFlexVarModule);
    lLine.failure(LM_ERROR, "FlexVar::dump: mType[%s] ", Kinds::name(mType));
    lLine.failure(LM_ERROR, "%s ", getValueAsString().c_str());
    lLine.failure(LM_ERROR, "\n");
}
