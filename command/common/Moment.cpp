// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "common/Moment.h"

#include <array>
#include <cstdio>
#include <ctime>

#include "common/text.h"

namespace command {

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

constexpr long kMillion = 1000000;

struct Parts {
    std::time_t seconds;
    long microseconds;
};

Parts partsOf(Moment aMoment) {
    const long long lAll = aMoment.time_since_epoch().count();
    long long lSeconds = lAll / kMillion;
    long long lRest = lAll % kMillion;
    if (lRest < 0) {
        lRest += kMillion;
        --lSeconds;
    }
    return {static_cast<std::time_t>(lSeconds), static_cast<long>(lRest)};
}

std::string formatted(const char* aFormat, const std::tm& aTime) {
    std::array<char, 40> lText{};
    std::strftime(lText.data(), lText.size(), aFormat, &aTime);
    return lText.data();
}

std::string fraction(const char* aFormat, long aNumber) {
    std::array<char, 24> lText{};
    // NOLINTNEXTLINE(clang-diagnostic-format-nonliteral): the formats are those below.
    std::snprintf(lText.data(), lText.size(), aFormat, aNumber);
    return lText.data();
}

Moment momentOf(std::time_t aSeconds) {
    return Moment(seconds(aSeconds));
}

/// Reads local time by a format that covers the whole text.
std::optional<Moment> localTime(const std::string& aText, const char* aFormat, std::tm aStart) {
    const char* const lEnd = ::strptime(aText.c_str(), aFormat, &aStart);
    if (lEnd == nullptr || *lEnd != '\0') {
        return std::nullopt;
    }
    aStart.tm_isdst = -1;
    const std::time_t lSeconds = std::mktime(&aStart);
    if (lSeconds == -1) {
        return std::nullopt;
    }
    return momentOf(lSeconds);
}

}  // namespace

std::string forPeople(Moment aMoment) {
    const Parts lParts = partsOf(aMoment);
    std::tm lTime{};
    ::localtime_r(&lParts.seconds, &lTime);
    return formatted("%Y-%m-%d %H:%M:%S", lTime) + fraction(".%03ld", lParts.microseconds / 1000);
}

std::string forPrograms(Moment aMoment) {
    const Parts lParts = partsOf(aMoment);
    std::tm lTime{};
    ::gmtime_r(&lParts.seconds, &lTime);
    return formatted("%Y-%m-%dT%H:%M:%S", lTime) + fraction(".%06ldZ", lParts.microseconds);
}

std::optional<Moment> fromProgram(const std::string& aText) {
    std::tm lTime{};
    const char* const lRest = ::strptime(aText.c_str(), "%Y-%m-%dT%H:%M:%S.", &lTime);
    if (lRest == nullptr) {
        return std::nullopt;
    }
    const std::string lFraction = lRest;
    if (lFraction.size() != 7 || lFraction.back() != 'Z') {
        return std::nullopt;
    }
    const auto lMicroseconds = toNumber(lFraction.substr(0, 6), 0, kMillion - 1);
    if (!lMicroseconds) {
        return std::nullopt;
    }
    return momentOf(::timegm(&lTime)) + microseconds(*lMicroseconds);
}

std::optional<seconds> toDuration(const std::string& aText) {
    constexpr unsigned long kTenYears = 10UL * 366 * 24 * 3600;
    const std::size_t lUnit =
        aText.empty() ? std::string::npos : std::string("smhd").find(aText.back());
    if (lUnit == std::string::npos) {
        return std::nullopt;
    }
    constexpr unsigned long kSeconds[] = {1, 60, 3600, 86400};
    const auto lNumber =
        toNumber(aText.substr(0, aText.size() - 1), 0, kTenYears / kSeconds[lUnit]);
    if (!lNumber) {
        return std::nullopt;
    }
    return seconds(*lNumber * kSeconds[lUnit]);
}

std::optional<Moment> pastMoment(const std::string& aText, Moment aNow) {
    if (aText.empty()) {
        return std::nullopt;
    }
    if (const auto lDuration = toDuration(aText)) {
        return aNow - *lDuration;
    }
    const std::time_t lSeconds = partsOf(aNow).seconds;
    std::tm lToday{};
    ::localtime_r(&lSeconds, &lToday);
    lToday.tm_sec = 0;
    for (const char* lFormat : {"%H:%M:%S", "%H:%M"}) {
        if (const auto lMoment = localTime(aText, lFormat, lToday)) {
            return lMoment;
        }
    }
    for (const char* lFormat : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M",
                                "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        if (const auto lMoment = localTime(aText, lFormat, std::tm{})) {
            return lMoment;
        }
    }
    return std::nullopt;
}

}  // namespace command
