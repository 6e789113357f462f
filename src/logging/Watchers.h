// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// All clients of the redirect service, and the sending to them.
#ifndef OSX_LOGGING_WATCHERS_H
#define OSX_LOGGING_WATCHERS_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>

#include "base/Descriptor.h"
#include "base/Mutex.h"
#include "logging/LineRing.h"
#include "logging/Watcher.h"
#include "process/atFork.h"

namespace osx {

/// How long clients are served after the end has been asked for.
struct ServingGrace {
    std::chrono::milliseconds mPatience;  ///< How long a client may acknowledge nothing.
    std::chrono::milliseconds mLimit;     ///< How long clients are served in all.
    bool mCuts;  ///< Whether the connections of clients that are given up are ended.
};

/// The clients, and the loop of the thread that sends to them, "the serving thread". It sends to
/// every client that its kernel has room for, and waits in one poll for all the others. So no
/// client holds up another one.
///
/// | state      | told by                         | next                                        |
/// |------------|---------------------------------|---------------------------------------------|
/// | not served | not `isServedHere`              | `begin`: served                             |
/// | served     | `isServedHere`, not `mIsEnding` | `end`: ending; `abandon`: not served        |
/// | ending     | `isServedHere` and `mIsEnding`  | each client is done, `abandon`: not served  |
///
/// The serving thread holds the lock during a send. A thread that closes a connection removes its
/// client first, under that lock. So no send goes to a descriptor that has become another's. A
/// forked child has copies of the clients, but they are not served there until `begin`.
class Watchers {
public:
    using Clock = Watcher::Clock;

    Watchers();
    /// Call it when nobody serves. The connections stay open.
    ~Watchers();
    Watchers(const Watchers&) = delete;
    Watchers& operator=(const Watchers&) = delete;

    /// @name Clients
    /// Any thread may call.
    /// @{

    /// Sends a client all lines from now on. When memory is short, its connection is ended,
    /// with a line.
    void add(const void* aSocket, int aDescriptor) OSX_EXCLUDES(mMutex);
    /// @param aDescriptor what the socket has now: the application may have closed the one it had.
    void remove(const void* aSocket, int aDescriptor) OSX_EXCLUDES(mMutex);
    void removeAll() OSX_EXCLUDES(mMutex);
    /// @}

    /// @name Serving
    /// @{

    /// Prepares `serve`: from now on clients are sent what is put into a ring.
    /// @return false if there are no descriptors for the waiting.
    bool begin(LineRing& aRing) OSX_EXCLUDES(mMutex);
    /// Ends the serving: called last by `serve`, or instead of it when there is no thread for it
    /// after all.
    void abandon() OSX_EXCLUDES(mMutex);

    /// Serves until the end. Writes a line when a connection fails.
    void serve() OSX_EXCLUDES(mMutex);

    /// Call it when `LineRing::put` says that its reader wants to be woken. Any thread.
    void wake() const;

    /// Lets `serve` return once each client has been sent what is in the ring now, or has been
    /// given up. May be called again, with another grace.
    void end(const ServingGrace& aGrace) OSX_EXCLUDES(mMutex);

    /// Waits until `serve` has come to its end. Gives up after a limit, and earlier when the
    /// serving thread hangs in the writing of a line.
    void waitForEnd(std::chrono::milliseconds aLimit) OSX_EXCLUDES(mMutex);
    /// @}

private:
    struct Round;
    using Link = std::unique_ptr<Watcher>;

    /// One for the clients of all services (a program has one service), so that it can be static
    /// and kept across forks.
    static Mutex mMutex;
    static const process::AtFork kAtFork;

    bool makeDescriptors() OSX_REQUIRES(mMutex);
    void closeDescriptors();
    void forgetParent() OSX_REQUIRES(mMutex);
    bool isServedHere() const OSX_REQUIRES(mMutex);
    Link& linkTo(const void* aSocket) OSX_REQUIRES(mMutex);
    void startServing(Watcher& aWatcher) OSX_REQUIRES(mMutex);
    static void takeOut(Link& aLink);
    void destroyGone() OSX_REQUIRES(mMutex);
    Round turn() OSX_EXCLUDES(mMutex);
    void reportFailed(std::size_t aBytes) OSX_EXCLUDES(mMutex);
    void look(Clock::time_point aNow) OSX_EXCLUDES(mMutex);
    void giveUp(Watcher& aWatcher) const OSX_REQUIRES(mMutex);
    void giveUpUnfinished() OSX_EXCLUDES(mMutex);
    int timeout(const Round& aRound);
    void wait(int aTimeoutMs) OSX_EXCLUDES(mMutex);
    void noteRoomAt(int aDescriptor) OSX_EXCLUDES(mMutex);

    /// The process, counted in forks, that the descriptors and the service belong to. Written by
    /// `begin`, read by every thread that adds or removes a client.
    std::atomic<unsigned int> mGeneration;
    /// @name Made by the first `begin`, before anybody uses them, and kept
    /// @{
    Descriptor mPoll;  ///< Reports room at clients, and `mWake`, to the serving thread.
    Descriptor mWake;  ///< An eventfd.
    /// @}
    /// Set by `begin`, before the serving thread runs.
    LineRing* mRing = nullptr;

    Link mFirst OSX_GUARDED_BY(mMutex);  ///< The clients, the oldest first.
    /// `serve` runs, or is about to. Then only the serving thread destroys clients.
    bool mIsServed OSX_GUARDED_BY(mMutex) = false;
    bool mIsEnding OSX_GUARDED_BY(mMutex) = false;
    ServingGrace mGrace OSX_GUARDED_BY(mMutex){};        ///< While ending.
    Clock::time_point mDeadline OSX_GUARDED_BY(mMutex);  ///< While ending: when the time is up.
    /// While ending: lines below this number are still sent.
    LineRing::Number mTarget OSX_GUARDED_BY(mMutex) = 0;
    Condition mEnded;  ///< Woken when `mIsServed` becomes false.

    /// @name Of the serving thread
    /// @{
    LineRing::Chunk mChunk;       ///< The lines that were copied out of the ring last.
    Clock::time_point mNextLook;  ///< When to look next how much clients have acknowledged.
    /// @}
    /// The serving thread writes it around a line of its own; `waitForEnd` reads it.
    std::atomic<bool> mWritesLine{false};
};

}  // namespace osx

#endif
