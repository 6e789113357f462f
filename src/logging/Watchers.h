/// @file
/// All clients of the redirect service, and the sending to them.
#ifndef OSX_LOGGING_WATCHERS_H
#define OSX_LOGGING_WATCHERS_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

#include "logging/LineRing.h"
#include "logging/Watcher.h"

namespace osx {

/// How long clients are served after the end has been asked for.
struct ServingGrace {
    std::chrono::milliseconds mPatience;  ///< A client that takes nothing for so long is left,
    std::chrono::milliseconds mLimit;     ///< and all are when this has passed.
    bool mCuts;                           ///< Whether the connections of those left are ended.
};

/// One thread, in `serve`, gives each client the lines of a ring as fast as that client takes them.
/// It waits for whichever can take some next, and for none in particular: no client costs another
/// one anything.
///
/// One lock, held for one send at most, guards the clients. Who closes a connection takes its
/// client out first, under that lock; so no descriptor is used that may be another's. A forked
/// child has the clients, too, but nobody serves them there until `begin`.
class Watchers {
public:
    using Clock = Watcher::Clock;

    Watchers();
    /// Nobody serves. The connections stay.
    ~Watchers();
    Watchers(const Watchers&) = delete;
    Watchers& operator=(const Watchers&) = delete;

    /// @name Clients
    /// Any thread may call.
    /// @{

    /// A client gets all lines from now on. Without memory its connection is ended.
    void add(const void* aSocket, int aDescriptor);
    /// @param aDescriptor what it has now, should somebody have closed the one it had.
    void remove(const void* aSocket, int aDescriptor);
    void removeAll();
    /// @}

    /// @name Serving
    /// @{

    /// Makes ready for `serve`: the clients get the lines from now on.
    /// @param aRing what is put into it from now on goes to the clients.
    /// @return false, without descriptors for the waiting.
    bool begin(LineRing& aRing);
    /// After `begin`, when `serve` is not called after all.
    void abandon();

    /// Serves until the end. Writes lines about connections that fail.
    void serve();

    /// To be called when a line is put into a ring whose reader rests.
    void wake() const;

    /// Has `serve` return once each client has what has been put into the ring until now, or has
    /// been given up. May be called again, with another grace.
    void end(const ServingGrace& aGrace);

    /// Waits for that, but not for a thread that is kept from going on by the writing of a line.
    void waitForEnd(std::chrono::milliseconds aLimit);
    /// @}

private:
    struct Round;

    bool makeDescriptors();
    void closeDescriptors();
    bool isServedHere() const;
    Watcher** find(const void* aSocket);
    void append(Watcher* aWatcher);
    void enter(const Watcher& aWatcher) const;
    void takeOut(Watcher** aLink);
    void dropGone();
    Round turn();
    void give(Watcher& aWatcher, Round& aRound, std::unique_lock<std::mutex>& aLock);
    void reportFailed(std::size_t aBytes);
    void look(Clock::time_point aNow);
    void giveUp(Watcher& aWatcher) const;
    void giveUpUnfinished();
    int timeout(const Round& aRound);
    void wait(int aTimeoutMs);
    void noteRoomAt(int aDescriptor);

    /// Which process, counted in forks, the descriptors and the service belong to.
    std::atomic<unsigned int> mGeneration;
    int mPoll = -1;
    int mWake = -1;

    /// @name Guarded
    /// @{
    Watcher* mFirst = nullptr;
    LineRing* mRing = nullptr;
    bool mIsServed = false;  ///< Then only `serve` destroys clients.
    bool mIsEnding = false;
    ServingGrace mGrace{};
    Clock::time_point mDeadline;
    LineRing::Number mTarget = 0;  ///< Lines below it are still sent.
    std::condition_variable mEnded;
    /// @}

    /// @name Of the serving thread
    /// @{
    LineRing::Chunk mChunk;
    Clock::time_point mNextLook;
    /// @}
    std::atomic<bool> mWritesLine{false};
};

}  // namespace osx

#endif
