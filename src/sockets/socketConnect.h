/// @file
/// Making a TCP connection within a bounded time. Internal.
#ifndef OSX_SOCKETS_SOCKETCONNECT_H
#define OSX_SOCKETS_SOCKETCONNECT_H

#include <chrono>

class ACE_INET_Addr;

namespace osx {

/// Reads "host:port", looking the host up if need be.
/// @return false with `errno`, and with `aAddress` as it was, if the text is null or no address;
///         ENOENT if the host is not known.
bool parseAddress(const char* aText, ACE_INET_Addr& aAddress);

/// @return a connected, blocking, close-on-exec socket; -1 with `errno` on failure (ETIME when the
///         limit passed).
int connectSocket(const ACE_INET_Addr& aAddress, std::chrono::milliseconds aLimit);

}  // namespace osx

#endif
