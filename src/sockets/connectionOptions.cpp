// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The options of a TCP connection. An option that the kernel refuses is skipped: the connection
// serves all the same.
#include "sockets/connectionOptions.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "base/ErrnoKeeper.h"
#include "sockets/vanishedPeer.h"

namespace {

template <class Value>
void set(int aSocket, int aLevel, int aName, const Value& aValue) {
    const osx::ErrnoKeeper lKeeper;
    ::setsockopt(aSocket, aLevel, aName, &aValue, sizeof aValue);
}

/// A transfer that waits returns after this time, looks whether its peer is still there, and waits
/// on.
void limitWaits(int aSocket) {
    const timeval lLimit{osx::kLookIntervalS, 0};
    set(aSocket, SOL_SOCKET, SO_RCVTIMEO, lLimit);
    set(aSocket, SOL_SOCKET, SO_SNDTIMEO, lLimit);
}

}  // namespace

namespace osx {

void setOption(int aSocket, int aLevel, int aName, int aValue) {
    set(aSocket, aLevel, aName, aValue);
}

void keepAlive(int aSocket, const KeepAlive& aKeepAlive) {
    setOption(aSocket, IPPROTO_TCP, TCP_KEEPIDLE, aKeepAlive.idleS);
    setOption(aSocket, IPPROTO_TCP, TCP_KEEPINTVL, aKeepAlive.intervalS);
    setOption(aSocket, IPPROTO_TCP, TCP_KEEPCNT, aKeepAlive.probes);
    setOption(aSocket, SOL_SOCKET, SO_KEEPALIVE, 1);
}

void prepareConnection(int aSocket) {
    setOption(aSocket, IPPROTO_TCP, TCP_NODELAY, 1);
    keepAlive(aSocket, kKeepAlive);
    limitWaits(aSocket);
}

}  // namespace osx
