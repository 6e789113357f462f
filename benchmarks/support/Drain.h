// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The other ends of connections: a thread that reads what comes and drops it.
#ifndef OSX_BENCHMARKS_SUPPORT_DRAIN_H
#define OSX_BENCHMARKS_SUPPORT_DRAIN_H

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

namespace bench {

/// @return a TCP port of the loopback interface that nobody listens on.
int freePort();

/// Connections on the loopback interface, drained by one thread between `start` and `stop`.
class Drain {
public:
    Drain() = default;
    ~Drain() { stop(); }
    Drain(const Drain&) = delete;
    Drain& operator=(const Drain&) = delete;

    /// Adds a connection to a port, waiting until somebody listens there.
    void connect(int aPort);
    /// Adds a listening port, which accepts while the thread runs. @return its number.
    int listen();

    void start();
    /// Ends the thread and closes the connections.
    void stop();

    /// @return how many connections have brought bytes.
    int talking() const { return mTalking; }
    /// Waits until nothing has come for a millisecond or two.
    void waitUntilQuiet() const;

private:
    struct Connection {
        int descriptor;
        bool listening;
        bool talked;
    };

    void run();
    void take(std::size_t aIndex);

    std::vector<Connection> mConnections;
    std::thread mThread;
    std::atomic<bool> mStop{false};
    std::atomic<std::size_t> mBytes{0};
    std::atomic<int> mTalking{0};
};

}  // namespace bench

#endif
