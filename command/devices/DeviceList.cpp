// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "devices/DeviceList.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "common/Failure.h"
#include "common/text.h"

namespace command {

namespace {

constexpr std::size_t kLargestFile = 1024UL * 1024UL;
constexpr std::string_view kNameCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.";
constexpr std::string_view kDigits = "0123456789";

bool isHost(std::string_view aText) {
    return !aText.empty() && aText.find_first_not_of(kNameCharacters) == std::string_view::npos;
}

/// A number alone is a debug level.
bool isName(std::string_view aText) {
    return isHost(aText) && aText.find_first_not_of(kDigits) != std::string_view::npos;
}

std::string inQuotes(const std::string& aText) {
    return "'" + forTerminal(aText) + "'";
}

std::string contentsOf(const std::string& aFile) {
    std::error_code lError;
    if (std::filesystem::is_directory(aFile, lError)) {
        failInput(aFile + ": " + std::strerror(EISDIR));
    }
    std::ifstream lFile(aFile);
    if (!lFile) {
        failInput(aFile + ": " + std::strerror(errno));
    }
    std::string lText(kLargestFile + 1, '\0');
    lFile.read(lText.data(), static_cast<std::streamsize>(lText.size()));
    lText.resize(static_cast<std::size_t>(lFile.gcount()));
    if (lText.size() > kLargestFile) {
        failInput(aFile + ": is larger than " + std::to_string(kLargestFile) + " bytes");
    }
    return lText;
}

}  // namespace

std::string addressOf(const std::string& aHost, unsigned short aPort) {
    return aHost + ":" + std::to_string(aPort);
}

Device parseDevice(const std::string& aText, unsigned short aDefault) {
    const std::size_t lColon = aText.find(':');
    Device lDevice;
    lDevice.name = aText;
    lDevice.host = aText.substr(0, lColon);
    lDevice.port = aDefault;
    if (!isHost(lDevice.host)) {
        failInput(inQuotes(aText) + " is no device, group, host or host:port");
    }
    if (lColon != std::string::npos) {
        const auto lPort = toNumber(aText.substr(lColon + 1), 1, 65535);
        if (!lPort) {
            failInput(inQuotes(aText) + ": the port is a number from 1 to 65535");
        }
        lDevice.port = static_cast<unsigned short>(*lPort);
    } else if (aDefault == 0) {
        failInput(inQuotes(aText) + ": the port is missing, as in " + aText + ":10111");
    }
    return lDevice;
}

/// Reads a file's tree of nodes, and knows where each is.
class DeviceList::Reader {
public:
    Reader(const std::string& aFile, DeviceList& aList) : mFile(aFile), mList(aList) {}

    void read(const YAML::Node& aRoot) {
        if (aRoot.IsNull()) {
            return;
        }
        requireMap(aRoot, "the file");
        for (const auto& lPart : aRoot) {
            const std::string lName = textOf(lPart.first, "a key");
            if (lName == "devices") {
                readDevices(lPart.second);
            } else if (lName != "groups") {
                complain(lPart.first, inQuotes(lName) + " is neither 'devices' nor 'groups'");
            }
        }
        // Behind the devices, wherever they stand in the file.
        if (aRoot["groups"]) {
            readGroups(aRoot["groups"]);
        }
    }

private:
    [[noreturn]] void complain(const YAML::Node& aNode, const std::string& aWhat) const {
        failInput(mFile + ":" + std::to_string(aNode.Mark().line + 1) + ": " + aWhat);
    }

    void requireMap(const YAML::Node& aNode, const std::string& aWhat) const {
        if (!aNode.IsMap()) {
            complain(aNode, aWhat + " is no list of 'name: value'");
        }
    }

    std::string textOf(const YAML::Node& aNode, const std::string& aWhat) const {
        if (!aNode.IsScalar()) {
            complain(aNode, aWhat + " is no plain text");
        }
        return aNode.Scalar();
    }

    std::string nameOf(const YAML::Node& aNode) const {
        std::string lName = textOf(aNode, "a name");
        if (!isName(lName)) {
            complain(aNode,
                     inQuotes(lName) +
                         " is no name: letters, digits and _-. make one, and not all digits");
        }
        if (mList.mDevices.count(lName) != 0 || mList.mGroups.count(lName) != 0) {
            complain(aNode, inQuotes(lName) + " is there already");
        }
        return lName;
    }

    unsigned short portOf(const YAML::Node& aNode, const std::string& aKey) const {
        const auto lPort = toNumber(textOf(aNode, inQuotes(aKey)), 1, 65535);
        if (!lPort) {
            complain(aNode, inQuotes(aKey) + " is no number from 1 to 65535");
        }
        return static_cast<unsigned short>(*lPort);
    }

    void readDevices(const YAML::Node& aDevices) {
        requireMap(aDevices, "'devices'");
        for (const auto& lPair : aDevices) {
            const std::string lName = nameOf(lPair.first);
            mList.mDevices[lName] = deviceOf(lName, lPair.second);
        }
    }

    Device deviceOf(const std::string& aName, const YAML::Node& aNode) const {
        Device lDevice;
        lDevice.name = aName;
        requireMap(aNode, inQuotes(aName));
        for (const auto& lPair : aNode) {
            const std::string lKey = textOf(lPair.first, "a key");
            if (lKey == "host") {
                lDevice.host = textOf(lPair.second, "'host'");
                if (!isHost(lDevice.host)) {
                    complain(lPair.second, inQuotes(lDevice.host) + " is no host");
                }
            } else if (lKey == "port") {
                lDevice.port = portOf(lPair.second, lKey);
            } else if (lKey == "level-port") {
                lDevice.levelPort = portOf(lPair.second, lKey);
            } else {
                complain(lPair.first, inQuotes(lKey) + " is none of 'host', 'port', 'level-port'");
            }
        }
        if (lDevice.host.empty()) {
            complain(aNode, inQuotes(aName) + " has no 'host'");
        }
        return lDevice;
    }

    void readGroups(const YAML::Node& aGroups) {
        requireMap(aGroups, "'groups'");
        for (const auto& lPair : aGroups) {
            const std::string lName = nameOf(lPair.first);
            if (!lPair.second.IsSequence()) {
                complain(lPair.second, inQuotes(lName) + " is no list of devices");
            }
            std::vector<std::string> lMembers;
            for (const auto& lMember : lPair.second) {
                lMembers.push_back(textOf(lMember, "a device's name"));
                if (mList.mDevices.count(lMembers.back()) == 0) {
                    complain(lMember, inQuotes(lMembers.back()) + " is no device of this file");
                }
            }
            mList.mGroups[lName] = lMembers;
        }
    }

    const std::string& mFile;
    DeviceList& mList;
};

DeviceList DeviceList::read(const std::string& aFile) {
    DeviceList lList;
    try {
        Reader(aFile, lList).read(YAML::Load(contentsOf(aFile)));
    } catch (const YAML::Exception& lError) {
        failInput(aFile + ":" + std::to_string(lError.mark.line + 1) + ": " + lError.msg);
    }
    return lList;
}

DeviceList DeviceList::find(const std::string& aFile) {
    if (!aFile.empty()) {
        return read(aFile);
    }
    const char* const lConfiguration = std::getenv("XDG_CONFIG_HOME");
    const char* const lHome = std::getenv("HOME");
    std::string lFile;
    if (lConfiguration != nullptr && *lConfiguration != '\0') {
        lFile = std::string(lConfiguration) + "/osx/devices.yaml";
    } else if (lHome != nullptr) {
        lFile = std::string(lHome) + "/.config/osx/devices.yaml";
    }
    std::error_code lError;
    return std::filesystem::exists(lFile, lError) ? read(lFile) : DeviceList();
}

std::vector<std::string> DeviceList::groupsOf(const std::string& aDevice) const {
    std::vector<std::string> lGroups;
    for (const auto& [lName, lMembers] : mGroups) {
        if (std::find(lMembers.begin(), lMembers.end(), aDevice) != lMembers.end()) {
            lGroups.push_back(lName);
        }
    }
    return lGroups;
}

std::vector<Device> DeviceList::chosen(const std::vector<std::string>& aWords) const {
    std::vector<Device> lChosen;
    const auto lAdd = [&lChosen](const Device& aDevice) {
        const auto lIsSame = [&aDevice](const Device& aOther) {
            return aOther.name == aDevice.name;
        };
        if (std::none_of(lChosen.begin(), lChosen.end(), lIsSame)) {
            lChosen.push_back(aDevice);
        }
    };
    for (const std::string& lWord : aWords) {
        const auto lGroup = mGroups.find(lWord);
        const auto lDevice = mDevices.find(lWord);
        if (lGroup != mGroups.end()) {
            for (const std::string& lMember : lGroup->second) {
                lAdd(mDevices.at(lMember));
            }
        } else {
            lAdd(lDevice != mDevices.end() ? lDevice->second : parseDevice(lWord));
        }
    }
    if (lChosen.size() > kMostDevices) {
        failInput("more than " + std::to_string(kMostDevices) + " devices");
    }
    return lChosen;
}

}  // namespace command
