// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The host's hardware address, the library's version, and the byte order of doubles.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "ace/OS_NS_netdb.h"
#include "osx/osx.h"
#include "osx/version.h"

namespace {
constexpr std::size_t kVersionSize = 4;
constexpr std::size_t kBuildStampSize = 21;
}  // namespace

void osxGetEthernetAddr(unsigned char* aMac) {
    ACE_OS::macaddr_node_t lNode{};
    if (ACE_OS::getmacaddress(&lNode) == 0) {
        std::memcpy(aMac, lNode.node, sizeof lNode.node);
    }
}

void getInfo(char* aVersion, char* aBuildStamp) {
    if (aVersion != nullptr) {
        std::snprintf(aVersion, kVersionSize, "%d.%d", OSX_VERSION_MAJOR, OSX_VERSION_MINOR);
    }
    if (aBuildStamp != nullptr) {
        std::snprintf(aBuildStamp, kBuildStampSize, "%s %s", __DATE__, __TIME__);
    }
}

double ntohd(double aValue) {
    std::array<unsigned char, sizeof aValue> lBytes{};
    std::memcpy(lBytes.data(), &aValue, sizeof aValue);
    std::reverse(lBytes.begin(), lBytes.end());
    std::memcpy(&aValue, lBytes.data(), sizeof aValue);
    return aValue;
}

double htond(double aValue) {
    return ntohd(aValue);
}
