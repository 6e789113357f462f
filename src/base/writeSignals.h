// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Writing where the reader may have gone, or where a file may not grow.
#ifndef OSX_BASE_WRITESIGNALS_H
#define OSX_BASE_WRITESIGNALS_H

#include <sys/types.h>

#include <csignal>

namespace osx {

/// While one lives, a write by the calling thread raises no SIGPIPE or SIGXFSZ: without a reader it
/// fails with EPIPE, and beyond the process's limit for files with EFBIG. Other threads are not
/// affected, the signals' dispositions do not change, and such a signal that was pending before
/// stays pending. Keeps `errno`.
class WriteSignalGuard {
public:
    WriteSignalGuard() noexcept;
    ~WriteSignalGuard();
    WriteSignalGuard(const WriteSignalGuard&) = delete;
    WriteSignalGuard& operator=(const WriteSignalGuard&) = delete;

private:
    sigset_t mFormerMask;
    sigset_t mOwn;  ///< The signals that were not pending before, which are to be taken back.
};

/// @return whether a write to a descriptor could raise one of these signals now.
bool mayRaiseWriteSignal(int aDescriptor) noexcept;

/// @return whether a write to a file of this mode (its `st_mode`) could raise one now.
bool mayRaiseWriteSignalTo(mode_t aMode) noexcept;

}  // namespace osx

#endif
