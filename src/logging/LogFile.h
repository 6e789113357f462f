/// @file
/// The log file, and how every thread comes to write to it: ACE keeps the output stream for each
/// thread separately, and a thread that ACE did not start has none.
#ifndef OSX_LOGGING_LOGFILE_H
#define OSX_LOGGING_LOGFILE_H

#include <ostream>

namespace osx {

/// Opens the log file, truncating it, and makes its stream, which lives until the process ends.
/// @param aName path; null opens nothing.
/// @return the stream, in its failed state if the file could not be opened; null without memory
///         (`errno` is ENOMEM).
std::ostream* openLogFile(const char* aName) noexcept;

/// Makes the log file the output stream of the calling thread, unless it has one or there is no log
/// file. A back end calls it; ACE then writes the line to the stream.
void giveLogFileToThread() noexcept;

/// Installs a custom back end that calls `giveLogFileToThread`, in front of the one that is
/// installed, if any. Without memory nothing is installed.
void installLogFileBackend() noexcept;

}  // namespace osx

#endif
