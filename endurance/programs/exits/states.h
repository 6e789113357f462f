// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What threads are at while the process ends.
#ifndef OSX_ENDURANCE_EXITS_STATES_H
#define OSX_ENDURANCE_EXITS_STATES_H

#include <string>

#include "exits/arguments.h"

namespace exits {

/// Brings threads into a state, and returns when each of them has been seen in it. They stay in it
/// for ever.
/// @param aState callbacks, logging, waiting, timers, connections or children; several, joined by
///        commas; or none.
/// @return false if there is no such state.
bool enter(const std::string& aState, const Ports& aPorts);

}  // namespace exits

#endif
