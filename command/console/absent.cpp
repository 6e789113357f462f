// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// In the place of the console, where it was left out of the build.

#include "common/Failure.h"
#include "console/console.h"

namespace command {

int console(const ConsoleOptions&) {
    fail("this osx was built without the console");
}

}  // namespace command
