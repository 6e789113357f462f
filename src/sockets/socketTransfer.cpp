// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Whole transfers on a socket.
//
// A connection has a limit of `kLookIntervalS` for one wait of the kernel's. A transfer that meets
// it looks whether the peer has vanished, which the kernel would notice much later, and waits on. A
// send that need not wait looks now and then, too: to a peer that gets little, all have room.
#include "sockets/socketTransfer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "sockets/vanishedPeer.h"

namespace {

/// Buffers handed to the kernel at once; vectors of any length go out in several turns.
constexpr int kBuffersPerTurn = 64;

/// Waits, no longer than until the next look at the peer.
void waitUntilReady(int aSocket, short aEvents) {
    pollfd lPoll{aSocket, aEvents, 0};
    ::poll(&lPoll, 1, osx::kLookIntervalS * 1000);
}

bool isNonBlocking(int aSocket) {
    const int lFlags = ::fcntl(aSocket, F_GETFL);
    return lFlags != -1 && (lFlags & O_NONBLOCK) != 0;
}

/// What a transfer that failed does before it is tried again. It waits only where the application
/// has made the socket non-blocking; else the next try waits.
/// @param aError why it failed.
/// @return 0 to try again, else the error with which the transfer ends.
int prepareNextTry(int aSocket, short aEvents, int aError) {
    if (aError == EINTR) {
        return 0;
    }
    if (aError != EWOULDBLOCK && aError != EAGAIN) {
        return aError;
    }
    if (osx::hasPeerVanished(aSocket)) {
        return ETIMEDOUT;
    }
    if (isNonBlocking(aSocket)) {
        waitUntilReady(aSocket, aEvents);
    }
    return 0;
}

/// What a send returns that the kernel has taken whole. After a failure later ones fail, too.
int resultOfSend(int aSocket) {
    if (!osx::isSeenToHaveVanished(aSocket)) {
        return 0;
    }
    ::shutdown(aSocket, SHUT_RDWR);
    return ETIMEDOUT;
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

/// Goes on after a first send that did not take all.
/// @param aVec not changed: a copy of it advances.
/// @param aSent what that send returned.
/// @return 0 when all bytes went out, else an error number.
int sendRest(int aSocket, const iovec* aVec, std::size_t aCount, ssize_t aSent) {
    std::array<iovec, kBuffersPerTurn> lCopy;
    std::copy_n(aVec, aCount, lCopy.begin());
    iovec* lVec = lCopy.data();
    for (;;) {
        if (aSent == -1) {
            if (const int lError = prepareNextTry(aSocket, POLLOUT, errno)) {
                return lError;
            }
        } else {
            advance(lVec, aCount, static_cast<std::size_t>(aSent));
        }
        if (aCount == 0) {
            return 0;
        }
        aSent = sendOnce(aSocket, lVec, aCount);
    }
}

}  // namespace

namespace osx {

int sendAll(int aSocket, const void* aData, std::size_t aLength) {
    const char* const lData = static_cast<const char*>(aData);
    std::size_t lDone = 0;
    while (lDone < aLength) {
        const ssize_t lSent = ::send(aSocket, lData + lDone, aLength - lDone, MSG_NOSIGNAL);
        if (lSent >= 0) {
            lDone += static_cast<std::size_t>(lSent);
        } else if (const int lError = prepareNextTry(aSocket, POLLOUT, errno)) {
            return lError;
        }
    }
    return aLength == 0 ? 0 : resultOfSend(aSocket);
}

int sendAll(int aSocket, const iovec* aVec, int aCount) {
    for (int lDone = 0; lDone < aCount; lDone += kBuffersPerTurn) {
        const iovec* const lTurn = aVec + lDone;
        const auto lCount = static_cast<std::size_t>(std::min(kBuffersPerTurn, aCount - lDone));
        const ssize_t lSent = sendOnce(aSocket, lTurn, lCount);
        if (static_cast<std::size_t>(lSent) == totalLength(lTurn, lCount)) {
            continue;
        }
        if (const int lError = sendRest(aSocket, lTurn, lCount, lSent)) {
            return lError;
        }
    }
    return aCount > 0 ? resultOfSend(aSocket) : 0;
}

Received receiveAll(int aSocket, void* aData, std::size_t aLength) {
    char* const lData = static_cast<char*>(aData);
    std::size_t lDone = 0;
    while (lDone < aLength) {
        const ssize_t lCame = ::recv(aSocket, lData + lDone, aLength - lDone, 0);
        if (lCame == 0) {
            return {0, 0};
        }
        if (lCame > 0) {
            lDone += static_cast<std::size_t>(lCame);
        } else if (const int lError = prepareNextTry(aSocket, POLLIN, errno)) {
            return {-1, lError};
        }
    }
    return {static_cast<ssize_t>(lDone), 0};
}

void tellUnsent(unsigned long aLen) {
    DiagnosticLine(kOsxModule)
        .failure(LM_DEBUG, "%t osxSocketSend: lNrOfBytesSend[%d] != aLen[%d] \n", -1, aLen);
}

}  // namespace osx
