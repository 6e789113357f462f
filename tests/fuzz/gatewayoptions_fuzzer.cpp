// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <getopt.h>

#include <cstdint>

#include "fuzz/arguments.h"
#include "fuzz/ended.h"
#include "fuzz/require.h"
#include "options.h"

namespace {

constexpr unsigned int kHour = 3600000;

bool isWithin(unsigned int aNumber, unsigned int aLowest, unsigned int aHighest) {
    return aNumber >= aLowest && aNumber <= aHighest;
}

void requireRanges(const gateway::Options& aOptions) {
    require(aOptions.silenceLimitMs <= kHour && aOptions.serialPort <= 255);
    require(isWithin(aOptions.baudRate, 50, 4000000) && aOptions.parity <= 2);
    require(aOptions.textPort != 0 && aOptions.debugPort != 0);
    require(isWithin(aOptions.rateIntervalMs, 10, kHour));
    require(isWithin(aOptions.systemIntervalMs, 10, kHour));
}

}  // namespace

// A command line gives options within their ranges, or ends the program with its usage; and the
// debug-level port, which is asked for first, is the one that the whole command line has.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    Arguments lArguments(argumentsFrom(aData, aSize,
                                       {"--source",
                                        "--silence",
                                        "--serial",
                                        "--baud",
                                        "--parity",
                                        "--port",
                                        "--frame-port",
                                        "--debug-port",
                                        "--record",
                                        "--rate-interval",
                                        "--system-interval",
                                        "--debug-port=",
                                        "0",
                                        "1",
                                        "50",
                                        "65535",
                                        "65536",
                                        "4294967297",
                                        "none",
                                        "-1",
                                        "--",
                                        "-18446744073709551615",
                                        "-4294967295",
                                        " 7",
                                        "even"}));
    try {
        const ThrowingExit lThrowing;
        optind = 0;
        const unsigned short lDebugPort =
            gateway::debugPortOf(lArguments.count(), lArguments.values());
        optind = 0;
        const gateway::Options lOptions =
            gateway::parseOptions(lArguments.count(), lArguments.values());
        requireRanges(lOptions);
        require(lDebugPort == lOptions.debugPort);
    } catch (const Ended& lEnded) {
        require(lEnded.status == 0 || lEnded.status == 2);
    }
    return 0;
}
