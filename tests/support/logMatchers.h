// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What a captured line may be compared with.
#ifndef OSX_TESTS_SUPPORT_LOGMATCHERS_H
#define OSX_TESTS_SUPPORT_LOGMATCHERS_H

#include <gmock/gmock.h>

#include "support/LogCapture.h"

namespace test {

/// A line of this priority, status and source module.
MATCHER_P3(IsLineOf, aPriority, aStatus, aModule, "is a line of that priority, status and module") {
    *result_listener << "priority " << arg.priority << ", status " << arg.status << ", module "
                     << arg.module;
    return arg.priority == aPriority && arg.status == aStatus && arg.module == aModule;
}

}  // namespace test

#endif
