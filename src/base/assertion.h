// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Assertions that stay active in every build, unlike ACE's own, which obey a macro.
#ifndef OSX_BASE_ASSERTION_H
#define OSX_BASE_ASSERTION_H

namespace osx {

/// Writes the line of a failed assertion, in ACE's wording at LM_ERROR, and returns.
/// @param aExpression the text of what should have held.
/// @param aModule name of the source module, with extension.
void reportFailedAssertion(const char* aExpression, const char* aModule,
                           int aLine = __builtin_LINE());

/// Writes the same line and aborts the process, whether or not LM_ERROR lines are shown, and even
/// if its thread is cancelled meanwhile. Where lines do not go to standard error, this one does all
/// the same.
[[noreturn]] void failAssertion(const char* aExpression, const char* aModule,
                                int aLine = __builtin_LINE()) noexcept;

}  // namespace osx

#endif
