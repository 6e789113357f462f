// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "osx/FakeHost.h"
#include "osx/osx.h"
#include "osx/version.h"

using testing::ElementsAre;

namespace {

std::array<unsigned char, 8> bytesOf(double aValue) {
    std::array<unsigned char, 8> lBytes{};
    std::memcpy(lBytes.data(), &aValue, sizeof aValue);
    return lBytes;
}

}  // namespace

TEST(EthernetAddress, IsThatOfTheFirstInterfaceButTheLoopback) {
    test::FakeHost lHost;
    lHost.mac = std::array<unsigned char, 6>{0x02, 0x11, 0x22, 0x33, 0x44, 0xFF};
    std::array<unsigned char, 7> lMac{};
    lMac.fill(0xAA);
    osxGetEthernetAddr(lMac.data());
    EXPECT_THAT(lMac, ElementsAre(0x02, 0x11, 0x22, 0x33, 0x44, 0xFF, 0xAA));
}

TEST(EthernetAddress, IsUntouchedWithoutAnInterface) {
    test::FakeHost lHost;
    lHost.hasNoInterfaces = true;
    std::array<unsigned char, 6> lMac{};
    lMac.fill(0xAA);
    osxGetEthernetAddr(lMac.data());
    EXPECT_THAT(lMac, testing::Each(0xAA));
}

TEST(Info, WritesVersionAndBuildStampAndNotAByteMore) {
    std::array<char, 5> lVersion{};
    std::array<char, 22> lStamp{};
    lVersion.fill('#');
    lStamp.fill('#');
    getInfo(lVersion.data(), lStamp.data());
    EXPECT_STREQ("1.1", lVersion.data());
    EXPECT_EQ('#', lVersion.back());
    EXPECT_THAT(std::string(lStamp.data()),
                testing::MatchesRegex("[A-Z][a-z][a-z] [ 0-9][0-9] [0-9][0-9][0-9][0-9] "
                                      "[0-9][0-9]:[0-9][0-9]:[0-9][0-9]"));
    EXPECT_EQ('#', lStamp.back());
}

TEST(Info, IsTheVersionOfTheHeader) {
    std::array<char, 4> lVersion{};
    getInfo(lVersion.data(), nullptr);
    EXPECT_EQ(std::to_string(OSX_VERSION_MAJOR) + "." + std::to_string(OSX_VERSION_MINOR),
              lVersion.data());
    EXPECT_EQ(lVersion.data() + ("." + std::to_string(OSX_VERSION_PATCH)), OSX_VERSION_TEXT);
#if OSX_VERSION < 10100
    FAIL() << "the preprocessor does not compare it";
#endif
}

TEST(Info, WritesOnlyWhatIsAskedFor) {
    getInfo(nullptr, nullptr);
    std::array<char, 4> lVersion{};
    getInfo(lVersion.data(), nullptr);
    EXPECT_STREQ("1.1", lVersion.data());
    std::array<char, 21> lStamp{};
    getInfo(nullptr, lStamp.data());
    EXPECT_EQ(20U, std::strlen(lStamp.data()));
}

TEST(NetworkDouble, HasTheMostSignificantByteFirst) {
    EXPECT_THAT(bytesOf(htond(1.0)), ElementsAre(0x3F, 0xF0, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(bytesOf(htond(-2.5)), bytesOf(ntohd(-2.5)));
}

TEST(NetworkDouble, ComesBackAsItWas) {
    using Limits = std::numeric_limits<double>;
    for (const double lValue :
         {0.0, -0.0, 1.0, -1.5, 3.141592653589793, 1e300, -1e-300, Limits::max(), Limits::min(),
          Limits::denorm_min(), Limits::infinity(), -Limits::infinity()}) {
        EXPECT_EQ(bytesOf(lValue), bytesOf(ntohd(htond(lValue)))) << lValue;
    }
    EXPECT_TRUE(std::isnan(ntohd(htond(Limits::quiet_NaN()))));
}
