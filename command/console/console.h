// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// `osx console`.
#ifndef OSX_COMMAND_CONSOLE_CONSOLE_H
#define OSX_COMMAND_CONSOLE_CONSOLE_H

#include <string>
#include <vector>

namespace command {

struct ConsoleOptions {
    std::vector<std::string> devices;  ///< Names, groups, addresses.
    std::string deviceFile;            ///< Empty for the user's own.
    std::string listen = "127.0.0.1:8324";
    std::string token;    ///< Empty for none, or for one that is made, where there has to be one.
    std::string history;  ///< The file; empty for the user's own.
    std::string historyAge = "7d";
    std::string historySize = "500M";
    std::string version;  ///< Of the program.
};

/// Serves a page that shows devices until it is told to end. @return the exit status.
int console(const ConsoleOptions& aOptions);

}  // namespace command

#endif
