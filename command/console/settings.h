// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The console's options, read.
#ifndef OSX_COMMAND_CONSOLE_SETTINGS_H
#define OSX_COMMAND_CONSOLE_SETTINGS_H

#include <string>

#include "console/HistoryFile.h"
#include "console/console.h"
#include "devices/DeviceList.h"

namespace command {

struct ConsoleSettings {
    Device listen;  ///< Host and port.
    std::string token;
    std::string address;  ///< To open in a browser; with the token if it was made here.
    std::string history;
    HistoryLimits limits;
};

/// Fails as bad input.
ConsoleSettings settingsOf(const ConsoleOptions& aOptions);

}  // namespace command

#endif
