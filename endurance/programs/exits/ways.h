// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The ways out of the process.
#ifndef OSX_ENDURANCE_EXITS_WAYS_H
#define OSX_ENDURANCE_EXITS_WAYS_H

#include <string>

#include "exits/arguments.h"

namespace exits {

/// A way out; `main` returns what it returns, if it returns.
using Way = int (*)(const Ports& aPorts);

/// @return the way of a name; null if there is none.
Way wayOf(const std::string& aName);

/// Has SIGTERM noted, for the way that begins with it. To be called before threads are started.
void catchSigterm();

}  // namespace exits

#endif
