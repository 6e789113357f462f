// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/settings.h"

#include <cstdlib>
#include <optional>

#include "common/Failure.h"
#include "common/Moment.h"
#include "common/text.h"
#include "console/Access.h"

namespace command {

namespace {

constexpr unsigned short kPort = 8324;
constexpr std::chrono::seconds kShortestAge{60};
constexpr unsigned long kMostMebibytes = 1024UL * 1024;

Device listenOf(const std::string& aText) {
    try {
        return parseDevice(aText, kPort);
    } catch (const Failure&) {
        failInput("--listen: '" + aText + "' is no host:port");
    }
}

std::string historyOf(const std::string& aFile) {
    if (!aFile.empty()) {
        return aFile;
    }
    const char* const lState = std::getenv("XDG_STATE_HOME");
    const char* const lHome = std::getenv("HOME");
    if (lState != nullptr && *lState != '\0') {
        return std::string(lState) + "/osx/console.db";
    }
    if (lHome == nullptr || *lHome == '\0') {
        failInput("--history is missing: there is no home to keep it in");
    }
    return std::string(lHome) + "/.local/state/osx/console.db";
}

std::chrono::seconds ageOf(const std::string& aText) {
    const auto lAge = toDuration(aText);
    if (!lAge || *lAge < kShortestAge) {
        failInput("--history-age: '" + aText + "' is no time from 1m on, as 12h or 7d");
    }
    return *lAge;
}

std::uint64_t bytesOf(const std::string& aText) {
    std::optional<unsigned long> lMebibytes;
    if (!aText.empty() && (aText.back() == 'M' || aText.back() == 'G')) {
        const unsigned long lUnit = aText.back() == 'M' ? 1 : 1024;
        lMebibytes = toNumber(aText.substr(0, aText.size() - 1), 1, kMostMebibytes / lUnit);
        lMebibytes = lMebibytes ? std::optional(*lMebibytes * lUnit) : std::nullopt;
    }
    const std::uint64_t lBytes = std::uint64_t{lMebibytes.value_or(0)} * 1024 * 1024;
    if (lBytes < kSmallestHistory) {
        failInput("--history-size: '" + aText + "' is no size from 16M on, as 500M or 2G");
    }
    return lBytes;
}

}  // namespace

ConsoleSettings settingsOf(const ConsoleOptions& aOptions) {
    ConsoleSettings lSettings;
    lSettings.listen = listenOf(aOptions.listen);
    lSettings.history = historyOf(aOptions.history);
    lSettings.limits = {ageOf(aOptions.historyAge), bytesOf(aOptions.historySize)};
    lSettings.token = aOptions.token;
    if (!aOptions.token.empty() && !isSound(aOptions.token)) {
        failInput("--token: 16 to 128 letters, digits, _ and - make one");
    }
    const bool lIsMade = aOptions.token.empty() && !isLoopback(lSettings.listen.host);
    if (lIsMade) {
        lSettings.token = makeToken();
    }
    const std::string lHost =
        lSettings.listen.host == "0.0.0.0" ? "127.0.0.1" : lSettings.listen.host;
    lSettings.address = "http://" + addressOf(lHost, lSettings.listen.port) + "/" +
                        (lIsMade ? "?token=" + lSettings.token : "");
    return lSettings;
}

}  // namespace command
