// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Clients that connect and close at once, as fast as the server accepts and closes.
//
// Usage: echo_storm PORT MILLISECONDS
// Prints connections, seconds, 99th percentile of their lives in ns.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "echo/client.h"

namespace {

using client::Clock;
using client::secondsSince;

/// Fewer than a port of the library lets wait to be accepted: beyond that some wait for a second.
constexpr std::size_t kClients = 4;
/// Of each client, however slow the machine.
constexpr std::size_t kFewest = 25;

/// @return whether the server accepted a connection, and closed it after the client had.
bool connectAndClose(int aPort) {
    const int lSocket = client::connectTo(aPort);
    char lByte = 0;
    const bool lEnded =
        lSocket >= 0 && ::shutdown(lSocket, SHUT_WR) == 0 && ::recv(lSocket, &lByte, 1, 0) == 0;
    ::close(lSocket);
    return lEnded;
}

std::vector<double> livesUntil(int aPort, Clock::time_point aStart, double aSeconds) {
    std::vector<double> lLives;
    while (secondsSince(aStart) < aSeconds || lLives.size() < kFewest) {
        const auto lBegin = Clock::now();
        if (!connectAndClose(aPort)) {
            break;
        }
        lLives.push_back(secondsSince(lBegin) * 1e9);
    }
    return lLives;
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (aCount != 3) {
        std::fprintf(stderr, "usage: echo_storm PORT MILLISECONDS\n");
        return 2;
    }
    const auto lStart = Clock::now();
    std::array<std::vector<double>, kClients> lLives;
    std::vector<std::thread> lClients;
    for (auto& lOwn : lLives) {
        lClients.emplace_back([&lOwn, &aArguments, lStart] {
            lOwn = livesUntil(std::atoi(aArguments[1]), lStart, std::atof(aArguments[2]) / 1000);
        });
    }
    std::vector<double> lAll;
    for (std::size_t i = 0; i < kClients; ++i) {
        lClients[i].join();
        lAll.insert(lAll.end(), lLives[i].begin(), lLives[i].end());
    }
    const double lSeconds = secondsSince(lStart);
    std::sort(lAll.begin(), lAll.end());
    std::printf("%zu %f %.0f\n", lAll.size(), lSeconds,
                lAll.empty() ? 0 : lAll[lAll.size() * 99 / 100]);
    return 0;
}
