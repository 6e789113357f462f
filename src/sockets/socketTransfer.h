// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Transfers of a given number of bytes on a socket. They go on after a signal, wait where the
/// socket would block, also one that was made non-blocking, and raise no SIGPIPE. Internal.
#ifndef OSX_SOCKETS_SOCKETTRANSFER_H
#define OSX_SOCKETS_SOCKETTRANSFER_H

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>

namespace osx {

/// @return 0 when all bytes went out, else an error number.
[[nodiscard]] int sendAll(int aSocket, const void* aData, std::size_t aLength);

/// @param aVec left as it is.
/// @return 0 when all bytes went out, else an error number.
[[nodiscard]] int sendAll(int aSocket, const iovec* aVec, int aCount);

/// The result of a receive.
struct Received {
    ssize_t length;  ///< All that was asked for; 0 when the peer closed first, -1 on an error.
    int error;       ///< 0, or an error number.
};

Received receiveAll(int aSocket, void* aData, std::size_t aLength);

/// Writes the line of `osxSocketSend` that not all bytes went out, with the `errno` of the moment.
void tellUnsent(unsigned long aLen);

}  // namespace osx

#endif
