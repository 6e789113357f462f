// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "options.h"

#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace instrument {

namespace {

constexpr char kUsage[] =
    "usage: instrument [options]     a simulated GPS receiver that speaks NMEA 0183\n"
    "  --port PORT        serve TCP clients there, 0 for none (10110)\n"
    "  --pty              speak on a pseudo terminal and print its name\n"
    "  --serial N         speak on serial port N, from 1\n"
    "  --baud B           bits per second of the serial port (4800)\n"
    "  --parity P         none, odd or even (none)\n"
    "  --interval MS      time between two sentences (100)\n"
    "  --corrupt N        spoil every Nth sentence\n"
    "  --drop N           drop all TCP connections after every N sentences\n"
    "  --sentences N      end after N sentences\n";

constexpr option kOptions[] = {{"port", required_argument, nullptr, 'p'},
                               {"pty", no_argument, nullptr, 't'},
                               {"serial", required_argument, nullptr, 's'},
                               {"baud", required_argument, nullptr, 'b'},
                               {"parity", required_argument, nullptr, 'y'},
                               {"interval", required_argument, nullptr, 'i'},
                               {"corrupt", required_argument, nullptr, 'c'},
                               {"drop", required_argument, nullptr, 'd'},
                               {"sentences", required_argument, nullptr, 'n'},
                               {"help", no_argument, nullptr, 'h'},
                               {nullptr, 0, nullptr, 0}};

[[noreturn]] void complain() {
    std::fputs(kUsage, stderr);
    std::exit(2);
}

unsigned int number(const char* aText, unsigned long aLowest, unsigned long aHighest) {
    char* lEnd = nullptr;
    const unsigned long lValue = std::strtoul(aText, &lEnd, 10);
    // A negative number would come back positive, modulo the largest one.
    if (std::strchr(aText, '-') != nullptr || lEnd == aText || *lEnd != '\0' || lValue < aLowest ||
        lValue > aHighest) {
        complain();
    }
    return static_cast<unsigned int>(lValue);
}

unsigned char parity(const std::string& aName) {
    if (aName == "none") {
        return 0;
    }
    if (aName == "odd") {
        return 1;
    }
    if (aName == "even") {
        return 2;
    }
    complain();
}

void apply(int aOption, const char* aValue, Options& aOptions) {
    constexpr unsigned long kMany = 1000000000;
    switch (aOption) {
        case 'p':
            aOptions.port = static_cast<unsigned short>(number(aValue, 0, 65535));
            break;
        case 't':
            aOptions.pty = true;
            break;
        case 's':
            aOptions.serialPort = number(aValue, 1, 255);
            break;
        case 'b':
            aOptions.baudRate = number(aValue, 50, 4000000);
            break;
        case 'y':
            aOptions.parity = parity(aValue);
            break;
        case 'i':
            aOptions.intervalMs = number(aValue, 1, 3600000);
            break;
        case 'c':
            aOptions.corruptEvery = number(aValue, 0, kMany);
            break;
        case 'd':
            aOptions.dropEvery = number(aValue, 0, kMany);
            break;
        case 'n':
            aOptions.sentences = number(aValue, 0, kMany);
            break;
        case 'h':
            std::fputs(kUsage, stdout);
            std::exit(0);
        default:
            complain();
    }
}

}  // namespace

Options parseOptions(int aCount, char** aArguments) {
    Options lOptions;
    for (int lOption = 0;
         (lOption = getopt_long(aCount, aArguments, "", kOptions, nullptr)) != -1;) {
        apply(lOption, optarg, lOptions);
    }
    if (optind != aCount) {
        complain();
    }
    return lOptions;
}

}  // namespace instrument
