/// @file
/// Writing where the reader may have gone, or where a file may not grow.
#ifndef OSX_BASE_WRITESIGNALS_H
#define OSX_BASE_WRITESIGNALS_H

#include <sys/types.h>

#include <csignal>

namespace osx {

/// While one lives, what the calling thread writes to a pipe without a reader fails with EPIPE, and
/// what would make a file longer than the process may have it fails with EFBIG; no SIGPIPE or
/// SIGXFSZ comes of it. Neither other threads nor the signals' dispositions notice; such a signal
/// that was pending before stays so. `errno` is left as it is.
class WriteSignalGuard {
public:
    WriteSignalGuard() noexcept;
    ~WriteSignalGuard();
    WriteSignalGuard(const WriteSignalGuard&) = delete;
    WriteSignalGuard& operator=(const WriteSignalGuard&) = delete;

private:
    sigset_t mFormerMask;
    sigset_t mOwn;  ///< Those that were not pending before.
};

/// @return whether a write to a descriptor could raise one of the signals as things stand.
bool mayRaiseWriteSignal(int aDescriptor) noexcept;

/// The same of what is open there, told by its mode.
bool mayRaiseWriteSignalTo(mode_t aMode) noexcept;

}  // namespace osx

#endif
