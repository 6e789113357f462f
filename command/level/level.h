// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// `osx level`.
#ifndef OSX_COMMAND_LEVEL_LEVEL_H
#define OSX_COMMAND_LEVEL_LEVEL_H

#include <string>
#include <vector>

namespace command {

struct LevelOptions {
    std::vector<std::string> words;  ///< Devices, and last the level, if there is one.
    std::string deviceFile;          ///< Empty for the user's own.
    unsigned long levelPort = 0;     ///< Of all of them; 0 for each one's own.
    unsigned long waitS = 10;        ///< How long to wait for the answers.
};

/// Sets the debug level of devices, and waits until they say so; without a level, shows what each
/// one adds. @return the exit status.
int level(const LevelOptions& aOptions);

/// Of `level` without a level.
std::string levelsText();

}  // namespace command

#endif
