/// @file
/// One client of the redirect service.
#ifndef OSX_LOGGING_WATCHER_H
#define OSX_LOGGING_WATCHER_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "logging/LineRing.h"

namespace osx {

/// What a client has been given of the lines, and what it has taken of that. Not locked.
///
/// Nothing here waits. Bytes that the kernel has no room for stay in the ring; of a line that has
/// been begun the rest is kept here, so that it is finished whatever becomes of the ring.
class Watcher {
public:
    using Clock = std::chrono::steady_clock;

    /// How long a client may take nothing before it is given up. One whose buffer is so large that
    /// it can read `kSlowest` bytes a second for longer than that without making room for more, as
    /// TCP counts room, is given the time that this takes.
    static constexpr std::chrono::milliseconds kPatience{30000};
    static constexpr std::size_t kSlowest = 2048;

    /// Sets the options of the socket.
    /// @param aSocket the handle, by which the client is known. @param aDescriptor that of it.
    Watcher(const void* aSocket, int aDescriptor);
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    const void* socket() const { return mSocket; }
    int descriptor() const { return mDescriptor; }

    /// @name Its lines
    /// @{

    /// Has it get the lines from a number on.
    void begin(LineRing::Number aNext);

    /// @return whether there is something for it below a number.
    bool isBehind(LineRing::Number aEnd) const { return mRestSize != 0 || mNext < aEnd; }
    /// @return the next line that is asked of the ring.
    LineRing::Number next() const { return mNext; }

    /// Gives it what it is behind with, up to a chunk. To be called if it is behind.
    /// @param aChunk the lines that were copied out last; others are copied into it if need be.
    /// @return how many bytes could not be sent because the connection has failed; mostly 0.
    std::size_t give(const LineRing& aRing, LineRing::Chunk& aChunk, Clock::time_point aNow);
    /// @}

    /// @name Its pace
    /// @{

    /// @return whether the kernel may have room for more.
    bool mayTake() const { return mMayTake && !mOver; }
    void roomMade() { mMayTake = true; }

    /// @return whether it has been given something that it had not taken at the last look.
    bool owes() const { return mOwes && !mOver; }

    /// Looks how far it has come. To be called about once a second while it owes.
    /// @return since when it has taken nothing though it could.
    Clock::duration look(LineRing::Number aEnd, Clock::time_point aNow);

    /// @return for how long it may take nothing.
    std::chrono::milliseconds patience() const;
    /// @}

    /// @return whether the connection has failed, or was given up: it gets nothing more.
    bool isOver() const { return mOver; }
    /// Gives it nothing more, and leaves the connection.
    void leave() { mOver = true; }
    /// The same, and ends the connection. The handler of it closes the socket.
    void cut();

    Watcher* mNextWatcher = nullptr;
    bool mGone = false;  ///< The socket is closed, or another's.

private:
    std::size_t giveRest();
    std::size_t giveLines(const LineRing::Chunk& aChunk);
    std::size_t send(const char* aText, std::size_t aSize, std::size_t& aFailed);
    void tellMissed(LineRing::Number aCount);
    void keepRest(const char* aText, std::size_t aSize);
    void noteWindow();

    const void* const mSocket;
    const int mDescriptor;
    LineRing::Number mNext = 0;
    bool mMayTake = true;
    bool mOver = false;
    bool mOwes = false;
    std::int64_t mSent = 0;
    std::int64_t mTaken = 0;        ///< Of the bytes sent, what was acknowledged at the last look.
    Clock::time_point mProgress{};  ///< When more had been taken than before, while it owes.
    std::size_t mWindow = 0;        ///< The largest that the client was seen to have.
    /// What goes out before the next line: the rest of one, or how many are missing.
    std::size_t mRestPlace = 0;
    std::size_t mRestSize = 0;
    std::array<char, LineRing::kMaxLine> mRest;
};

}  // namespace osx

#endif
