// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What requests ask for.
#ifndef OSX_COMMAND_CONSOLE_QUERIES_H
#define OSX_COMMAND_CONSOLE_QUERIES_H

#include <httplib.h>

#include "console/DeviceBoard.h"
#include "console/HistoryReader.h"

namespace command {

/// A level that is wanted.
struct LevelQuery {
    std::size_t device;
    unsigned long level;
};

/// Each fails as bad input, with the text for the browser.
HistoryQuery historyQueryOf(const httplib::Request& aRequest);
FigureQuery figureQueryOf(const httplib::Request& aRequest);
LevelQuery levelQueryOf(const std::string& aBody, const DeviceBoard& aBoard);

}  // namespace command

#endif
