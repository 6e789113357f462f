// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "nmea/Sentence.h"

#include <gtest/gtest.h>

TEST(NmeaSentence, CarriesTheChecksumOfItsBody) {
    EXPECT_EQ("$GPGLL,5300.97914,N,00259.98174,E,125926,A*28",
              nmea::sentence("GPGLL,5300.97914,N,00259.98174,E,125926,A"));
}

TEST(NmeaSentence, IsValidWithTheRightChecksumInEitherCase) {
    EXPECT_TRUE(nmea::isValid("$GPGLL,5300.97914,N,00259.98174,E,125926,A*28"));
    const std::string lSentence = nmea::sentence("AB");
    EXPECT_TRUE(nmea::isValid(lSentence));
    EXPECT_TRUE(nmea::isValid("$K*4b"));
}

TEST(NmeaSentence, IsInvalidOtherwise) {
    for (const char* const lLine :
         {"", "$", "*", "$*00", "$A*", "$A*4", "GPGLL*50", "$K*4C", "$K*4g", "$K*+4", "$K4B",
          "$GPGLL,5300.97915,N,00259.98174,E,125926,A*28"}) {
        EXPECT_FALSE(nmea::isValid(lLine)) << lLine;
    }
}
