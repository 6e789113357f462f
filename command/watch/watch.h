// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// `osx watch` and `osx play`.
#ifndef OSX_COMMAND_WATCH_WATCH_H
#define OSX_COMMAND_WATCH_WATCH_H

#include <string>
#include <vector>

#include "record/Record.h"
#include "watch/View.h"

namespace command {

struct WatchOptions {
    std::vector<std::string> devices;  ///< Names, groups, addresses.
    std::string deviceFile;            ///< Empty for the user's own.
    std::string record;                ///< The folder; empty for none.
    RecordLimits limits;
    ViewOptions view;
};

/// Shows what devices say until it is told to end. @return the exit status.
int watch(const WatchOptions& aOptions);

struct PlayOptions {
    std::string record;
    ViewOptions view;
};

/// Shows what was recorded. @return the exit status.
int play(const PlayOptions& aOptions);

}  // namespace command

#endif
