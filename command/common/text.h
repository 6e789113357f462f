// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Bytes of a device as text that is safe to show.
#ifndef OSX_COMMAND_COMMON_TEXT_H
#define OSX_COMMAND_COMMON_TEXT_H

#include <optional>
#include <string>
#include <string_view>

namespace command {

/// @return the text with each byte that is no UTF-8 written as "\xNN".
std::string toUtf8(std::string_view aBytes);

/// @return the same, with each character written so that would steer a terminal, or turn the
///         direction of writing; tabs stay.
std::string forTerminal(std::string_view aBytes);

/// @return the bytes in hexadecimal.
std::string toHex(std::string_view aBytes);

/// Reads a decimal number that is the whole of a text.
/// @return it, or nothing if there is none in that range.
std::optional<unsigned long> toNumber(std::string_view aText, unsigned long aLowest,
                                      unsigned long aHighest);

/// @return the text without white space at its ends.
std::string_view trimmed(std::string_view aText);

}  // namespace command

#endif
