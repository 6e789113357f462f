#include "osx/socketTransfer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace {

/// Buffers handed to the kernel at once; vectors of any length go out in several turns.
constexpr int kBuffersPerTurn = 64;

void waitUntilReady(int aSocket, short aEvents) {
    pollfd lPoll{aSocket, aEvents, 0};
    ::poll(&lPoll, 1, -1);
}

/// @return whether a transfer that just failed is worth another try, after waiting for it.
bool mayGoOn(int aSocket, short aEvents) {
    if (errno == EWOULDBLOCK || errno == EAGAIN) {
        waitUntilReady(aSocket, aEvents);
        return true;
    }
    return errno == EINTR;
}

/// Sends a few buffers, which are advanced on the way. @return as `sendAll`.
ssize_t sendTurn(int aSocket, iovec* aVec, std::size_t aCount) {
    ssize_t lTotal = 0;
    while (aCount > 0) {
        msghdr lMessage{};
        lMessage.msg_iov = aVec;
        lMessage.msg_iovlen = aCount;
        const ssize_t lSent = ::sendmsg(aSocket, &lMessage, MSG_NOSIGNAL);
        if (lSent == -1) {
            if (mayGoOn(aSocket, POLLOUT)) {
                continue;
            }
            return -1;
        }
        lTotal += lSent;
        auto lRest = static_cast<std::size_t>(lSent);
        while (aCount > 0 && lRest >= aVec->iov_len) {
            lRest -= aVec->iov_len;
            ++aVec;
            --aCount;
        }
        if (aCount > 0) {
            aVec->iov_base = static_cast<char*>(aVec->iov_base) + lRest;
            aVec->iov_len -= lRest;
        }
    }
    return lTotal;
}

}  // namespace

namespace osx {

ssize_t sendAll(int aSocket, const void* aData, std::size_t aLength) {
    const char* const lData = static_cast<const char*>(aData);
    std::size_t lDone = 0;
    while (lDone < aLength) {
        const ssize_t lSent = ::send(aSocket, lData + lDone, aLength - lDone, MSG_NOSIGNAL);
        if (lSent >= 0) {
            lDone += static_cast<std::size_t>(lSent);
        } else if (!mayGoOn(aSocket, POLLOUT)) {
            return -1;
        }
    }
    return static_cast<ssize_t>(lDone);
}

ssize_t sendAll(int aSocket, const iovec* aVec, int aCount) {
    ssize_t lTotal = 0;
    for (int lDone = 0; lDone < aCount; lDone += kBuffersPerTurn) {
        std::array<iovec, kBuffersPerTurn> lTurn{};
        const int lCount = std::min(kBuffersPerTurn, aCount - lDone);
        std::copy_n(aVec + lDone, lCount, lTurn.begin());
        const ssize_t lSent = sendTurn(aSocket, lTurn.data(), static_cast<std::size_t>(lCount));
        if (lSent == -1) {
            return -1;
        }
        lTotal += lSent;
    }
    return lTotal;
}

ssize_t receiveAll(int aSocket, void* aData, std::size_t aLength) {
    char* const lData = static_cast<char*>(aData);
    std::size_t lDone = 0;
    while (lDone < aLength) {
        const ssize_t lCame = ::recv(aSocket, lData + lDone, aLength - lDone, 0);
        if (lCame == 0) {
            return 0;
        }
        if (lCame > 0) {
            lDone += static_cast<std::size_t>(lCame);
        } else if (!mayGoOn(aSocket, POLLIN)) {
            return -1;
        }
    }
    return static_cast<ssize_t>(lDone);
}

void sendWithoutDelay(int aSocket) {
    const int lError = errno;
    const int lOn = 1;
    ::setsockopt(aSocket, IPPROTO_TCP, TCP_NODELAY, &lOn, sizeof lOn);
    errno = lError;
}

}  // namespace osx
