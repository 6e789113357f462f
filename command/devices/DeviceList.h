// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The devices that a command is told of: by name, by group, or by host and port.
#ifndef OSX_COMMAND_DEVICES_DEVICELIST_H
#define OSX_COMMAND_DEVICES_DEVICELIST_H

#include <map>
#include <string>
#include <vector>

namespace command {

constexpr unsigned short kRedirectPort = 2324;
constexpr unsigned short kLevelPort = 12311;
/// Each one that is watched has a task of its own.
constexpr std::size_t kMostDevices = 128;

struct Device {
    std::string name;
    std::string host;
    unsigned short port = kRedirectPort;
    unsigned short levelPort = kLevelPort;
};

/// @return "host:port".
std::string addressOf(const std::string& aHost, unsigned short aPort);

/// Reads "host:port", or "host" alone if there is a port for that.
/// @param aDefault 0 if the port has to be there. Fails as bad input.
Device parseDevice(const std::string& aText, unsigned short aDefault = kRedirectPort);

/// What a file of devices holds.
class DeviceList {
public:
    DeviceList() = default;

    /// Fails as bad input, with file and line, if the file cannot be read or holds anything else.
    static DeviceList read(const std::string& aFile);

    /// Reads the file that a user named; or else the user's own one, if there is one.
    /// @param aFile empty for the user's own.
    static DeviceList find(const std::string& aFile);

    /// @return the devices of the names, groups and addresses, each once, in that order. Fails as
    ///         bad input.
    std::vector<Device> chosen(const std::vector<std::string>& aWords) const;

    /// @return the groups that a device is in, by its name.
    std::vector<std::string> groupsOf(const std::string& aDevice) const;

private:
    class Reader;

    std::map<std::string, Device> mDevices;
    std::map<std::string, std::vector<std::string>> mGroups;
};

}  // namespace command

#endif
