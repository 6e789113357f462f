// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// `osx explain`.
#ifndef OSX_COMMAND_EXPLAIN_EXPLAIN_H
#define OSX_COMMAND_EXPLAIN_EXPLAIN_H

#include <string>
#include <vector>

namespace command {

/// Says in words what a status code or a line means.
/// @param aWords a code's number or name, or a line. @return the exit status.
int explain(const std::vector<std::string>& aWords);

}  // namespace command

#endif
