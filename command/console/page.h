// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The page's files, which the build puts into the program.
#ifndef OSX_COMMAND_CONSOLE_PAGE_H
#define OSX_COMMAND_CONSOLE_PAGE_H

#include <string_view>

namespace command {

extern const std::string_view kPage;
extern const std::string_view kPageScript;
extern const std::string_view kPageStyle;

}  // namespace command

#endif
