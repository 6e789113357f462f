// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// One broadcast to the clients of a ConnectionAdmin.
//
// It goes round: every client is given what it takes at once, and then one `poll` waits for all
// those that have not taken everything. A client that takes nothing for too long is given up, as
// one whose connection fails. The administrator's lock is held only to step from client to client;
// a broadcast that finds another in progress waits on a condition. For one client locks are most of
// what a broadcast takes beyond the send, so it takes just two.
#include "net/Broadcast.h"

#include <linux/net.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "ace/SOCK_Stream.h"
#include "base/NoCancellation.h"

namespace {

/// @return how many bytes the peer has not acknowledged.
int unacknowledged(int aDescriptor) {
    int lBytes = 0;
    ::ioctl(aDescriptor, SIOCOUTQ, &lBytes);
    return lBytes;
}

/// Sends without waiting. `::sendmsg` is a cancellation point, after which nobody knows what was
/// sent: to hold cancellations off around it takes as long as a lock or two, this nothing.
ssize_t sendNow(int aDescriptor, const msghdr& aMessage) {
    constexpr int kFlags = MSG_NOSIGNAL | MSG_DONTWAIT;
#ifdef SYS_socketcall  // Where there is this, older kernels have no other.
    unsigned long lArguments[] = {static_cast<unsigned long>(aDescriptor),
                                  reinterpret_cast<unsigned long>(&aMessage), kFlags};
    return ::syscall(SYS_socketcall, SYS_SENDMSG, lArguments);
#else
    return ::syscall(SYS_sendmsg, aDescriptor, &aMessage, kFlags);
#endif
}

}  // namespace

// Not inline: the next one of the list is destroyed with it.
ConnectionAdmin::Client::~Client() = default;

int ConnectionAdmin::Client::descriptor() const {
    return mSocket == nullptr ? ACE_INVALID_HANDLE
                              : static_cast<ACE_SOCK_Stream*>(mSocket)->get_handle();
}

ConnectionAdmin::Frame ConnectionAdmin::Frame::ofBlock(unsigned char* aData, std::uint32_t aLen) {
    Frame lFrame(aData, aLen);
    for (std::size_t lByte = 0; lByte < lFrame.mLength.size(); ++lByte) {
        lFrame.mLength[lByte] = static_cast<unsigned char>(aLen >> (8 * lByte));
    }
    lFrame.mParts[0].iov_len = lFrame.mLength.size();
    return lFrame;
}

ssize_t ConnectionAdmin::Frame::sendFrom(std::size_t aSent, int aDescriptor) const {
    std::array<iovec, 2> lParts = mParts;
    lParts[0].iov_base = const_cast<unsigned char*>(mLength.data());
    for (iovec& lPart : lParts) {
        const std::size_t lDone = std::min(aSent, lPart.iov_len);
        lPart.iov_base = static_cast<unsigned char*>(lPart.iov_base) + lDone;
        lPart.iov_len -= lDone;
        aSent -= lDone;
    }
    msghdr lMessage{};
    lMessage.msg_iov = lParts.data();
    lMessage.msg_iovlen = lParts.size();
    return sendNow(aDescriptor, lMessage);
}

ConnectionAdmin::Broadcast::~Broadcast() {
    Client* lClient = mNumberWaiting == 0 ? nullptr : first();
    mNumberWaiting = 0;
    while (lClient != nullptr) {
        shutDownIfUnfinished(*lClient);
        lClient = next(*lClient, true);
    }
}

ConnectionAdmin::Failures ConnectionAdmin::Broadcast::run() {
    goRound(begin());
    while (mNumberWaiting != 0) {
        waitForAny();
        goRound(first());
    }
    return mFailures;
}

/// Makes the clients of this moment those of the broadcast. @return the first of them.
ConnectionAdmin::Client* ConnectionAdmin::Broadcast::begin() const {
    const osx::MutexLock lGuard(mAdmin.mMutex);
    if (mAdmin.mIsBroadcasting) {
        waitForTurn();
    }
    mAdmin.mIsBroadcasting = true;
    for (Client* lClient = mAdmin.mConnections.get(); lClient != nullptr;
         lClient = lClient->mNext.get()) {
        lClient->mIsSentTo = !lClient->mClosing;
        lClient->mSent = 0;
        lClient->mQueued = Client::kNotKnown;
    }
    Client* const lFirst = sentToFrom(mAdmin.mConnections.get());
    if (lFirst == nullptr) {
        end();
    }
    return lFirst;
}

void ConnectionAdmin::Broadcast::waitForTurn() const {
    const osx::NoCancellation lGuard;  // the one that is woken has to take its turn
    ++mAdmin.mBroadcastsWaiting;
    while (mAdmin.mIsBroadcasting) {
        mAdmin.mBroadcastEnded.wait(mAdmin.mMutex);
    }
    --mAdmin.mBroadcastsWaiting;
}

/// The last client was let go of: the next broadcast may begin.
void ConnectionAdmin::Broadcast::end() const {
    mAdmin.mIsBroadcasting = false;
    if (mAdmin.mBroadcastsWaiting > 0) {
        mAdmin.mBroadcastEnded.wakeOne();
    }
}

/// Gives every client what it takes now, and notes those that have to be waited for. Nothing in it
/// is a cancellation point.
void ConnectionAdmin::Broadcast::goRound(Client* aFirst) {
    mNumberWaiting = 0;
    for (Client* lClient = aFirst; lClient != nullptr;) {
        const bool lIsDone = serve(*lClient);
        if (!lIsDone && mNumberWaiting++ < mWaiting.size()) {
            mWaiting[mNumberWaiting - 1] = {lClient->descriptor(), POLLOUT, 0};
        }
        lClient = next(*lClient, lIsDone);
    }
}

/// Gives a client what it takes now.
/// @return whether the broadcast is done with it: it has everything, or was given up.
bool ConnectionAdmin::Broadcast::serve(Client& aClient) {
    if (aClient.mSocket == nullptr) {
        ++mFailures.mWithoutSocket;
        return true;
    }
    const int lDescriptor = aClient.descriptor();
    while (aClient.mSent < mFrame.size()) {
        const ssize_t lSent = mFrame.sendFrom(aClient.mSent, lDescriptor);
        if (lSent > 0) {
            aClient.mSent += static_cast<std::size_t>(lSent);
            aClient.mQueued = Client::kNotKnown;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (mayStillTakeSome(aClient)) {
                return false;
            }
            giveUp(aClient, ETIMEDOUT);
            return true;
        } else if (errno != EINTR) {
            giveUp(aClient, errno);
            return true;
        }
    }
    return true;
}

/// @return whether a client that takes nothing now has made progress not too long ago: it has been
///         sent something, or has acknowledged something of what it had been sent before.
bool ConnectionAdmin::Broadcast::mayStillTakeSome(Client& aClient) const {
    const int lQueued = unacknowledged(aClient.descriptor());
    const int lBefore = std::exchange(aClient.mQueued, lQueued);
    const auto lNow = Client::Clock::now();
    if (lBefore == Client::kNotKnown || lQueued < lBefore) {
        aClient.mLastProgress = lNow;
    }
    return lNow - aClient.mLastProgress < std::chrono::milliseconds(kStalledClientMs);
}

void ConnectionAdmin::Broadcast::giveUp(Client& aClient, int aError) {
    ++mFailures.mNumber;
    mFailures.mError = aError;
    if (aError == ETIMEDOUT) {
        ::shutdown(aClient.descriptor(), SHUT_RDWR);
    }
    shutDownIfUnfinished(aClient);
}

/// A client that has a part of a frame could not tell where the next one begins.
void ConnectionAdmin::Broadcast::shutDownIfUnfinished(const Client& aClient) const {
    if (aClient.mSent != 0 && aClient.mSent < mFrame.size()) {
        ::shutdown(aClient.descriptor(), SHUT_RDWR);
    }
}

/// A connection that is closed, or shut down, ends the wait as well.
void ConnectionAdmin::Broadcast::waitForAny() {
    const std::size_t lNumber = std::min(mNumberWaiting, mWaiting.size());
    const int lLimit = lNumber < mNumberWaiting ? kManyWaitMs : kLookMs;
    ::poll(mWaiting.data(), static_cast<nfds_t>(lNumber), lLimit);
}

ConnectionAdmin::Client* ConnectionAdmin::Broadcast::first() const {
    const osx::MutexLock lGuard(mAdmin.mMutex);
    return sentToFrom(mAdmin.mConnections.get());
}

/// Steps on, and lets go of a client that the broadcast is done with.
ConnectionAdmin::Client* ConnectionAdmin::Broadcast::next(Client& aClient, bool aIsDone) const {
    const osx::MutexLock lGuard(mAdmin.mMutex);
    Client* const lNext = sentToFrom(aClient.mNext.get());
    if (aIsDone) {
        letGo(aClient);
    }
    if (lNext == nullptr && mNumberWaiting == 0) {
        end();
    }
    return lNext;
}

/// @return the first client that is still sent to, from this one on; null if there is none.
ConnectionAdmin::Client* ConnectionAdmin::Broadcast::sentToFrom(Client* aClient) {
    while (aClient != nullptr && !aClient->mIsSentTo) {
        aClient = aClient->mNext.get();
    }
    return aClient;
}

/// From then on a closing connection may take the client out of the list.
void ConnectionAdmin::Broadcast::letGo(Client& aClient) const {
    aClient.mIsSentTo = false;
    if (aClient.mClosing) {
        mAdmin.mSendEnded.wakeAll();
    }
}
