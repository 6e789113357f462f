/// @file
/// Opening and sizing files, for the file channel and the file utilities.
#ifndef OSX_COMMIF_FILEACCESS_H
#define OSX_COMMIF_FILEACCESS_H

#include "ace/FILE_IO.h"

namespace osx {

/// @param aName null counts as an empty name, which cannot be opened.
/// @param aFlags of the operating system. What is opened is close-on-exec and never becomes the
///        controlling terminal. A new file gets 0644.
bool openFile(ACE_FILE_IO& aFile, const char* aName, int aFlags);

/// @param[out] aSize also beyond what an `unsigned long` holds.
/// @return whether it could be found; a line tells if not.
bool findFileSize(ACE_FILE_IO& aFile, ACE_OFF_T& aSize);

}  // namespace osx

#endif
