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

/// The kernel doubles it. What a client is behind with stands in the ring, once for all of them,
/// and not in megabytes of the kernel's for each.
constexpr int kSendBuffer = 65536;

/// What is sent as one segment, and how many of them at once.
constexpr std::size_t kSegment = 2048;
constexpr std::size_t kMaxSegments = LineRing::Chunk::kMaxBytes / kSegment;

/// A client with a full buffer opens its window again when a sixteenth of it is free, and no less
/// than some segments; the window seen may have been smaller than the buffer.
constexpr std::size_t kWindowShare = 12;
constexpr std::size_t kJoined = 17 * kSegment;

/// @return how many bytes are on their way, sent or not; 0 if that cannot be told.
int queuedAt(int aSocket) {
    int lBytes = 0;
    return ::ioctl(aSocket, SIOCOUTQ, &lBytes) == 0 ? lBytes : 0;
}

/// Sends without waiting, in segments of a limited size: a client's kernel joins some that arrive,
/// and makes room only when the program has read all of what was joined.
/// @param aSize at most `kMaxSegments` segments. @param[out] aTaken how many bytes went out.
/// @return false with `errno` if none did.
bool sendInSegments(int aSocket, const char* aText, std::size_t aSize, std::size_t& aTaken) {
    std::array<iovec, kMaxSegments> lParts;
    std::array<mmsghdr, kMaxSegments> lSegments{};
    unsigned int lCount = 0;
    for (std::size_t lPlace = 0; lPlace < aSize; lPlace += kSegment, ++lCount) {
        // The bytes are only read.
        lParts[lCount] = {const_cast<char*>(aText) + lPlace, std::min(kSegment, aSize - lPlace)};
        lSegments[lCount].msg_hdr.msg_iov = &lParts[lCount];
        lSegments[lCount].msg_hdr.msg_iovlen = 1;
    }
    const int lSent =
        ::sendmmsg(aSocket, lSegments.data(), lCount, MSG_DONTWAIT | MSG_NOSIGNAL | MSG_EOR);
    for (int lSegment = 0; lSegment < lSent; ++lSegment) {
        aTaken += lSegments[static_cast<std::size_t>(lSegment)].msg_len;
    }
    return lSent > 0;
}

bool isOfTheMoment(int aErrno) {
    return aErrno == EAGAIN || aErrno == EWOULDBLOCK || aErrno == EINTR || aErrno == ENOBUFS ||
           aErrno == ENOMEM;
}

}  // namespace

/// The kernel's own limit on bytes that are not acknowledged would count the time too in which a
/// client reads but has not made room enough. It need not gather small sends: lines are sent
/// together as it is.
Watcher::Watcher(const void* aSocket, int aDescriptor)
    : mSocket(aSocket), mDescriptor(aDescriptor) {
    setOption(mDescriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, 0);
    setOption(mDescriptor, IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(mDescriptor, SOL_SOCKET, SO_SNDBUF, kSendBuffer);
}

void Watcher::begin(LineRing::Number aNext) {
    mNext = aNext;
    mRestSize = 0;
    mMayTake = true;
    mOwes = false;
    mTaken = mSent - queuedAt(mDescriptor);
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
        noteWindow();  // now that it may be large, as much is on its way
    }
    return lFailed;
}

std::size_t Watcher::giveRest() {
    std::size_t lFailed = 0;
    const std::size_t lSent = send(mRest.data() + mRestPlace, mRestSize, lFailed);
    mRestPlace += lSent;
    mRestSize -= lSent;
    return lFailed;
}

std::size_t Watcher::giveLines(const LineRing::Chunk& aChunk) {
    std::size_t lFailed = 0;
    const std::size_t lStart = aChunk.startOf(mNext);
    const std::size_t lEnd =
        lStart + send(aChunk.text() + lStart, aChunk.startOf(aChunk.end()) - lStart, lFailed);
    mNext = aChunk.lineAt(lEnd);
    if (aChunk.startOf(mNext) != lEnd) {
        ++mNext;
        keepRest(aChunk.text() + lEnd, aChunk.startOf(mNext) - lEnd);
    }
    return lFailed;
}

/// @return how many bytes the kernel took.
std::size_t Watcher::send(const char* aText, std::size_t aSize, std::size_t& aFailed) {
    std::size_t lTaken = 0;
    if (!sendInSegments(mDescriptor, aText, aSize, lTaken) && !isOfTheMoment(errno)) {
        mOver = true;
        aFailed = aSize;
    }
    mMayTake = lTaken == aSize;
    mSent += static_cast<std::int64_t>(lTaken);
    return lTaken;
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

/// Kernels that do not tell leave it 0.
void Watcher::noteWindow() {
    tcp_info lInfo{};
    socklen_t lLength = sizeof lInfo;
    if (::getsockopt(mDescriptor, IPPROTO_TCP, TCP_INFO, &lInfo, &lLength) == 0) {
        mWindow = std::max<std::size_t>(mWindow, lInfo.tcpi_snd_wnd);
    }
}

Watcher::Clock::duration Watcher::look(LineRing::Number aEnd, Clock::time_point aNow) {
    const int lQueued = queuedAt(mDescriptor);
    const std::int64_t lTaken = mSent - lQueued;
    if (lTaken > mTaken) {
        mProgress = aNow;
    }
    mTaken = lTaken;
    mOwes = lQueued != 0 || isBehind(aEnd);
    noteWindow();
    mMayTake = true;  // should the kernel have had no memory to tell of room
    return mOwes ? aNow - mProgress : Clock::duration::zero();
}

std::chrono::milliseconds Watcher::patience() const {
    const std::chrono::seconds lReading((mWindow / kWindowShare + kJoined) / kSlowest);
    return std::max(kPatience, std::chrono::milliseconds(lReading));
}

/// With a reset, so that what it does not take leaves the kernel, too.
void Watcher::cut() {
    constexpr linger kReset{1, 0};
    ::setsockopt(mDescriptor, SOL_SOCKET, SO_LINGER, &kReset, sizeof kReset);
    ::shutdown(mDescriptor, SHUT_RDWR);
    leave();
}

}  // namespace osx
