#include "sockets/socketConnect.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "ace/INET_Addr.h"
#include "base/NoCancellation.h"
#include "base/closeKeepingErrno.h"
#include "base/standardDescriptors.h"
#include "sockets/connectionOptions.h"

namespace {

using Clock = std::chrono::steady_clock;

/// @return 0 unless the text is a decimal number from 1 to 65535.
unsigned short parsePort(const char* aText) {
    constexpr unsigned long kMaxPort = 65535;
    if (std::isdigit(static_cast<unsigned char>(*aText)) == 0) {
        return 0;
    }
    char* lEnd = nullptr;
    const unsigned long lPort = std::strtoul(aText, &lEnd, 10);
    return *lEnd != '\0' || lPort > kMaxPort ? 0 : static_cast<unsigned short>(lPort);
}

/// @param aError what ACE leaves in `errno`: mostly a code of the look-up's own, a negative number.
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

/// Waits for a connection that is being made. @return whether something came of it.
bool waitForOutcome(int aSocket, Clock::time_point aDeadline) {
    for (;;) {
        const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(aDeadline - Clock::now());
        pollfd lPoll{aSocket, POLLOUT, 0};
        const int lReady =
            ::poll(&lPoll, 1, lLeft.count() < 0 ? 0 : static_cast<int>(lLeft.count()));
        if (lReady == 0) {
            errno = ETIME;
        }
        if (lReady != -1 || errno != EINTR) {
            return lReady == 1;
        }
    }
}

/// @return whether the connection came about; its error is left in `errno`.
bool outcome(int aSocket) {
    int lError = 0;
    socklen_t lLength = sizeof lError;
    if (::getsockopt(aSocket, SOL_SOCKET, SO_ERROR, &lError, &lLength) == -1) {
        return false;
    }
    errno = lError;
    return lError == 0;
}

bool connectWithin(int aSocket, const ACE_INET_Addr& aAddress, Clock::time_point aDeadline) {
    const auto* const lAddress = static_cast<const sockaddr*>(aAddress.get_addr());
    if (::connect(aSocket, lAddress, static_cast<socklen_t>(aAddress.get_size())) == 0) {
        return true;
    }
    return (errno == EINPROGRESS || errno == EINTR) && waitForOutcome(aSocket, aDeadline) &&
           outcome(aSocket);
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

bool makeBlocking(int aSocket) {
    const int lFlags = ::fcntl(aSocket, F_GETFL);
    return lFlags != -1 && ::fcntl(aSocket, F_SETFL, lFlags & ~O_NONBLOCK) != -1;
}

bool establish(int aSocket, const ACE_INET_Addr& aAddress, Clock::time_point aDeadline) {
    if (!connectWithin(aSocket, aAddress, aDeadline)) {
        return false;
    }
    if (isConnectedToItself(aSocket, aAddress)) {
        errno = ECONNREFUSED;
        return false;
    }
    osx::prepareConnection(aSocket);
    return makeBlocking(aSocket);
}

}  // namespace

namespace osx {

bool parseAddress(const char* aText, ACE_INET_Addr& aAddress) {
    const char* const lColon = aText == nullptr ? nullptr : std::strrchr(aText, ':');
    if (lColon == nullptr || lColon == aText || parsePort(lColon + 1) == 0) {
        errno = EINVAL;
        return false;
    }
    ACE_INET_Addr lAddress;
    if (lAddress.set(aText, AF_INET) == -1 || lAddress.get_type() != AF_INET) {
        errno = errnoOfLookup(errno);
        return false;
    }
    aAddress = lAddress;
    return true;
}

int connectSocket(const ACE_INET_Addr& aAddress, std::chrono::milliseconds aLimit) {
    const NoCancellation lGuard;  // the socket would be lost; the time is limited
    const Clock::time_point lDeadline = Clock::now() + aLimit;
    const int lSocket = makeDescriptor([] {
                            return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
                        }).release();
    if (lSocket != -1 && !establish(lSocket, aAddress, lDeadline)) {
        closeKeepingErrno(lSocket);
        return -1;
    }
    return lSocket;
}

}  // namespace osx
