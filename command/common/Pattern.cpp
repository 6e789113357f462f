// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "common/Pattern.h"

#include <array>

#include "common/Failure.h"

namespace command {

Pattern::Pattern(const std::string& aExpression) {
    const int lError = ::regcomp(&mCompiled, aExpression.c_str(), REG_EXTENDED | REG_NOSUB);
    if (lError != 0) {
        std::array<char, 100> lWhy{};
        ::regerror(lError, &mCompiled, lWhy.data(), lWhy.size());
        failInput("'" + aExpression + "' is no regular expression: " + lWhy.data());
    }
}

bool Pattern::isIn(std::string_view aText) const {
    regmatch_t lRange{};
    lRange.rm_eo = static_cast<regoff_t>(aText.size());
    // The start and end are given so that a zero byte does not end the text.
    return ::regexec(&mCompiled, aText.data(), 1, &lRange, REG_STARTEND) == 0;
}

}  // namespace command
