/// @file
/// Whole transfers on a socket, without SIGPIPE, going on after a signal and waiting where the
/// socket would block. Internal.
#ifndef OSX_SOCKETS_SOCKETTRANSFER_H
#define OSX_SOCKETS_SOCKETTRANSFER_H

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>

namespace osx {

/// @return `aLength` when all bytes went out, -1 on an error.
ssize_t sendAll(int aSocket, const void* aData, std::size_t aLength);

/// @param aVec left as it is. @return the number of bytes when all went out, -1 on an error.
ssize_t sendAll(int aSocket, const iovec* aVec, int aCount);

/// @return `aLength` when all bytes came, 0 when the peer closed first, -1 on an error.
ssize_t receiveAll(int aSocket, void* aData, std::size_t aLength);

/// Writes the line of `osxSocketSend` that the bytes did not all go out, with the `errno` of the
/// moment.
void tellUnsent(unsigned long aLen);

}  // namespace osx

#endif
