/// @file
/// Writing where the reader may have gone.
#ifndef OSX_COMMIF_PIPESIGNAL_H
#define OSX_COMMIF_PIPESIGNAL_H

#include <csignal>

namespace osx {

/// While one lives, what the calling thread writes to a pipe without a reader fails with EPIPE, and
/// no SIGPIPE comes of it. Neither other threads nor the signal's disposition notice; a SIGPIPE
/// that was pending before stays so. `errno` is left as it is.
class PipeSignalGuard {
public:
    PipeSignalGuard() noexcept;
    ~PipeSignalGuard();
    PipeSignalGuard(const PipeSignalGuard&) = delete;
    PipeSignalGuard& operator=(const PipeSignalGuard&) = delete;

private:
    sigset_t mFormerMask;
    bool mWasPending;
};

}  // namespace osx

#endif
