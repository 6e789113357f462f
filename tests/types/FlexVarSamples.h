// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// One `FlexVar` of each type, for tests that go over all of them or over all pairs.
#ifndef OSX_TESTS_TYPES_FLEXVARSAMPLES_H
#define OSX_TESTS_TYPES_FLEXVARSAMPLES_H

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "types/FlexVar.h"

namespace test {

struct Sample {
    FlexVar::Type type;
    std::string name;      ///< What follows "FlexVar_".
    FlexVar value;         ///< Not the kind's default.
    FlexVar greater;       ///< Another value of the kind, greater if the kind has an order.
    std::string fallback;  ///< What the getter's line says it returns; empty if it does not say.
    std::function<void(FlexVar&)> set;              ///< Sets `value` through the setter.
    std::function<bool(const FlexVar&)> isDefault;  ///< Calls the getter.
    std::function<int(const FlexVar&)> copyOut;     ///< Calls the other getter; null for a Blob.
};

/// @return type none and the sixteen kinds, in the order of their numbers.
const std::vector<Sample>& samples();

/// @return whether two are of one type with the same content, bytes of `Blob`s included.
bool isSame(const FlexVar& aLeft, const FlexVar& aRight);

ACE_String_Base<char> narrow(const std::string& aText);
ACE_String_Base<wchar_t> wide(const std::wstring& aText);
inline std::string plain(const ACE_String_Base<char>& aText) {
    return std::string(aText.fast_rep(), aText.length());
}
inline std::wstring plain(const ACE_String_Base<wchar_t>& aText) {
    return std::wstring(aText.fast_rep(), aText.length());
}
inline std::string text(const FlexVar& aValue) {
    return plain(aValue.getValueAsString());
}

}  // namespace test

/// For the messages of failed expectations.
inline std::ostream& operator<<(std::ostream& aStream, const FlexVar& aValue) {
    return aStream << test::plain(aValue.getTypeName()) << " '" << test::text(aValue) << "'";
}

#endif
