#include "sockets/socketTransfer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "sockets/vanishedPeer.h"

namespace {

/// Buffers handed to the kernel at once; vectors of any length go out in several turns.
constexpr int kBuffersPerTurn = 64;

/// For as long as nobody need look after the peer.
void waitUntilReady(int aSocket, short aEvents) {
    pollfd lPoll{aSocket, aEvents, 0};
    ::poll(&lPoll, 1, osx::kLookIntervalS * 1000);
}

bool isNonBlocking(int aSocket) {
    const int lFlags = ::fcntl(aSocket, F_GETFL);
    return lFlags != -1 && (lFlags & O_NONBLOCK) != 0;
}

/// @return whether a transfer that just failed is worth another try: the limit that a connection
///         has for one wait ends it, for a look at the peer. The wait is the next try's own, unless
///         the application made the socket non-blocking.
bool mayGoOn(int aSocket, short aEvents) {
    if (errno == EWOULDBLOCK || errno == EAGAIN) {
        if (osx::hasPeerVanished(aSocket)) {
            errno = ETIMEDOUT;
            return false;
        }
        if (isNonBlocking(aSocket)) {
            waitUntilReady(aSocket, aEvents);
        }
        return true;
    }
    return errno == EINTR;
}

ssize_t sendOnce(int aSocket, const iovec* aVec, std::size_t aCount) {
    msghdr lMessage{};
    lMessage.msg_iov = const_cast<iovec*>(aVec);  // which the kernel only reads
    lMessage.msg_iovlen = aCount;
    return ::sendmsg(aSocket, &lMessage, MSG_NOSIGNAL);
}

std::size_t totalLength(const iovec* aVec, std::size_t aCount) {
    std::size_t lTotal = 0;
    for (const iovec* lBuffer = aVec; lBuffer != aVec + aCount; ++lBuffer) {
        lTotal += lBuffer->iov_len;
    }
    return lTotal;
}

/// Takes what was sent off the front of the buffers.
void advance(iovec*& aVec, std::size_t& aCount, std::size_t aSent) {
    while (aCount > 0 && aSent >= aVec->iov_len) {
        aSent -= aVec->iov_len;
        ++aVec;
        --aCount;
    }
    if (aCount > 0) {
        aVec->iov_base = static_cast<char*>(aVec->iov_base) + aSent;
        aVec->iov_len -= aSent;
    }
}

/// Goes on, with a copy of the buffers that advances, after a send of `aSent` bytes; -1 if that
/// failed.
/// @return whether all bytes went out.
bool sendRest(int aSocket, const iovec* aVec, std::size_t aCount, ssize_t aSent) {
    std::array<iovec, kBuffersPerTurn> lCopy;
    std::copy_n(aVec, aCount, lCopy.begin());
    iovec* lVec = lCopy.data();
    while (aSent != -1 || mayGoOn(aSocket, POLLOUT)) {
        if (aSent != -1) {
            advance(lVec, aCount, static_cast<std::size_t>(aSent));
        }
        if (aCount == 0) {
            return true;
        }
        aSent = sendOnce(aSocket, lVec, aCount);
    }
    return false;
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
    std::size_t lTotal = 0;
    for (int lDone = 0; lDone < aCount; lDone += kBuffersPerTurn) {
        const iovec* const lTurn = aVec + lDone;
        const auto lCount = static_cast<std::size_t>(std::min(kBuffersPerTurn, aCount - lDone));
        const std::size_t lLength = totalLength(lTurn, lCount);
        const ssize_t lSent = sendOnce(aSocket, lTurn, lCount);
        if (static_cast<std::size_t>(lSent) != lLength &&
            !sendRest(aSocket, lTurn, lCount, lSent)) {
            return -1;
        }
        lTotal += lLength;
    }
    return static_cast<ssize_t>(lTotal);
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

}  // namespace osx
