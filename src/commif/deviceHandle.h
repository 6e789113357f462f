// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Handles of files and devices that have just been opened.
#ifndef OSX_COMMIF_DEVICEHANDLE_H
#define OSX_COMMIF_DEVICEHANDLE_H

#include "ace/IO_SAP.h"
#include "base/standardDescriptors.h"

namespace osx {

/// Moves a handle that is one of 0 to 2 to another number.
/// @return false with `errno` if that fails; then the handle is closed.
inline bool moveAboveStandard(ACE_IO_SAP& aDevice) {
    aDevice.set_handle(aboveStandard(aDevice.get_handle()));
    return aDevice.get_handle() != ACE_INVALID_HANDLE;
}

}  // namespace osx

#endif
