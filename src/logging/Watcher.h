// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// One client of the redirect service.
#ifndef OSX_LOGGING_WATCHER_H
#define OSX_LOGGING_WATCHER_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "logging/LineRing.h"

namespace osx {

/// A client: how far it has been sent the lines, and how much of that it has acknowledged. It has
/// no lock of its own: `Watchers` guards it.
///
/// Nothing here waits. A line that the kernel has no room for stays in the ring. Of a line that the
/// kernel took in part the rest is kept here, so that the line is finished even when the ring
/// overwrites it.
///
/// | state      | told by                   | next                                             |
/// |------------|---------------------------|--------------------------------------------------|
/// | up to date | not `isBehind`            | a line is put into the ring: behind              |
/// | behind     | `isBehind` and `mayTake`  | `give`: up to date, behind still, or waiting     |
/// | waiting    | `isBehind`, not `mayTake` | the kernel has room again (`roomMade`): behind   |
/// | over       | `isOver`                  | none: it is sent nothing more                    |
///
/// A failed send, `leave` and `cut` lead to "over". Apart from that a client owes while it has not
/// acknowledged all, and `look` is to be called once a second.
class Watcher {
public:
    using Clock = std::chrono::steady_clock;

    /// How long a client may acknowledge nothing before it is given up. A client with a large
    /// receive buffer acknowledges in large steps. It is given the time in which it can read such a
    /// step at `kSlowest` bytes a second, if that is longer.
    static constexpr std::chrono::milliseconds kPatience{30000};
    static constexpr std::size_t kSlowest = 2048;

    /// Sets the options of the socket.
    /// @param aSocket the socket's handle, by which the client is known.
    /// @param aDescriptor the socket's descriptor; stays the connection's.
    Watcher(const void* aSocket, int aDescriptor);
    [[gnu::noinline]] ~Watcher();
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    const void* socket() const { return mSocket; }
    int descriptor() const { return mDescriptor; }

    /// @name Its lines
    /// @{

    /// Sends it the lines from a number on.
    void begin(LineRing::Number aNext);

    /// @return whether it has not been sent all lines below a number.
    bool isBehind(LineRing::Number aEnd) const { return mRestSize != 0 || mNext < aEnd; }
    /// @return the next line that it needs from the ring.
    LineRing::Number next() const { return mNext; }

    /// Sends it what it is behind with, up to a chunk. Call it only when it is behind.
    /// @param aChunk what was copied out last; refilled from the ring if it does not hold the line.
    /// @return 0; or, if the connection has failed, how many bytes were not sent.
    std::size_t give(const LineRing& aRing, LineRing::Chunk& aChunk, Clock::time_point aNow);
    /// @}

    /// @name Its pace
    /// @{

    /// @return whether the kernel may have room for more.
    bool mayTake() const { return mMayTake && !mOver; }
    void roomMade() { mMayTake = true; }

    /// @return whether it has been sent something that it had not acknowledged at the last look.
    bool owes() const { return mOwes && !mOver; }

    /// Looks how much it has acknowledged. Call it about once a second while it owes.
    /// @return for how long it has acknowledged nothing though it could have.
    Clock::duration look(LineRing::Number aEnd, Clock::time_point aNow);

    /// @return for how long it may acknowledge nothing.
    std::chrono::milliseconds patience() const;
    /// @}

    /// @return whether the connection has failed or was given up: it is sent nothing more.
    bool isOver() const { return mOver; }
    /// Sends it nothing more, and leaves the connection open.
    void leave() { mOver = true; }
    /// Sends it nothing more, and ends the connection. The connection's handler closes the socket.
    void cut();

    /// @name For `Watchers`
    /// @{
    std::unique_ptr<Watcher> mNextWatcher;  ///< The list of all clients.
    /// The socket is closed, and its descriptor may be another's. The serving thread may be at this
    /// object, and destroys it.
    bool mGone = false;
    /// @}

private:
    std::size_t giveRest();
    std::size_t giveLines(const LineRing::Chunk& aChunk);
    std::size_t send(const char* aText, std::size_t aSize);
    void tellMissed(LineRing::Number aCount);
    void keepRest(const char* aText, std::size_t aSize);
    void noteWindow();

    const void* const mSocket;
    const int mDescriptor;
    LineRing::Number mNext = 0;  ///< The next line that it needs from the ring.
    bool mMayTake = true;        ///< The kernel took the last send whole, or has reported room.
    bool mOver = false;          ///< It is sent nothing more.
    bool mOwes = false;          ///< It has been sent something since the last look, or owed then.
    std::int64_t mSent = 0;      ///< How many bytes the kernel has taken.
    std::int64_t mTaken = 0;     ///< How many of them were acknowledged at the last look.
    Clock::time_point mProgress{};  ///< While it owes: when it last acknowledged some.
    std::size_t mWindow = 0;        ///< The largest receive window that it has been seen to have.
    /// @name What is sent before the next line
    /// The rest of a line, or a line that tells how many are missing. Then nothing, with size 0.
    /// @{
    std::size_t mRestPlace = 0;  ///< Where in `mRest` it begins.
    std::size_t mRestSize = 0;   ///< How much of it is left.
    std::array<char, LineRing::kMaxLine> mRest;
    /// @}
};

}  // namespace osx

#endif
