// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Opening a port that may turn clients away, as the library's own ports do. Internal.
#ifndef OSX_OSX_REGISTERPORT_H
#define OSX_OSX_REGISTERPORT_H

#include "osx/osxDataHandler.h"

namespace osx {

/// Does what `osxRegisterPort` does.
unsigned long registerPort(void*& aPort, unsigned long aPortnumber,
                           const osxPortCallbacks_t& aCallbacks);

}  // namespace osx

#endif
