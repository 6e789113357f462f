// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Printing a text that has been formatted as a format once more.
#ifndef OSX_COMMIF_PRINTAGAIN_H
#define OSX_COMMIF_PRINTAGAIN_H

namespace osx {

/// Longest text that `printAgain` takes, with its terminator.
constexpr int kPrintedSize = 1024;

/// Prints a text on `stdout` as a format without arguments, in one piece. Its conversions get zero
/// or null. Conversions that would store something, or choose their arguments by position, print
/// nothing.
/// @param aText is changed.
void printAgain(char* aText);

}  // namespace osx

#endif
