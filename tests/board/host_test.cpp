// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What the library says of the board, against what the board's own commands say.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>

#include "board/command.h"
#include "osx/osx.h"

using test::firstLineOf;
using test::outputOf;

namespace {

using Mac = std::array<unsigned char, 6>;

std::string text(const Mac& aMac) {
    std::array<char, 18> lText{};
    std::snprintf(lText.data(), lText.size(), "%02x:%02x:%02x:%02x:%02x:%02x", aMac[0], aMac[1],
                  aMac[2], aMac[3], aMac[4], aMac[5]);
    return lText.data();
}

std::string addressOfTheCard() {
    return outputOf("ip -4 -o address show eth0 | sed 's,.*inet \\([0-9.]*\\)/.*,\\1,'");
}

}  // namespace

TEST(Host, EthernetAddressIsThatOfTheCard) {
    Mac lMac{};
    osxGetEthernetAddr(lMac.data());
    EXPECT_EQ(firstLineOf("/sys/class/net/eth0/address"), text(lMac));
}

TEST(Host, EthernetAddressIsUntouchedWhileTheCardIsDown) {
    Mac lMac{1, 2, 3, 4, 5, 6};
    outputOf("ip link set eth0 down");
    osxGetEthernetAddr(lMac.data());
    outputOf("ip link set eth0 up");
    EXPECT_EQ("01:02:03:04:05:06", text(lMac));
}

TEST(Host, IpAddressIsThatOfTheCard) {
    const std::string lExpected = addressOfTheCard();
    ASSERT_FALSE(lExpected.empty());
    std::array<char, 16> lText{};
    EXPECT_EQ(0U, osxGetIpAddr(lText.data()));
    EXPECT_EQ(lExpected, lText.data());

    ACE_String_Base<char> lString;
    EXPECT_EQ(0U, osxGetIpAddr(lString));
    EXPECT_EQ(lExpected, lString.c_str());

    unsigned long lNumber = 0;
    EXPECT_EQ(0U, osxGetIpAddr(lNumber));
    const std::string lDotted =
        std::to_string(lNumber >> 24U) + "." + std::to_string(lNumber >> 16U & 255U) + "." +
        std::to_string(lNumber >> 8U & 255U) + "." + std::to_string(lNumber & 255U);
    EXPECT_EQ(lExpected, lDotted);
}

TEST(Host, NameIsThatOfTheKernel) {
    std::array<char, 256> lName{};
    EXPECT_EQ(0U, osxGetHostname(lName.data(), lName.size()));
    EXPECT_EQ(outputOf("uname -n"), lName.data());
}

TEST(Host, IsA32BitMachine) {
    EXPECT_EQ("i686", outputOf("uname -m"));
    EXPECT_EQ(4U, sizeof(void*));
}
