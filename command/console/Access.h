// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Who may use the console.
#ifndef OSX_COMMAND_CONSOLE_ACCESS_H
#define OSX_COMMAND_CONSOLE_ACCESS_H

#include <string>
#include <string_view>

namespace command {

/// @return whether a host, as an address or "localhost", is this machine alone.
bool isLoopback(const std::string& aHost);

/// @return a token that nobody guesses.
std::string makeToken();

/// @return whether it can stand in a cookie and an address, and is long enough.
bool isSound(std::string_view aToken);

/// A page of another site may ask a browser for anything, and a name of another site may be made to
/// lead here. So requests have to name this console as their host.
class Access {
public:
    /// @param aToken empty if none is needed.
    Access(const std::string& aHost, unsigned short aPort, const std::string& aToken);

    bool isHost(const std::string& aHostHeader) const;

    /// @return whether an "Origin", if there is one, is the console itself.
    static bool isOwnOrigin(const std::string& aOrigin, const std::string& aHostHeader);

    bool hasToken() const { return !mToken.empty(); }
    bool isToken(std::string_view aText) const;
    /// @return whether one of these headers has the token, or none is needed.
    bool isAdmitted(const std::string& aAuthorization, const std::string& aCookie) const;

    /// @return the cookie that admits a browser.
    std::string cookie() const;

private:
    std::string mHost;
    std::string mPort;
    std::string mToken;
};

}  // namespace command

#endif
