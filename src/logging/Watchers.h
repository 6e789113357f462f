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
    std::chrono::milliseconds mPatience;  ///< A client that acknowledges nothing for this long, and
    std::chrono::milliseconds mLimit;     ///< after this time every client, is given up:
    bool mCuts;                           ///< cut off, or left connected.
};

/// The clients, and the loop of the thread that sends to them, "the serving thread". It sends to
/// every client that its kernel has room for, and waits in one poll for all the others. So no
/// client holds up another one.
///
/// | state      | told by                      | next |
/// |------------|------------------------------|---------------------------------------------------|
/// | not served | not `isServedHere`           | `begin`: served | | served     | `isServedHere` |
/// `end`: ending; `abandon`: not served              | | ending     | and `mIsEnding` | all clients
/// have all lines before `end`, or the time is up: not served |
///
/// Whoever closes a connection first removes its client, and waits for the lock meanwhile. The
/// serving thread holds that lock during a send. So it never sends to a descriptor that has become
/// another's. A forked child has copies of the clients, but they are not served until `begin`.
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

    /// Sends a client all lines from now on. When memory is short, its connection is ended.
    void add(const void* aSocket, int aDescriptor) OSX_EXCLUDES(gMutex);
    /// @param aDescriptor what the socket has now: the application may have closed the one it had.
    void remove(const void* aSocket, int aDescriptor) OSX_EXCLUDES(gMutex);
    void removeAll() OSX_EXCLUDES(gMutex);
    /// @}

    /// @name Serving
    /// @{

    /// Prepares `serve`: from now on clients are sent what is put into a ring.
    /// @return false if there are no descriptors for the waiting.
    bool begin(LineRing& aRing) OSX_EXCLUDES(gMutex);
    /// Undoes `begin`, when there is no thread for `serve` after all.
    void abandon() OSX_EXCLUDES(gMutex);

    /// Serves until the end. Writes a line when a connection fails.
    void serve() OSX_EXCLUDES(gMutex);

    /// Call it when `LineRing::put` says that its reader wants to be woken. Any thread.
    void wake() const;

    /// Lets `serve` return once each client has been sent what is in the ring now, or has been
    /// given up. May be called again, with another grace.
    void end(const ServingGrace& aGrace) OSX_EXCLUDES(gMutex);

    /// Waits until `serve` has come to its end. Gives up after a limit, and earlier when the
    /// serving thread hangs in the writing of a line.
    void waitForEnd(std::chrono::milliseconds aLimit) OSX_EXCLUDES(gMutex);
    /// @}

private:
    struct Round;
    using Link = std::unique_ptr<Watcher>;

    /// One for the clients of all services (a program has one service), so that it can be static
    /// and kept across forks.
    static Mutex gMutex;
    static const process::AtFork gAtFork;

    bool makeDescriptors() OSX_REQUIRES(gMutex);
    void closeDescriptors();
    void forgetParent() OSX_REQUIRES(gMutex);
    bool isServedHere() const OSX_REQUIRES(gMutex);
    Link& linkTo(const void* aSocket) OSX_REQUIRES(gMutex);
    void startServing(Watcher& aWatcher) OSX_REQUIRES(gMutex);
    static void takeOut(Link& aLink);
    void destroyGone() OSX_REQUIRES(gMutex);
    Round turn() OSX_EXCLUDES(gMutex);
    void reportFailed(std::size_t aBytes) OSX_EXCLUDES(gMutex);
    void look(Clock::time_point aNow) OSX_EXCLUDES(gMutex);
    void giveUp(Watcher& aWatcher) const OSX_REQUIRES(gMutex);
    void giveUpUnfinished() OSX_EXCLUDES(gMutex);
    int timeout(const Round& aRound);
    void wait(int aTimeoutMs) OSX_EXCLUDES(gMutex);
    void noteRoomAt(int aDescriptor) OSX_EXCLUDES(gMutex);

    /// The process, counted in forks, that the descriptors and the service belong to. Written by
    /// `begin`, read by every thread that adds or removes a client.
    std::atomic<unsigned int> mGeneration;
    /// @name Made by the first `begin`, before anybody uses them, and kept
    /// @{
    Descriptor mPoll;  ///< Tells the serving thread of room at clients, and of `mWake`.
    Descriptor mWake;  ///< An eventfd.
    /// @}
    /// Set by `begin`, before the serving thread runs.
    LineRing* mRing = nullptr;

    Link mFirst OSX_GUARDED_BY(gMutex);  ///< The clients, the oldest first.
    /// `serve` runs, or is about to. Then only the serving thread destroys clients.
    bool mIsServed OSX_GUARDED_BY(gMutex) = false;
    bool mIsEnding OSX_GUARDED_BY(gMutex) = false;
    ServingGrace mGrace OSX_GUARDED_BY(gMutex){};        ///< While ending.
    Clock::time_point mDeadline OSX_GUARDED_BY(gMutex);  ///< While ending: when the time is up.
    /// While ending: lines below this number are still sent.
    LineRing::Number mTarget OSX_GUARDED_BY(gMutex) = 0;
    Condition mEnded;  ///< `mIsServed` has become false.

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
