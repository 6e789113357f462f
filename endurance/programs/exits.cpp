// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A program that ends in one way or another while its threads are at work.
///
/// Usage: exits WAY STATE[,STATE...] NETWORK BUSY-PORT ENDING-PORT DEBUG-PORT [logging options]
/// NETWORK is 1 for network logging, else 0. It prints "ready" once all threads are in their
/// states, waits for the end of its standard input, prints "ending at SECOND NANOSECOND" and ends
/// with status 7; after "help" with 0.

#include <unistd.h>

#include <cstdlib>

#include "exits/arguments.h"
#include "exits/states.h"
#include "exits/ways.h"
#include "logging/Logging.h"

namespace {

constexpr int kArguments = 7;

unsigned short port(const char* aText) {
    return static_cast<unsigned short>(std::atol(aText));
}

void waitForEndOfInput() {
    exits::print("ready\n");
    char lByte = 0;
    while (::read(STDIN_FILENO, &lByte, 1) > 0) {
    }
}

}  // namespace

int main(int aCount, char** aArguments) {
    const exits::Way lWay = aCount < kArguments ? nullptr : exits::wayOf(aArguments[1]);
    if (lWay == nullptr) {
        return EXIT_FAILURE;
    }
    const exits::Ports lPorts{port(aArguments[4]), port(aArguments[5])};
    setDebugLevelPortNumber(std::atol(aArguments[6]));
    exits::catchSigterm();
    LogInit(aCount, aArguments, std::atol(aArguments[3]) != 0);
    if (!exits::enter(aArguments[2], lPorts)) {
        return EXIT_FAILURE;
    }
    waitForEndOfInput();
    return lWay(lPorts);
}
