// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the library's lines say, from the catalogue that the tree's checks keep true.
#ifndef OSX_COMMAND_EXPLAIN_LINECATALOGUE_H
#define OSX_COMMAND_EXPLAIN_LINECATALOGUE_H

#include <string>
#include <string_view>
#include <vector>

namespace command {

struct KnownLine {
    std::string format;             ///< As the source has it.
    std::vector<std::string> from;  ///< The sources.
    std::string when;               ///< "failure", "notice" or "level N".
    std::string why;
    std::string toDo;
};

/// @return all lines of the library.
std::vector<KnownLine> allLines();

/// @return those of the lines that a text may be one of, or hold, with the most words of their own.
std::vector<KnownLine> linesLike(std::string_view aText, const std::vector<KnownLine>& aLines);

/// @return an extended regular expression that finds what is written by a format.
std::string expressionOf(std::string_view aFormat);

}  // namespace command

#endif
