// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "options.h"

#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace gateway {

namespace {

constexpr char kHelp[] =
    "usage: gateway [options]\n"
    "\n"
    "Passes the NMEA 0183 sentences of an instrument to TCP clients, without the corrupt ones.\n"
    "In brackets: what a value may be; what holds without the option.\n"
    "\n"
    "The instrument, by TCP or on a serial port:\n"
    "  --source HOST:PORT    connect to it there (127.0.0.1:10110)\n"
    "  --silence MS          connect anew if it sends nothing for so many milliseconds, 0 for\n"
    "                        never (0 to 3600000; 30000)\n"
    "  --serial N            read it on serial port N instead; 1 is /dev/ttyS0 (1 to 255)\n"
    "  --baud B              bits per second there (50 to 4000000; 4800)\n"
    "  --parity P            parity there (none, odd or even; none)\n"
    "\n"
    "The clients:\n"
    "  --port PORT           TCP port that sends sentences as lines (1 to 65535; 10111)\n"
    "  --frame-port PORT     TCP port that sends them as length-prefixed blocks (1 to 65535;\n"
    "                        none)\n"
    "\n"
    "The record:\n"
    "  --record FILE         append the sentences to a file (none)\n"
    "  --sync-interval MS    for so many milliseconds a recorded sentence may be in memory alone\n"
    "                        (0 to 3600000; 5000)\n"
    "\n"
    "Reports:\n"
    "  --rate-interval MS    milliseconds between lines of rates on standard output\n"
    "                        (10 to 3600000; 1000)\n"
    "  --system-interval MS  milliseconds between reports of load and memory to clients and\n"
    "                        diagnostics (10 to 3600000; 60000)\n"
    "\n"
    "Diagnostics. The names of these options are not case-sensitive:\n"
    "  --debug-port PORT     TCP port that takes the debug level as a decimal number\n"
    "                        (1 to 65535; 12311)\n"
    "  -RedirectPort PORT    TCP port that sends the diagnostic lines (2324)\n"
    "  -LogFile FILE         write them to a file, which is truncated; it may be renamed, removed\n"
    "                        or truncated at any time (none)\n"
    "  -SysLog               write them to the system log, under the name ZR\n"
    "  -stderr               write them to standard error\n"
    "  -DebugLevel LEVEL     0 for failures alone; 3 also traces each sentence, 9 everything (0)\n"
    "  -Debug                accepted, without effect\n"
    "  -help                 name the options of the diagnostics, and end\n"
    "\n"
    "  --help, --usage       print this, and end\n"
    "\n"
    "All ports listen on all interfaces, without a password.\n"
    "\n"
    "Signals: SIGINT and SIGTERM end the gateway once it has passed on and recorded what it has\n"
    "read. SIGPIPE is ignored.\n"
    "\n"
    "Exit status: 0 after SIGINT or SIGTERM, or if help was asked for; 2 if the command line is\n"
    "wrong. If a port is in use, a line on standard error says so, and SIGABRT ends the gateway.\n"
    "\n"
    "Files: /dev/ttySn, the serial ports; /proc/loadavg and /proc/meminfo, load and memory;\n"
    "/etc/default/osx-gateway, the options of the service, where it is installed as one.\n";

enum Option {
    kSource = 1,
    kSilence,
    kSerial,
    kBaud,
    kParity,
    kPort,
    kFramePort,
    kDebugPort,
    kRecord,
    kSyncInterval,
    kRateInterval,
    kSystemInterval,
    kHelpWanted
};

constexpr option kOptions[] = {{"source", required_argument, nullptr, kSource},
                               {"silence", required_argument, nullptr, kSilence},
                               {"serial", required_argument, nullptr, kSerial},
                               {"baud", required_argument, nullptr, kBaud},
                               {"parity", required_argument, nullptr, kParity},
                               {"port", required_argument, nullptr, kPort},
                               {"frame-port", required_argument, nullptr, kFramePort},
                               {"debug-port", required_argument, nullptr, kDebugPort},
                               {"record", required_argument, nullptr, kRecord},
                               {"sync-interval", required_argument, nullptr, kSyncInterval},
                               {"rate-interval", required_argument, nullptr, kRateInterval},
                               {"system-interval", required_argument, nullptr, kSystemInterval},
                               {"help", no_argument, nullptr, kHelpWanted},
                               {"usage", no_argument, nullptr, kHelpWanted},
                               {nullptr, 0, nullptr, 0}};

[[noreturn]] void complain(const char* aWhat) {
    std::fprintf(stderr, "gateway: %s; gateway --help names all options\n", aWhat);
    std::exit(2);
}

unsigned int number(const char* aText, unsigned long aLowest, unsigned long aHighest) {
    char* lEnd = nullptr;
    const unsigned long lValue = std::strtoul(aText, &lEnd, 10);
    // A negative number would come back positive, modulo the largest one.
    if (std::strchr(aText, '-') != nullptr || lEnd == aText || *lEnd != '\0' || lValue < aLowest ||
        lValue > aHighest) {
        complain("a number is not in its range");
    }
    return static_cast<unsigned int>(lValue);
}

unsigned short port(const char* aText) {
    return static_cast<unsigned short>(number(aText, 1, 65535));
}

unsigned char parity(const char* aText) {
    constexpr const char* kNames[] = {"none", "odd", "even"};
    for (unsigned char lIndex = 0; lIndex < 3; ++lIndex) {
        if (std::strcmp(aText, kNames[lIndex]) == 0) {
            return lIndex;
        }
    }
    complain("the parity is none, odd or even");
}

void apply(int aOption, const char* aValue, Options& aOptions) {
    constexpr unsigned long kHour = 3600000;
    switch (aOption) {
        case kSource:
            aOptions.source = aValue;
            break;
        case kSilence:
            aOptions.silenceLimitMs = number(aValue, 0, kHour);
            break;
        case kSerial:
            aOptions.serialPort = number(aValue, 1, 255);
            break;
        case kBaud:
            aOptions.baudRate = number(aValue, 50, 4000000);
            break;
        case kParity:
            aOptions.parity = parity(aValue);
            break;
        case kPort:
            aOptions.textPort = port(aValue);
            break;
        case kFramePort:
            aOptions.framePort = port(aValue);
            break;
        case kDebugPort:
            aOptions.debugPort = port(aValue);
            break;
        case kRecord:
            aOptions.recordFile = aValue;
            break;
        case kSyncInterval:
            aOptions.syncIntervalMs = number(aValue, 0, kHour);
            break;
        case kRateInterval:
            aOptions.rateIntervalMs = number(aValue, 10, kHour);
            break;
        case kSystemInterval:
            aOptions.systemIntervalMs = number(aValue, 10, kHour);
            break;
        default:
            complain("unknown option");
    }
}

/// Calls a function with the number of each option, whose value is in `optarg`.
template <class Function>
void forEachOption(int aCount, char** aArguments, Function aFunction) {
    opterr = 0;
    optind = 0;  // from the start
    for (int lOption = 0;
         (lOption = getopt_long(aCount, aArguments, "", kOptions, nullptr)) != -1;) {
        aFunction(lOption);
    }
}

/// As it was: what reads options moves them about.
template <class Function>
void forEachOptionOfACopy(int aCount, char** aArguments, Function aFunction) {
    std::vector<char*> lArguments(aArguments, aArguments + aCount + 1);
    forEachOption(aCount, lArguments.data(), aFunction);
}

}  // namespace

Options parseOptions(int aCount, char** aArguments) {
    Options lOptions;
    forEachOption(aCount, aArguments,
                  [&lOptions](int aOption) { apply(aOption, optarg, lOptions); });
    if (optind != aCount) {
        complain("unknown argument");
    }
    return lOptions;
}

unsigned short debugPortOf(int aCount, char** aArguments) {
    Options lOptions;
    forEachOptionOfACopy(aCount, aArguments, [&lOptions](int aOption) {
        if (aOption == kDebugPort) {
            apply(aOption, optarg, lOptions);
        }
    });
    return lOptions.debugPort;
}

bool printsHelp(int aCount, char** aArguments) {
    bool lWanted = false;
    forEachOptionOfACopy(aCount, aArguments,
                         [&lWanted](int aOption) { lWanted |= aOption == kHelpWanted; });
    if (lWanted) {
        std::fputs(kHelp, stdout);
    }
    return lWanted;
}

}  // namespace gateway
