// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Stands between the library and the calls by which it reads, sets or spends the machine's time,
/// starts threads and looks at network interfaces. Left alone, each call does what it always does,
/// save that the clock is never set and no command is run.
#ifndef OSX_TESTS_OSX_FAKEHOST_H
#define OSX_TESTS_OSX_FAKEHOST_H

#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace test {

/// One at a time.
class FakeHost {
public:
    FakeHost();
    ~FakeHost();
    FakeHost(const FakeHost&) = delete;
    FakeHost& operator=(const FakeHost&) = delete;

    /// What was asked for, in order: "settimeofday <seconds>.<microseconds>" (with " zone" behind
    /// it if one was given), "system <command>", "nanosleep <seconds>.<nanoseconds>".
    std::vector<std::string> calls;

    /// What `time` and `gettimeofday` answer.
    std::optional<timespec> now;
    bool localTimeFails = false;
    bool setTimeFails = false;
    /// Sleeps are noted and interrupted at once.
    bool interruptsSleep = false;
    /// The hardware address of the only interface that is not the loopback.
    std::optional<std::array<unsigned char, 6>> mac;
    bool hasNoInterfaces = false;
    /// The IPv4 addresses of the interfaces, most significant byte first.
    std::optional<std::vector<std::uint32_t>> addresses;
    bool listingInterfacesFails = false;
};

/// Moves the wall clock, as the process sees it, from now on.
void stepWallClock(time_t aSeconds);

/// While one lives, no thread can be started by the one that made it.
class NoMoreThreads {
public:
    NoMoreThreads();
    ~NoMoreThreads();
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;
};

}  // namespace test

#endif
