// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the console keeps and shows of an event.
#ifndef OSX_COMMAND_CONSOLE_ITEM_H
#define OSX_COMMAND_CONSOLE_ITEM_H

#include <cstdint>
#include <string>

#include "client/Event.h"

namespace command {

/// Milliseconds since the epoch, as browsers count.
inline std::int64_t toMs(Moment aMoment) {
    return aMoment.time_since_epoch().count() / 1000;
}

/// Its texts are safe to show.
struct Item {
    std::uint64_t id = 0;
    std::int64_t at = 0;  ///< In ms since the epoch.
    std::string device;
    std::string mark;  ///< Empty for a line.
    std::string text;
    std::uint64_t count = 0;  ///< Of a mark.
};

/// @return the event as an item that has no number yet.
Item itemOf(const Event& aEvent, const std::string& aDevice);

std::string toJson(const Item& aItem);

}  // namespace command

#endif
