// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Connecting within a time.
//
// Not by ACE's connector, which lets another thread's child have the socket: it is not
// close-on-exec from the start. The socket does not block while it connects, and blocks afterwards,
// as every socket of the interface does.
#include "sockets/socketConnect.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "ace/INET_Addr.h"
#include "base/NoCancellation.h"
#include "base/standardDescriptors.h"
#include "sockets/connectionOptions.h"

namespace {

using Clock = std::chrono::steady_clock;

/// @return whether the text is a decimal number from 1 to 65535.
bool isPort(const char* aText) {
    constexpr unsigned long kMaxPort = 65535;
    if (std::isdigit(static_cast<unsigned char>(*aText)) == 0) {
        return false;
    }
    char* lEnd = nullptr;
    const unsigned long lPort = std::strtoul(aText, &lEnd, 10);
    return *lEnd == '\0' && lPort >= 1 && lPort <= kMaxPort;
}

/// @param aError what ACE leaves in `errno`: mostly a code of the look-up's own, a negative number.
/// @return an error number.
int errnoOfLookup(int aError) {
    switch (aError) {
        case EAI_AGAIN:
            return EAGAIN;
        case EAI_MEMORY:
            return ENOMEM;
        default:
            return aError > 0 ? aError : ENOENT;
    }
}

/// Waits for a connection that is being made. @return 0 when it came about or failed, else an error
///         number.
int waitForOutcome(int aSocket, Clock::time_point aDeadline) {
    for (;;) {
        const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(aDeadline - Clock::now());
        pollfd lPoll{aSocket, POLLOUT, 0};
        const int lReady =
            ::poll(&lPoll, 1, lLeft.count() < 0 ? 0 : static_cast<int>(lLeft.count()));
        if (lReady == 0) {
            return ETIME;
        }
        if (lReady == 1 || errno != EINTR) {
            return lReady == 1 ? 0 : errno;
        }
    }
}

/// @return 0 if the connection came about, else why not.
int outcome(int aSocket) {
    int lError = 0;
    socklen_t lLength = sizeof lError;
    return ::getsockopt(aSocket, SOL_SOCKET, SO_ERROR, &lError, &lLength) == -1 ? errno : lError;
}

/// @return 0, or an error number; as of the functions below.
int connectWithin(int aSocket, const ACE_INET_Addr& aAddress, Clock::time_point aDeadline) {
    const auto* const lAddress = static_cast<const sockaddr*>(aAddress.get_addr());
    if (::connect(aSocket, lAddress, static_cast<socklen_t>(aAddress.get_size())) == 0) {
        return 0;
    }
    if (errno != EINPROGRESS && errno != EINTR) {
        return errno;
    }
    const int lError = waitForOutcome(aSocket, aDeadline);
    return lError != 0 ? lError : outcome(aSocket);
}

/// A port of this machine that nobody listens on may be the one that the kernel gives to the
/// connection itself, which then meets itself.
bool isConnectedToItself(int aSocket, const ACE_INET_Addr& aAddress) {
    sockaddr_in lLocal{};
    socklen_t lLength = sizeof lLocal;
    auto* const lGeneric = reinterpret_cast<sockaddr*>(&lLocal);
    return ::getsockname(aSocket, lGeneric, &lLength) == 0 &&
           ACE_INET_Addr(&lLocal, static_cast<int>(lLength)) == aAddress;
}

int makeBlocking(int aSocket) {
    const int lFlags = ::fcntl(aSocket, F_GETFL);
    const bool lDone = lFlags != -1 && ::fcntl(aSocket, F_SETFL, lFlags & ~O_NONBLOCK) != -1;
    return lDone ? 0 : errno;
}

int establish(int aSocket, const ACE_INET_Addr& aAddress, Clock::time_point aDeadline) {
    if (const int lError = connectWithin(aSocket, aAddress, aDeadline)) {
        return lError;
    }
    if (isConnectedToItself(aSocket, aAddress)) {
        return ECONNREFUSED;
    }
    osx::prepareConnection(aSocket);
    return makeBlocking(aSocket);
}

}  // namespace

namespace osx {

int parseAddress(const char* aText, ACE_INET_Addr& aAddress) try {
    const char* const lColon = aText == nullptr ? nullptr : std::strrchr(aText, ':');
    if (lColon == nullptr || lColon == aText || !isPort(lColon + 1)) {
        return EINVAL;
    }
    ACE_INET_Addr lAddress;
    if (lAddress.set(aText, AF_INET) == -1 || lAddress.get_type() != AF_INET) {
        return errnoOfLookup(errno);
    }
    aAddress = lAddress;
    return 0;
} catch (const std::bad_alloc&) {  // an address of ACE's keeps all that a name stands for
    return ENOMEM;
}

Connected connectSocket(const ACE_INET_Addr& aAddress, std::chrono::milliseconds aLimit) {
    const NoCancellation lGuard;  // the socket would be lost; the time is limited
    const Clock::time_point lDeadline = Clock::now() + aLimit;
    Descriptor lSocket = makeDescriptor(
        [] { return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); });
    if (!lSocket) {
        return {Descriptor(), errno};
    }
    if (const int lError = establish(lSocket.get(), aAddress, lDeadline)) {
        return {Descriptor(), lError};
    }
    return {std::move(lSocket), 0};
}

}  // namespace osx
