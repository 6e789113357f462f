// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Sentences of NMEA 0183, as instruments send them: "$GPGGA,...*47" and a line end.
#ifndef EXAMPLES_NMEA_SENTENCE_H
#define EXAMPLES_NMEA_SENTENCE_H

#include <string>
#include <string_view>

namespace nmea {

/// @return the XOR of all characters, which stands behind the '*' of a sentence.
unsigned int checksum(std::string_view aBody);

/// @param aBody what stands between '$' and '*'.
/// @return the whole sentence, without a line end.
std::string sentence(std::string_view aBody);

/// @return whether a line, without its end, is a sentence whose checksum is right.
bool isValid(std::string_view aLine);

}  // namespace nmea

#endif
