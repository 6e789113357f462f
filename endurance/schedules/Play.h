// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the threads of one schedule do with the loop, and what has to hold of it.
#ifndef OSX_ENDURANCE_SCHEDULES_PLAY_H
#define OSX_ENDURANCE_SCHEDULES_PLAY_H

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace schedules {

/// Small numbers, the same for a seed in each build.
class Random {
public:
    explicit Random(std::uint32_t aSeed) : mSource(aSeed) {}
    unsigned int operator()() { return static_cast<unsigned int>(mSource()); }

private:
    std::minstd_rand mSource;
};

/// Ends the process with the seed and what did not hold.
[[noreturn]] void fail(const char* aWhat);

inline void require(bool aHolds, const char* aWhat) {
    if (!aHolds) {
        fail(aWhat);
    }
}

/// The ports that all schedules use, since a port opened and closed each time would leave its
/// number taken. One is read by the library, one by a callback.
struct Ports {
    unsigned short reading;
    unsigned short telling;

    static Ports open();
};

/// A connection as its callbacks see it.
struct Session {
    void* socket = nullptr;
    std::atomic<int> inside{0};
    std::atomic<bool> closed{false};
    std::atomic<bool> endedHere{false};  ///< The application has ended it.
    std::string received;
};

/// A client's end of a connection, when it is over.
struct Sent {
    std::string text;  ///< Begins with a name that no other client of the schedule has.
    bool wasReset = false;
};

/// One schedule: some threads of the application's and some loop threads.
class Play {
public:
    explicit Play(std::uint32_t aSeed);
    ~Play();
    Play(const Play&) = delete;
    Play& operator=(const Play&) = delete;

    void run(const Ports& aPorts);

    /// The schedule that runs.
    static Play& current();

    // For the callbacks of the ports.
    Session& opened(void* aSocket);
    void closed(Session& aSession);

private:
    void act(unsigned int aThread, const Ports& aPorts);
    void connect(Random& aRandom, unsigned short aPort);
    void endAny(Random& aRandom);
    void suspendAny(Random& aRandom);
    void useTimer(Random& aRandom);
    static void useOwnHandler(Random& aRandom);
    void startLoop();
    void restartLoop();
    Session* any(Random& aRandom);
    bool isLive(const Session* aSession) const;
    void settle();
    void compare() const;

    const std::uint32_t mSeed;
    std::atomic<unsigned int> mConnected{0};
    std::atomic<unsigned int> mOpened{0};
    std::atomic<unsigned int> mClosed{0};
    /// Guards what follows. A session that is live cannot end while it is held.
    std::mutex mMutex;
    std::list<Session> mSessions;
    std::vector<Session*> mLive;
    std::vector<Sent> mSent;
};

}  // namespace schedules

#endif
