// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The log file, and how every thread comes to write to it. ACE has an output stream for each
/// thread, and a thread that ACE did not start has none.
#ifndef OSX_LOGGING_LOGFILE_H
#define OSX_LOGGING_LOGFILE_H

#include <ostream>

namespace osx {

/// Opens a log file, truncating it, and makes its stream. From now on it is the log file; its
/// stream lives until the process ends.
/// @param aName path; null opens nothing.
/// @return the stream, in its failed state if the file could not be opened; null without memory
///         (`errno` is ENOMEM).
std::ostream* openLogFile(const char* aName) noexcept;

/// Makes the log file the output stream of the calling thread, if there is a log file and the
/// thread has no stream. For back ends to call: ACE writes the line to the stream after them.
void giveLogFileToThread() noexcept;

/// Installs a back end that calls `giveLogFileToThread` and then the back end that was installed
/// before, if any. When memory is short, nothing is installed.
void installLogFileBackend() noexcept;

}  // namespace osx

#endif
