/// @file
/// The process's standard output, as the console functions and the console channel use it.
#ifndef OSX_COMMIF_CONSOLE_H
#define OSX_COMMIF_CONSOLE_H

#include <sys/types.h>

#include <cstddef>

namespace osx {

/// Writes once to standard output, past the stream `stdout` and what it still holds.
/// @return the number of bytes written, or -1.
ssize_t writeToConsole(const void* aData, std::size_t aLength);

}  // namespace osx

#endif
