#include "options.h"

#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace gateway {

namespace {

constexpr char kUsage[] =
    "usage: gateway [options]\n"
    "  --source HOST:PORT    the instrument, by TCP (127.0.0.1:10110)\n"
    "  --silence MS          connect anew to a TCP instrument that is silent for so long,\n"
    "                        0 for never (30000)\n"
    "  --serial N            the instrument, on serial port N, from 1\n"
    "  --baud B              bits per second of the serial port (4800)\n"
    "  --parity P            none, odd or even (none)\n"
    "  --port PORT           where clients get the sentences as lines (10111)\n"
    "  --frame-port PORT     where clients get them as length-prefixed blocks (none)\n"
    "  --debug-port PORT     where the debug level is set (12311)\n"
    "  --record FILE         append the sentences to a file\n"
    "  --sync-interval MS    how long a recorded sentence may be in memory alone (5000)\n"
    "  --rate-interval MS    how often rates are printed (1000)\n"
    "  --system-interval MS  how often load and memory are reported (60000)\n"
    "  -LogFile, -Debug, -DebugLevel, -SysLog, -stderr, -RedirectPort, -help: see -help\n";

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
    kUsageWanted
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
                               {"usage", no_argument, nullptr, kUsageWanted},
                               {nullptr, 0, nullptr, 0}};

[[noreturn]] void complain(const char* aWhat) {
    std::fprintf(stderr, "gateway: %s\n%s", aWhat, kUsage);
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
        case kUsageWanted:
            std::fputs(kUsage, stdout);
            std::exit(0);
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
    std::vector<char*> lArguments(aArguments, aArguments + aCount + 1);  // which are moved about
    Options lOptions;
    forEachOption(aCount, lArguments.data(), [&lOptions](int aOption) {
        if (aOption == kDebugPort) {
            apply(aOption, optarg, lOptions);
        }
    });
    return lOptions.debugPort;
}

}  // namespace gateway
