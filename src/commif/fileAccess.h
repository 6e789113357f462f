// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Opening and sizing files, for the file channel and the file utilities.
#ifndef OSX_COMMIF_FILEACCESS_H
#define OSX_COMMIF_FILEACCESS_H

#include "ace/FILE_IO.h"

namespace osx {

/// Opens a file, close-on-exec, and never as the controlling terminal. A new file gets 0644.
/// @param aName null counts as an empty name, which cannot be opened.
/// @param aFlags those of `open`.
/// @return whether it is open; `errno` if not.
bool openFile(ACE_FILE_IO& aFile, const char* aName, int aFlags);

/// @param[out] aSize may be more than an `unsigned long` holds.
/// @return whether the size could be found; a line says so if not.
bool findFileSize(ACE_FILE_IO& aFile, ACE_OFF_T& aSize);

}  // namespace osx

#endif
