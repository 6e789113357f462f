// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/Access.h"

#include <arpa/inet.h>
#include <sys/random.h>

#include <array>

#include "common/Failure.h"
#include "common/text.h"

namespace command {

namespace {

constexpr std::string_view kCookie = "osx-console=";
constexpr std::size_t kShortestToken = 16;
constexpr std::size_t kLongestToken = 128;

bool isAddress(const std::string& aText, in_addr& aAddress) {
    return ::inet_pton(AF_INET, aText.c_str(), &aAddress) == 1;
}

/// Takes the same time wherever they differ.
bool areEqual(std::string_view aOne, std::string_view aOther) {
    if (aOne.size() != aOther.size()) {
        return false;
    }
    unsigned int lDifference = 0;
    for (std::size_t lIndex = 0; lIndex < aOne.size(); ++lIndex) {
        lDifference |= static_cast<unsigned char>(aOne[lIndex] ^ aOther[lIndex]);
    }
    return lDifference == 0;
}

}  // namespace

bool isLoopback(const std::string& aHost) {
    in_addr lAddress{};
    return aHost == "localhost" ||
           (isAddress(aHost, lAddress) && (ntohl(lAddress.s_addr) >> 24U) == 127U);
}

std::string makeToken() {
    std::array<char, 16> lBytes{};
    if (::getrandom(lBytes.data(), lBytes.size(), 0) != static_cast<ssize_t>(lBytes.size())) {
        fail("cannot start: no random numbers");
    }
    return toHex({lBytes.data(), lBytes.size()});
}

bool isSound(std::string_view aToken) {
    return aToken.size() >= kShortestToken && aToken.size() <= kLongestToken &&
           aToken.find_first_not_of(
               "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
               "0123456789_-") == std::string_view::npos;
}

Access::Access(const std::string& aHost, unsigned short aPort, const std::string& aToken)
    : mHost(aHost), mPort(":" + std::to_string(aPort)), mToken(aToken) {}

bool Access::isHost(const std::string& aHostHeader) const {
    // A browser leaves out the port of all web servers.
    const bool lHasPort = aHostHeader.size() > mPort.size() &&
                          aHostHeader.substr(aHostHeader.size() - mPort.size()) == mPort;
    if (!lHasPort && mPort != ":80") {
        return false;
    }
    const std::string lHost =
        lHasPort ? aHostHeader.substr(0, aHostHeader.size() - mPort.size()) : aHostHeader;
    in_addr lAddress{};
    // An address, unlike a name, cannot be made to lead elsewhere.
    return lHost == mHost || isLoopback(lHost) ||
           (mHost == "0.0.0.0" && isAddress(lHost, lAddress));
}

bool Access::isOwnOrigin(const std::string& aOrigin, const std::string& aHostHeader) {
    return aOrigin.empty() || aOrigin == "http://" + aHostHeader;
}

bool Access::isToken(std::string_view aText) const {
    return hasToken() && areEqual(aText, mToken);
}

bool Access::isAdmitted(const std::string& aAuthorization, const std::string& aCookie) const {
    constexpr std::string_view kBearer = "Bearer ";
    if (!hasToken()) {
        return true;
    }
    if (std::string_view(aAuthorization).substr(0, kBearer.size()) == kBearer &&
        isToken(std::string_view(aAuthorization).substr(kBearer.size()))) {
        return true;
    }
    for (std::string_view lRest = aCookie; !lRest.empty();) {
        const std::size_t lEnd = lRest.find(';');
        const std::string_view lOne = trimmed(lRest.substr(0, lEnd));
        if (lOne.substr(0, kCookie.size()) == kCookie && isToken(lOne.substr(kCookie.size()))) {
            return true;
        }
        lRest.remove_prefix(lEnd == std::string_view::npos ? lRest.size() : lEnd + 1);
    }
    return false;
}

std::string Access::cookie() const {
    return std::string(kCookie) + mToken + "; HttpOnly; SameSite=Strict; Path=/";
}

}  // namespace command
