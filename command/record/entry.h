// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// An event as a line of JSON: what is recorded, and what `--json` prints.
#ifndef OSX_COMMAND_RECORD_ENTRY_H
#define OSX_COMMAND_RECORD_ENTRY_H

#include <string>

#include "client/Event.h"

namespace command {

/// An event of a device that is known by name.
struct Entry {
    Event event;
    std::string device;
};

/// @return one line, without its end.
std::string toJson(const Entry& aEntry);

/// Reads what `toJson` writes. @return whether it is that.
bool fromJson(const std::string& aLine, Entry& aEntry);

/// @return what a mark is called in JSON; empty for a line or block.
const char* markName(Kind aKind);

/// @return what a mark says to people; empty for a line or block.
std::string markText(const Event& aEvent);

}  // namespace command

#endif
