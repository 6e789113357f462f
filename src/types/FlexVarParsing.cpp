// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// From text to value. Texts are read by their length, because a text that is lent to an ACE string
// may have no terminator.
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <limits>
#include <string_view>
#include <type_traits>

#include "base/integerText.h"
#include "types/FlexVar.h"
#include "types/FlexVarKinds.h"
#include "types/Terminated.h"
#include "types/characters.h"

namespace {

using osx::view;

using CString = ACE_String_Base<char>;
using WString = ACE_String_Base<wchar_t>;

#ifdef __i386__  // The C++ library multiplies in the x87 unit, and so rounds some numbers twice.
constexpr bool kReadsAsTheSystem = false;
#else
constexpr bool kReadsAsTheSystem = true;
#endif

/// `from_chars` reads a decimal number as `strtod` does in the usual locale and rounding, in half
/// of the time.
/// @return whether it read the whole text as a finite number; if not, `strtod` is to read it.
bool readPlainDouble(std::string_view aText, double& aNumber) noexcept {
    if (!kReadsAsTheSystem || osx::decimalPoint() != '.' || !osx::isRoundingToNearest()) {
        return false;
    }
    const char* const lEnd = aText.data() + aText.size();
    const auto lRead = std::from_chars(aText.data(), lEnd, aNumber);
    return lRead.ec == std::errc() && lRead.ptr == lEnd && std::isfinite(aNumber);
}

double toDouble(const char* aText, char** aEnd) noexcept {
    return std::strtod(aText, aEnd);
}
double toDouble(const wchar_t* aText, wchar_t** aEnd) noexcept {
    return std::wcstod(aText, aEnd);
}

/// @return whether the whole text was a number.
template <class Character, class Number>
bool parseNumber(const ACE_String_Base<Character>& aText, Number& aNumber) noexcept {
    if constexpr (std::is_integral_v<Number>) {
        const osx::IntegerText lRead = osx::readInteger(view(aText), osx::kAnyBase);
        aNumber = static_cast<Number>(lRead.number);
        return lRead.length == aText.length();
    } else {
        if constexpr (std::is_same_v<Character, char>) {
            double lPlain = 0;
            if (readPlainDouble(view(aText), lPlain)) {
                aNumber = static_cast<Number>(lPlain);
                return true;
            }
        }
        const osx::Terminated<Character> lText(view(aText));
        Character* lEnd = nullptr;
        aNumber =
            lText.get() == nullptr ? Number(0) : static_cast<Number>(toDouble(lText.get(), &lEnd));
        return lEnd != nullptr && lEnd == lText.get() + aText.length();
    }
}

/// One field of a date's text: where it stands, what it may be, how it is stored.
struct DateField {
    std::size_t start;
    std::size_t length;
    long lowest;
    long highest;
    void (ACE_Date_Time::*store)(long);
};

constexpr long kAnyYear = std::numeric_limits<std::int32_t>::max();
constexpr std::array<DateField, 7> kDateFields = {{
    {0, 2, 1, 31, &ACE_Date_Time::day},
    {3, 2, 1, 12, &ACE_Date_Time::month},
    {6, 4, -kAnyYear, kAnyYear, &ACE_Date_Time::year},
    {11, 2, 0, 23, &ACE_Date_Time::hour},
    {14, 2, 0, 59, &ACE_Date_Time::minute},
    {17, 2, 0, 59, &ACE_Date_Time::second},
    {20, 6, 0, 999999, &ACE_Date_Time::microsec},
}};

/// @return the number at the front of the field's columns; 0 if there is none or they are missing.
template <class Character>
long numberIn(const DateField& aField, const ACE_String_Base<Character>& aText) noexcept {
    const auto lText = view(aText);
    const std::size_t lStart = std::min(aField.start, lText.size());
    return osx::readInteger(lText.substr(lStart, aField.length), osx::kAnyBase).number;
}

const CString& wordFor(bool aValue, char) noexcept {
    return aValue ? FlexVar::mCStrBoolTrue : FlexVar::mCStrBoolFalse;
}
const WString& wordFor(bool aValue, wchar_t) noexcept {
    return aValue ? FlexVar::mWStrBoolTrue : FlexVar::mWStrBoolFalse;
}

}  // namespace

/// Gives a `FlexVar` the value that a text stands for. Each of the parsers of a kind returns 0, or
/// -1 if the text is not of that kind or memory is short.
struct FlexVar::Parser {
    FlexVar& var;

    template <class Number, class Character>
    static long toNumber(const ACE_String_Base<Character>& aText, Number& aNumber) noexcept {
        Number lNumber = 0;
        if (!parseNumber(aText, lNumber)) {
            return -1;
        }
        aNumber = lNumber;
        return 0;
    }

    /// The date is set although a field is out of range.
    template <class Character>
    long toDate(const ACE_String_Base<Character>& aText) const noexcept {
        ACE_Date_Time lDate(0);
        long lResult = 0;
        for (const DateField& lField : kDateFields) {
            const long lNumber = numberIn(lField, aText);
            if (lNumber >= lField.lowest && lNumber <= lField.highest) {
                (lDate.*lField.store)(lNumber);
            } else {
                lResult = -1;
            }
        }
        var.setDateTime(lDate);
        return lResult;
    }

    template <class Character>
    long toBool(const ACE_String_Base<Character>& aText) const noexcept {
        for (const bool lValue : {false, true}) {
            if (aText == wordFor(lValue, Character())) {
                var.setBool(lValue);
                return 0;
            }
        }
        return -1;
    }

    template <class Kind, class Character>
    long toString(const ACE_String_Base<Character>& aText) const noexcept {
        typename Kind::Value lRoom;
        const typename Kind::Value* const lText = osx::asText(aText, lRoom);
        return lText != nullptr && var.setText(*lText) ? 0 : -1;
    }

    template <class Character>
    long toObjectID(const ACE_String_Base<Character>& aText) const noexcept {
        CString lRoom;
        const CString* const lText = osx::asText(aText, lRoom);
        if (lText == nullptr) {
            return -1;
        }
        ObjectID lIdentifier;
        lIdentifier.setFromString(*lText);
        var.setObjectID(lIdentifier);
        return 0;
    }

    /// Reads a text as a value of the kind that is held.
    template <class Character>
    long toHeldKind(const ACE_String_Base<Character>& aText) const noexcept {
        if (aText.empty()) {
            return 0;
        }
        if (var.isWord()) {  // Int to ULong: all have the same 32 bits
            return toNumber(aText, var.mValue.mInt);
        }
        switch (var.mType) {
            case FlexVar_Bool:
                return toBool(aText);
            case FlexVar_CString:
                return toString<Kinds::CString>(aText);
            case FlexVar_WString:
                return toString<Kinds::WString>(aText);
            case FlexVar_ObjectID:
                return toObjectID(aText);
            default:
                break;
        }
        using String = ACE_String_Base<Character>;
        return var.setValueFromStringCommon<String, Character>(aText) == 0 ? 0 : -1;
    }
};

template <class String, class Character>
long FlexVar::setValueFromStringCommon(const String& aText) noexcept {
    constexpr long kNeither = 1;
    if (isDate()) {
        return Parser{*this}.toDate(aText);
    }
    return Kinds::visit(mType, kNeither, [&](auto aKind) {
        using Kind = decltype(aKind);
        if constexpr (Kind::kIsNumeric) {
            return Parser::toNumber(aText, Kind::member(mValue));
        } else {
            return kNeither;
        }
    });
}
template OSX_EXPORT long FlexVar::setValueFromStringCommon<ACE_String_Base<char>, char>(
    const ACE_String_Base<char>&) noexcept;
template OSX_EXPORT long FlexVar::setValueFromStringCommon<ACE_String_Base<wchar_t>, wchar_t>(
    const ACE_String_Base<wchar_t>&) noexcept;

long FlexVar::setValueFromString(const ACE_String_Base<char>& aText) noexcept {
    return Parser{*this}.toHeldKind(aText);
}

long FlexVar::setValueFromString(const ACE_String_Base<wchar_t>& aText) noexcept {
    return Parser{*this}.toHeldKind(aText);
}
