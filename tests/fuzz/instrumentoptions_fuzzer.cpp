// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <getopt.h>

#include <cstdint>

#include "fuzz/arguments.h"
#include "fuzz/ended.h"
#include "fuzz/require.h"
#include "options.h"

// A command line gives options within their ranges, or ends the program with its usage.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    Arguments lArguments(
        argumentsFrom(aData, aSize,
                      {"--port", "--pty", "--serial", "--baud", "--parity", "--interval",
                       "--corrupt", "--drop", "--sentences", "0", "1", "65536", "none",
                       "4294967297", "-1", "--", "-18446744073709551615"}));
    try {
        const ThrowingExit lThrowing;
        optind = 0;
        opterr = 0;
        const instrument::Options lOptions =
            instrument::parseOptions(lArguments.count(), lArguments.values());
        require(lOptions.serialPort <= 255 && lOptions.parity <= 2);
        require(lOptions.baudRate >= 50 && lOptions.baudRate <= 4000000);
        require(lOptions.intervalMs >= 1 && lOptions.intervalMs <= 3600000);
    } catch (const Ended& lEnded) {
        require(lEnded.status == 0 || lEnded.status == 2);
    }
    return 0;
}
