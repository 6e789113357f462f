// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Making a TCP connection within a bounded time. Internal.
#ifndef OSX_SOCKETS_SOCKETCONNECT_H
#define OSX_SOCKETS_SOCKETCONNECT_H

#include <chrono>

#include "base/Descriptor.h"

class ACE_INET_Addr;

namespace osx {

/// Reads "host:port", looking the host up if need be.
/// @param[out] aAddress as it was, unless 0 is returned.
/// @return 0, or an error number: EINVAL if the text is null or no address, ENOENT if the host is
///         not known.
[[nodiscard]] int parseAddress(const char* aText, ACE_INET_Addr& aAddress);

/// A connection, or why there is none.
struct Connected {
    Descriptor socket;  ///< Blocking and close-on-exec.
    int error;          ///< 0, or an error number: ETIME when the limit passed.
};

/// Connects within a time. No cancellation point.
Connected connectSocket(const ACE_INET_Addr& aAddress, std::chrono::milliseconds aLimit);

}  // namespace osx

#endif
