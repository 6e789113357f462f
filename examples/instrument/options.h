// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The simulated instrument's command line.
#ifndef EXAMPLES_INSTRUMENT_OPTIONS_H
#define EXAMPLES_INSTRUMENT_OPTIONS_H

namespace instrument {

struct Options {
    unsigned short port = 10110;  ///< Where the instrument is reached by TCP; 0 for none.
    bool pty = false;             ///< Speak on a pseudo terminal, whose name is printed.
    unsigned int serialPort = 0;  ///< From 1; 0 for none.
    unsigned int baudRate = 4800;
    unsigned char parity = 0;       ///< 0 none, 1 odd, 2 even.
    unsigned int intervalMs = 100;  ///< Time between two sentences.
    unsigned int corruptEvery = 0;  ///< Spoil every Nth sentence; 0 for none.
    unsigned int dropEvery = 0;     ///< Drop all TCP connections after every N sentences; 0 never.
    unsigned int sentences = 0;     ///< End after so many; 0 for no end.
};

/// Ends the process on an option it does not know, and on "--help".
Options parseOptions(int aCount, char** aArguments);

}  // namespace instrument

#endif
