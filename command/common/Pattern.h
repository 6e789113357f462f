// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Regular expressions that a hostile text cannot make run out of stack.
#ifndef OSX_COMMAND_COMMON_PATTERN_H
#define OSX_COMMAND_COMMON_PATTERN_H

#include <regex.h>

#include <string>
#include <string_view>

namespace command {

/// An extended expression of POSIX, as `grep -E` takes it. Those of the standard library call
/// themselves for each character of a text, and so end the program on a long one.
class Pattern {
public:
    /// Fails as bad input if it is no expression.
    explicit Pattern(const std::string& aExpression);
    ~Pattern() { ::regfree(&mCompiled); }
    Pattern(const Pattern&) = delete;
    Pattern& operator=(const Pattern&) = delete;

    /// @return whether the expression is found in the text.
    bool isIn(std::string_view aText) const;

private:
    regex_t mCompiled{};
};

}  // namespace command

#endif
