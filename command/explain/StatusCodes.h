// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The library's status codes, as its headers explain them.
#ifndef OSX_COMMAND_EXPLAIN_STATUSCODES_H
#define OSX_COMMAND_EXPLAIN_STATUSCODES_H

#include <string>
#include <string_view>
#include <vector>

namespace command {

/// A function that gives a code, and why.
struct Giver {
    std::string function;
    std::string why;
};

struct StatusCode {
    std::string name;
    unsigned long number;
    std::string meaning;
    std::string header;
    std::string toDo;  ///< Empty until the catalogue has been read.
    std::vector<Giver> givers;
};

/// Reads the codes of a header: its constants, and what its functions say of their results.
std::vector<StatusCode> statusCodesIn(std::string_view aText, const std::string& aHeader);

/// @return all codes of the library, with what to do.
std::vector<StatusCode> allStatusCodes();

}  // namespace command

#endif
