// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Explores schedules: `schedules FIRST_SEED COUNT SECONDS`, each seed a schedule, until so many
/// have been tried or so much time has passed. Prints how many that were, or the seed of a failure.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "Play.h"
#include "ace/Log_Msg.h"
#include "points.h"

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<std::uint32_t> gSeed{0};

void printSeed() {
    std::fprintf(stderr, "seed %u: ", gSeed.load());
}

std::uint32_t number(const char* aText) {
    return static_cast<std::uint32_t>(std::strtoul(aText, nullptr, 10));
}

}  // namespace

/// ThreadSanitizer calls it before it prints a report.
extern "C" void __tsan_on_report(void*);
extern "C" void __tsan_on_report(void*) {
    printSeed();
    std::fputs("ThreadSanitizer reports:\n", stderr);
}

void schedules::fail(const char* aWhat) {
    printSeed();
    std::fprintf(stderr, "%s\n", aWhat);
    std::_Exit(1);
}

int main(int aCount, char** aArguments) {
    if (aCount != 4) {
        std::fputs("usage: schedules FIRST_SEED COUNT SECONDS\n", stderr);
        return 2;
    }
    ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
    const schedules::Ports lPorts = schedules::Ports::open();
    const std::uint32_t lFirst = number(aArguments[1]);
    const std::uint32_t lMost = number(aArguments[2]);
    const auto lStart = Clock::now();
    const auto lEnd = lStart + std::chrono::seconds(number(aArguments[3]));
    std::uint32_t lTried = 0;
    for (; lTried < lMost && Clock::now() < lEnd; ++lTried) {
        gSeed = lFirst + lTried;
        schedules::begin(gSeed);
        schedules::Play(gSeed).run(lPorts);
    }
    const std::chrono::duration<double> lTime = Clock::now() - lStart;
    std::printf("%u schedules, %llu points, %.1f seconds\n", lTried,
                static_cast<unsigned long long>(schedules::pointsPassed()), lTime.count());
    return 0;
}
