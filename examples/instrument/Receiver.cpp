// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "Receiver.h"

#include <array>
#include <cmath>
#include <cstdio>

#include "nmea/Sentence.h"

namespace instrument {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kMinutesRadius = 0.5;     // half a nautical mile
constexpr double kLatitudeMinutes = 9.0;   // 54 degrees north
constexpr double kLongitudeMinutes = 8.0;  // 10 degrees east
constexpr unsigned int kStepsPerRound = 3600;
constexpr double kKnots = 6.2;

struct Position {
    double latitudeMinutes;
    double longitudeMinutes;
    double course;
};

Position positionAt(unsigned int aStep) {
    const double lAngle = 2.0 * kPi * (aStep % kStepsPerRound) / kStepsPerRound;
    return {kLatitudeMinutes + kMinutesRadius * std::cos(lAngle),
            kLongitudeMinutes + kMinutesRadius * std::sin(lAngle) / std::cos(54.0 * kPi / 180.0),
            std::fmod(lAngle * 180.0 / kPi + 90.0, 360.0)};
}

/// The time of day follows the sentences, ten to a second, and not a clock.
std::string timeAt(unsigned int aStep) {
    const unsigned int lSeconds = aStep / 10 % 86400;
    std::array<char, 16> lText{};
    std::snprintf(lText.data(), lText.size(), "%02u%02u%02u.%u", lSeconds / 3600,
                  lSeconds / 60 % 60, lSeconds % 60, aStep % 10);
    return lText.data();
}

std::string fixAt(unsigned int aStep) {
    const Position lPosition = positionAt(aStep);
    std::array<char, 96> lText{};
    std::snprintf(lText.data(), lText.size(),
                  "GPGGA,%s,54%07.4f,N,010%07.4f,E,1,08,0.9,4.0,M,43.0,M,,", timeAt(aStep).c_str(),
                  lPosition.latitudeMinutes, lPosition.longitudeMinutes);
    return lText.data();
}

std::string courseAt(unsigned int aStep) {
    const Position lPosition = positionAt(aStep);
    std::array<char, 96> lText{};
    std::snprintf(lText.data(), lText.size(),
                  "GPRMC,%s,A,54%07.4f,N,010%07.4f,E,%.1f,%.1f,010126,,", timeAt(aStep).c_str(),
                  lPosition.latitudeMinutes, lPosition.longitudeMinutes, kKnots, lPosition.course);
    return lText.data();
}

}  // namespace

std::string Receiver::next() {
    const unsigned int lStep = mCount++;
    std::string lSentence = nmea::sentence(lStep % 2 == 0 ? fixAt(lStep) : courseAt(lStep));
    if (mCorruptEvery != 0 && mCount % mCorruptEvery == 0) {
        // One bit flipped, as on a bad line: the checksum cannot miss it.
        char& lVictim = lSentence[lSentence.size() / 2];
        lVictim = static_cast<char>(lVictim ^ 0x01);
    }
    return lSentence + "\r\n";
}

}  // namespace instrument
