// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Equality, ordering and the checks of dates.
#include <array>
#include <cstddef>

#include "types/FlexVar.h"
#include "types/FlexVarKinds.h"

namespace {

constexpr long kFebruary = 2;
constexpr long kMonths = 12;
constexpr std::array<long, kMonths> kDaysOfMonth = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

bool isWithin(long aValue, long aFirst, long aLast) noexcept {
    return aValue >= aFirst && aValue <= aLast;
}

template <class Value>
bool areEqual(const Value& aLeft, const Value& aRight) noexcept {
    return aLeft == aRight;
}
template <class Character>
bool areEqual(const ACE_String_Base<Character>& aLeft,
              const ACE_String_Base<Character>& aRight) noexcept {
    return osx::areEqualStrings(aLeft, aRight);
}
bool areEqual(const ACE_Date_Time& aLeft, const ACE_Date_Time& aRight) noexcept {
    return aLeft.year() == aRight.year() && aLeft.month() == aRight.month() &&
           aLeft.day() == aRight.day() && aLeft.hour() == aRight.hour() &&
           aLeft.minute() == aRight.minute() && aLeft.second() == aRight.second() &&
           aLeft.microsec() == aRight.microsec() && aLeft.weekday() == aRight.weekday();
}
bool areEqual(const Blob&, const Blob&) noexcept {
    return false;
}

template <class Value>
bool isLess(const Value& aLeft, const Value& aRight) noexcept {
    return aLeft < aRight;
}
template <class Character>
bool isLess(const ACE_String_Base<Character>& aLeft,
            const ACE_String_Base<Character>& aRight) noexcept {
    return aLeft.compare(aRight) < 0;
}
bool isLess(const ACE_Date_Time&, const ACE_Date_Time&) noexcept {
    return false;
}
bool isLess(const Blob&, const Blob&) noexcept {
    return false;
}
bool isLess(const ObjectID&, const ObjectID&) noexcept {
    return false;
}

}  // namespace

bool FlexVar::isEqualTo(const FlexVar& aOther) const noexcept {
    if (this == &aOther) {
        return true;
    }
    return Kinds::visit(mType, false, [&](auto aKind) {
        return areEqual(aKind.value(mValue), aKind.value(aOther.mValue));
    });
}

bool FlexVar::operator<(const FlexVar& aOther) const noexcept {
    if (this == &aOther || mType != aOther.mType) {
        return false;
    }
    return Kinds::visit(mType, false, [&](auto aKind) {
        return isLess(aKind.value(mValue), aKind.value(aOther.mValue));
    });
}

bool FlexVar::compareACE_Date_Time(const ACE_Date_Time& aOther) const noexcept {
    return isDate() && areEqual(Kinds::DateTime::value(mValue), aOther);
}

bool FlexVar::isLeapYear(const long& aYear) const noexcept {
    return (aYear % 4 == 0 && aYear % 100 != 0) || aYear % 400 == 0;
}

bool FlexVar::isValidDate() const noexcept {
    if (!isDate()) {
        return false;
    }
    const ACE_Date_Time& lDate = Kinds::DateTime::value(mValue);
    if (!isWithin(lDate.hour(), 0, 23) || !isWithin(lDate.minute(), 0, 59) ||
        !isWithin(lDate.second(), 0, 59) || !isWithin(lDate.month(), 1, kMonths)) {
        return false;
    }
    const long lLeapDay = lDate.month() == kFebruary && isLeapYear(lDate.year()) ? 1 : 0;
    const long lLastDay = kDaysOfMonth[static_cast<std::size_t>(lDate.month() - 1)] + lLeapDay;
    return isWithin(lDate.day(), 1, lLastDay);
}
