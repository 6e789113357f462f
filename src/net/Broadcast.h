// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// One broadcast of a `ConnectionAdmin` to its clients. Internal.
#ifndef OSX_NET_BROADCAST_H
#define OSX_NET_BROADCAST_H

#include <poll.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "net/ConnectionAdmin.h"

/// A connected client. It stays in the list, and its socket open, while it is being sent to, also
/// when its connection is closing.
struct ConnectionAdmin::Client {
    using Clock = std::chrono::steady_clock;
    static constexpr int kNotKnown = -1;

    explicit Client(void* aSocket) : mSocket(aSocket) {}
    [[gnu::noinline]] ~Client();
    /// @return an invalid one if there is no socket.
    int descriptor() const;

    void* const mSocket;

    /// @name Guarded by the administrator's `mMutex`
    /// @{
    std::unique_ptr<Client> mNext;  ///< The one that connected next.
    bool mIsSentTo = false;         ///< Whether a broadcast still has bytes for it.
    bool mClosing = false;          ///< Whether its connection closes, and waits for the broadcast.
    /// @}

    /// @name Of the thread whose broadcast sends to it
    /// @{
    std::size_t mSent = 0;            ///< Bytes of the frame.
    int mQueued = kNotKnown;          ///< Bytes not acknowledged, when it last took nothing.
    Clock::time_point mLastProgress;  ///< When it was last found to have taken something.
    /// @}
};

/// What every client is sent: some bytes, or a block behind its length.
class ConnectionAdmin::Frame {
public:
    Frame(unsigned char* aData, std::size_t aLen) : mParts{{{nullptr, 0}, {aData, aLen}}} {}
    static Frame ofBlock(unsigned char* aData, std::uint32_t aLen);

    std::size_t size() const { return mParts[0].iov_len + mParts[1].iov_len; }

    /// Sends what follows the first bytes of it, as much as the kernel takes now.
    /// @return the number of bytes taken; -1 with `errno`.
    ssize_t sendFrom(std::size_t aSent, int aDescriptor) const;

private:
    std::array<unsigned char, 4> mLength{};
    /// The length, if it is a block, and the bytes. The address of the first part is filled in when
    /// it is sent, because a frame may be copied.
    std::array<iovec, 2> mParts;
};

/// Clients that could not be sent everything.
struct ConnectionAdmin::Failures {
    int mNumber = 0;
    int mError = 0;          ///< Of the latest one.
    int mWithoutSocket = 0;  ///< Not among the others: an application announced a null handle.
};

/// One frame on its way to the clients that were connected at its start. Each client is let go of
/// as soon as it has taken everything. All are let go of when the broadcast ends early, as by a
/// cancellation. With the last client the turn goes to the next broadcast.
///
/// Only the wait is a cancellation point. No line is written before the end: a log back end could
/// answer it with another broadcast, in the middle of frames.
class ConnectionAdmin::Broadcast {
public:
    /// @param aFrame is needed for as long as the object.
    Broadcast(const ConnectionAdmin& aAdmin, const Frame& aFrame)
        : mAdmin(aAdmin), mFrame(aFrame) {}
    ~Broadcast();
    Broadcast(const Broadcast&) = delete;
    Broadcast& operator=(const Broadcast&) = delete;

    /// Returns when every client has taken everything, or was given up.
    Failures run();

private:
    Client* begin() const;
    void waitForTurn() const OSX_REQUIRES(mAdmin.mMutex);
    void end() const OSX_REQUIRES(mAdmin.mMutex);
    void goRound(Client* aFirst);
    bool serve(Client& aClient);
    bool mayStillTakeSome(Client& aClient) const;
    void giveUp(Client& aClient, int aError);
    void shutDownIfUnfinished(const Client& aClient) const;
    void waitForAny();

    // The clients that are still sent to.
    Client* first() const;
    Client* next(Client& aClient, bool aIsDone) const;
    static Client* sentToFrom(Client* aClient);
    void letGo(Client& aClient) const OSX_REQUIRES(mAdmin.mMutex);

    static constexpr int kLookMs = 1000;
    static constexpr int kManyWaitMs = 10;

    const ConnectionAdmin& mAdmin;
    const Frame& mFrame;
    Failures mFailures;
    /// The clients that were not done in the last round. Those for which there is no place here are
    /// looked at again after a short while.
    std::array<pollfd, 64> mWaiting;
    /// How many clients were not done, which may be more than there are places.
    std::size_t mNumberWaiting = 0;
};

#endif
