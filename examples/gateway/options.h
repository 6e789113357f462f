// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The gateway's command line.
#ifndef EXAMPLES_GATEWAY_OPTIONS_H
#define EXAMPLES_GATEWAY_OPTIONS_H

#include <string>

namespace gateway {

struct Options {
    std::string source = "127.0.0.1:10110";  ///< Address of a TCP instrument.
    unsigned int silenceLimitMs = 30000;     ///< Of a TCP instrument; 0 for none.
    unsigned int serialPort = 0;             ///< From 1; 0 for the TCP instrument.
    unsigned int baudRate = 4800;
    unsigned char parity = 0;  ///< 0 none, 1 odd, 2 even.
    unsigned short textPort = 10111;
    unsigned short framePort = 0;  ///< 0 for none.
    unsigned short debugPort = 12311;
    std::string recordFile;  ///< Empty for none.
    unsigned int syncIntervalMs = 5000;
    unsigned int rateIntervalMs = 1000;
    unsigned int systemIntervalMs = 60000;
};

/// Reads the command line that `LogInit` left over. Ends the process on an option it does not know.
Options parseOptions(int aCount, char** aArguments);

/// Finds the debug-level port on the command line as it came, for `LogInit` opens that port.
unsigned short debugPortOf(int aCount, char** aArguments);

/// Answers "--help", before any port is opened. @return whether it was there.
bool printsHelp(int aCount, char** aArguments);

}  // namespace gateway

#endif
