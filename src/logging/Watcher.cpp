// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// One redirect client: sending, and noticing that it takes nothing. Whether a slow client is alive
// is told by its acknowledgements alone. TCP_USER_TIMEOUT would also count the time in which a
// client reads but its kernel does not yet open the window. Kernels open it in steps that depend on
// how the segments arrived; so lines go out in small segments of their own.
#include "logging/Watcher.h"

#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "sockets/connectionOptions.h"

namespace osx {

namespace {

/// For SO_SNDBUF, which the kernel doubles. Small: the ring keeps the lines of slow clients once
/// for all of them, and the kernel need not keep megabytes for each.
constexpr int kSendBuffer = 65536;

/// The size of a segment, and how many are sent by one system call.
constexpr std::size_t kSegment = 2048;
constexpr std::size_t kMaxSegments = LineRing::Chunk::kMaxBytes / kSegment;

/// A client with a full receive buffer opens its window again when a sixteenth of the buffer is
/// free, and at least as much as the kernel had joined on arrival, up to 17 segments. The window we
/// have seen may be smaller than the buffer, so that the share is taken as a twelfth.
constexpr std::size_t kWindowShare = 12;
constexpr std::size_t kJoined = 17 * kSegment;

/// @return how many bytes of the socket are not acknowledged, sent or not; 0 if that is not known.
int unacknowledged(int aSocket) {
    int lBytes = 0;
    return ::ioctl(aSocket, SIOCOUTQ, &lBytes) == 0 ? lBytes : 0;
}

struct SendResult {
    std::size_t mTaken;  ///< How many bytes the kernel took.
    int mError;          ///< The error if it took none; otherwise 0.
};

/// Sends without waiting, in small segments: a client's kernel joins some that arrive, and makes
/// room only when the program has read all of what was joined.
/// @param aSize at most `kMaxSegments` segments.
SendResult sendInSegments(int aSocket, const char* aText, std::size_t aSize) {
    std::array<iovec, kMaxSegments> lParts;
    std::array<mmsghdr, kMaxSegments> lSegments{};
    unsigned int lCount = 0;
    for (std::size_t lPlace = 0; lPlace < aSize; lPlace += kSegment, ++lCount) {
        // sendmmsg only reads the bytes.
        lParts[lCount] = {const_cast<char*>(aText) + lPlace, std::min(kSegment, aSize - lPlace)};
        lSegments[lCount].msg_hdr.msg_iov = &lParts[lCount];
        lSegments[lCount].msg_hdr.msg_iovlen = 1;
    }
    const int lSent =
        ::sendmmsg(aSocket, lSegments.data(), lCount, MSG_DONTWAIT | MSG_NOSIGNAL | MSG_EOR);
    if (lSent <= 0) {
        return {0, errno};
    }
    std::size_t lTaken = 0;
    for (int lSegment = 0; lSegment < lSent; ++lSegment) {
        lTaken += lSegments[static_cast<std::size_t>(lSegment)].msg_len;
    }
    return {lTaken, 0};
}

/// @return whether the connection has failed; otherwise it may take more later.
bool isFatal(int aError) {
    switch (aError) {
        case 0:
        case EAGAIN:
        case EINTR:
        case ENOBUFS:
        case ENOMEM:
            return false;
        default:
            return true;
    }
}

}  // namespace

/// `ConnectionAdmin` gave this connection a TCP_USER_TIMEOUT of an hour; here it is switched off,
/// because it would end slow readers. TCP_NODELAY, as lines are already sent together.
Watcher::Watcher(const void* aSocket, int aDescriptor)
    : mSocket(aSocket), mDescriptor(aDescriptor) {
    setOption(mDescriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, 0);
    setOption(mDescriptor, IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(mDescriptor, SOL_SOCKET, SO_SNDBUF, kSendBuffer);
}

// Not inline: the next one of the list is destroyed with it.
Watcher::~Watcher() = default;

void Watcher::begin(LineRing::Number aNext) {
    mNext = aNext;
    mRestSize = 0;
    mMayTake = true;
    mOwes = false;
    mTaken = mSent - unacknowledged(mDescriptor);
}

std::size_t Watcher::give(const LineRing& aRing, LineRing::Chunk& aChunk, Clock::time_point aNow) {
    if (!mOwes) {
        mOwes = true;
        mProgress = aNow;
    }
    if (mRestSize == 0 && !aChunk.holds(mNext)) {
        aRing.copy(mNext, aChunk);
        if (!aChunk.holds(mNext)) {
            tellMissed(aChunk.first() - mNext);
        }
    }
    const std::int64_t lBefore = mSent;
    const std::size_t lFailed = mRestSize != 0 ? giveRest() : giveLines(aChunk);
    if (lBefore + static_cast<std::int64_t>(kSegment) < mSent) {
        noteWindow();  // kernels open the window as data flows
    }
    return lFailed;
}

std::size_t Watcher::giveRest() {
    const std::size_t lSize = mRestSize;
    const std::size_t lSent = send(mRest.data() + mRestPlace, lSize);
    mRestPlace += lSent;
    mRestSize -= lSent;
    return mOver ? lSize : 0;
}

std::size_t Watcher::giveLines(const LineRing::Chunk& aChunk) {
    const std::size_t lStart = aChunk.startOf(mNext);
    const std::size_t lSize = aChunk.startOf(aChunk.end()) - lStart;
    const std::size_t lEnd = lStart + send(aChunk.text() + lStart, lSize);
    mNext = aChunk.lineAt(lEnd);
    if (aChunk.startOf(mNext) != lEnd) {
        ++mNext;
        keepRest(aChunk.text() + lEnd, aChunk.startOf(mNext) - lEnd);
    }
    return mOver ? lSize : 0;
}

/// @return how many bytes the kernel took. If the connection has failed, the client is over.
std::size_t Watcher::send(const char* aText, std::size_t aSize) {
    const SendResult lResult = sendInSegments(mDescriptor, aText, aSize);
    mOver = mOver || isFatal(lResult.mError);
    mMayTake = lResult.mTaken == aSize;
    mSent += static_cast<std::int64_t>(lResult.mTaken);
    return lResult.mTaken;
}

void Watcher::tellMissed(LineRing::Number aCount) {
    mNext += aCount;
    mRestPlace = 0;
    mRestSize = static_cast<std::size_t>(
        std::snprintf(mRest.data(), mRest.size(),
                      "RedirectService: %llu lines dropped, the clients were too slow\n",
                      static_cast<unsigned long long>(aCount)));
}

void Watcher::keepRest(const char* aText, std::size_t aSize) {
    std::memcpy(mRest.data(), aText, aSize);
    mRestPlace = 0;
    mRestSize = aSize;
}

/// Kernels before 5.4 do not report the window, which then stays 0.
void Watcher::noteWindow() {
    tcp_info lInfo{};
    socklen_t lLength = sizeof lInfo;
    if (::getsockopt(mDescriptor, IPPROTO_TCP, TCP_INFO, &lInfo, &lLength) == 0) {
        mWindow = std::max<std::size_t>(mWindow, lInfo.tcpi_snd_wnd);
    }
}

Watcher::Clock::duration Watcher::look(LineRing::Number aEnd, Clock::time_point aNow) {
    const int lOwed = unacknowledged(mDescriptor);
    const std::int64_t lTaken = mSent - lOwed;
    if (lTaken > mTaken) {
        mProgress = aNow;
    }
    mTaken = lTaken;
    mOwes = lOwed != 0 || isBehind(aEnd);
    noteWindow();
    mMayTake = true;  // a kernel without memory does not report room; so it is tried again
    return mOwes ? aNow - mProgress : Clock::duration::zero();
}

std::chrono::milliseconds Watcher::patience() const {
    const std::chrono::seconds lReading((mWindow / kWindowShare + kJoined) / kSlowest);
    return std::max(kPatience, std::chrono::milliseconds(lReading));
}

/// By a reset, so that the kernel does not keep what the client does not take.
void Watcher::cut() {
    constexpr linger kReset{1, 0};
    ::setsockopt(mDescriptor, SOL_SOCKET, SO_LINGER, &kReset, sizeof kReset);
    ::shutdown(mDescriptor, SHUT_RDWR);
    leave();
}

}  // namespace osx
