// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// From a text that tells its type, too, to value.
#include <cstdlib>
#include <string_view>

#include "base/integerText.h"
#include "types/FlexVar.h"
#include "types/Terminated.h"
#include "types/characters.h"

namespace {

/// @return what stands between a position and the next double quote or the end.
std::string_view upToQuote(std::string_view aText, std::size_t aStart) noexcept {
    return aText.substr(aStart, aText.find('"', aStart) - aStart);
}

}  // namespace

void FlexVar::setTypeAndValue(const ACE_String_Base<char>& aText) noexcept {
    constexpr std::string_view kWideMark = "L\"";
    const std::string_view lText = osx::view(aText);
    const auto lHas = [&](std::string_view aMark) { return lText.find(aMark) != lText.npos; };
    // Leaves the value as it is when memory is short.
    const auto lSetQuoted = [&](std::size_t aStart, auto aString) {
        const std::string_view lPart = upToQuote(lText, aStart);
        if (osx::convert(lPart.data(), lPart.size(), aString)) {
            setText(aString);
        }
    };

    if (lHas(kWideMark)) {
        lSetQuoted(lText.find(kWideMark) + kWideMark.size(), ACE_String_Base<wchar_t>());
    } else if (lHas("\"")) {
        lSetQuoted(lText.find('"') + 1, ACE_String_Base<char>());
    } else if (lHas(".")) {
        const osx::Terminated<char> lNumber(lText);
        if (lNumber.get() != nullptr) {
            setDouble(std::strtod(lNumber.get(), nullptr));
        }
    } else if (lHas("true") || lHas("false")) {
        setBool(lHas("true"));
    } else {
        setLong(osx::readInteger(lText, osx::kDecimal).number);
    }
}
