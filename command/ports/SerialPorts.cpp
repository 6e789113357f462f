// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "ports/SerialPorts.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "common/text.h"

namespace command {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestAttribute = 256;
constexpr std::string_view kFixedName = "ttyS";

std::string attribute(const fs::path& aFolder, const std::string& aName) {
    std::ifstream lFile(aFolder / aName);
    std::string lText(kLongestAttribute, '\0');
    lFile.read(lText.data(), static_cast<std::streamsize>(lText.size()));
    lText.resize(static_cast<std::size_t>(std::max<std::streamsize>(lFile.gcount(), 0)));
    return std::string(trimmed(lText));
}

/// The names in a folder, in order; none if it cannot be read.
std::vector<std::string> namesIn(const fs::path& aFolder, bool* aIsRefused = nullptr) {
    std::vector<std::string> lNames;
    std::error_code lError;
    fs::directory_iterator lEach(aFolder, lError);
    if (aIsRefused != nullptr && lError == std::errc::permission_denied) {
        *aIsRefused = true;
    }
    for (const fs::directory_iterator lEnd; !lError && lEach != lEnd; lEach.increment(lError)) {
        lNames.push_back(lEach->path().filename().string());
    }
    std::sort(lNames.begin(), lNames.end());
    return lNames;
}

/// @return the n of "ttyS<n>".
std::optional<unsigned int> fixedNumber(const std::string& aName) {
    if (aName.compare(0, kFixedName.size(), kFixedName) != 0) {
        return std::nullopt;
    }
    const auto lNumber = toNumber(aName.substr(kFixedName.size()), 0, 99999);
    return lNumber ? std::optional<unsigned int>(static_cast<unsigned int>(*lNumber))
                   : std::nullopt;
}

/// The port's device and what it hangs on, nearest first.
std::vector<fs::path> ancestorsOf(const fs::path& aDevice, const std::string& aSys) {
    std::vector<fs::path> lAncestors;
    std::error_code lError;
    const fs::path lTop = fs::canonical(aSys, lError);
    for (fs::path lEach = fs::canonical(aDevice, lError);
         !lError && lEach != lTop && lEach.has_relative_path(); lEach = lEach.parent_path()) {
        lAncestors.push_back(lEach);
    }
    return lAncestors;
}

std::string driverOf(const std::vector<fs::path>& aAncestors) {
    for (const fs::path& lEach : aAncestors) {
        std::error_code lError;
        std::string lDriver = fs::read_symlink(lEach / "driver", lError).filename().string();
        // These stand between a UART and its driver in newer kernels.
        if (!lDriver.empty() && lDriver != "port" && lDriver != "ctrl") {
            return lDriver;
        }
    }
    return {};
}

UsbIdentity usbOf(const std::vector<fs::path>& aAncestors) {
    UsbIdentity lUsb;
    for (const fs::path& lEach : aAncestors) {
        if (lUsb.port.empty()) {
            lUsb.port = attribute(lEach, "port_number");
        }
        if (lUsb.interface.empty()) {
            lUsb.interface = attribute(lEach, "bInterfaceNumber");
        }
        lUsb.vendor = attribute(lEach, "idVendor");
        if (!lUsb.vendor.empty()) {
            lUsb.socket = lEach.filename().string();
            lUsb.product = attribute(lEach, "idProduct");
            lUsb.serial = attribute(lEach, "serial");
            lUsb.description = std::string(
                trimmed(attribute(lEach, "manufacturer") + " " + attribute(lEach, "product")));
            return lUsb;
        }
    }
    return {};
}

/// Of the driver that keeps them where they can be read without opening a port.
std::map<unsigned int, std::string> countersIn(const std::string& aProc) {
    std::map<unsigned int, std::string> lAll;
    std::ifstream lFile(aProc + "/tty/driver/serial");
    for (std::string lLine; std::getline(lFile, lLine);) {
        std::istringstream lWords(lLine);
        std::string lWord;
        lWords >> lWord;
        const auto lNumber = toNumber(std::string_view(lWord).substr(0, lWord.find(':')), 0, 99999);
        if (!lNumber) {
            continue;
        }
        std::string lCounters;
        while (lWords >> lWord) {
            const std::string lName = lWord.substr(0, lWord.find(':'));
            constexpr std::string_view kNames = " tx rx fe pe brk oe ";
            if (kNames.find(" " + lName + " ") != std::string_view::npos) {
                lCounters += (lCounters.empty() ? "" : " ") + lWord;
            }
        }
        lAll[static_cast<unsigned int>(*lNumber)] = lCounters;
    }
    return lAll;
}

class Finder {
public:
    explicit Finder(const MachineFolders& aFolders) : mFolders(aFolders) {}

    SerialPorts find() {
        for (const std::string& lName : namesIn(mFolders.sys + "/class/tty")) {
            addPort(lName);
        }
        addNumbers();
        addHolders();
        return mFound;
    }

private:
    void addPort(const std::string& aName) {
        const fs::path lFolder = fs::path(mFolders.sys) / "class" / "tty" / aName;
        std::error_code lError;
        // A terminal has no device; a serial port of type 0 has no UART behind it.
        if (!fs::exists(lFolder / "device", lError) || attribute(lFolder, "type") == "0") {
            return;
        }
        const auto lAncestors = ancestorsOf(lFolder / "device", mFolders.sys);
        SerialPort lPort;
        lPort.name = aName;
        lPort.driver = driverOf(lAncestors);
        lPort.usb = usbOf(lAncestors);
        if (const auto lNumber = fixedNumber(aName)) {
            lPort.numbers.push_back(*lNumber + 1);
            const auto lCounters = mCounters.find(*lNumber);
            lPort.counters = lCounters != mCounters.end() ? lCounters->second : "";
        }
        mFound.ports.push_back(lPort);
    }

    /// Links named "ttyS<n>" make other ports, and pseudo terminals, the library's.
    void addNumbers() {
        for (const std::string& lName : namesIn(mFolders.dev)) {
            const auto lNumber = fixedNumber(lName);
            const fs::path lPath = fs::path(mFolders.dev) / lName;
            std::error_code lError;
            if (!lNumber || !fs::is_symlink(lPath, lError)) {
                continue;
            }
            const fs::path lTarget = fs::weakly_canonical(lPath, lError);
            const fs::path lDev = fs::canonical(mFolders.dev, lError);
            portOf(lTarget.lexically_relative(lDev).string()).numbers.push_back(*lNumber + 1);
        }
    }

    SerialPort& portOf(const std::string& aName) {
        for (SerialPort& lPort : mFound.ports) {
            if (lPort.name == aName) {
                return lPort;
            }
        }
        mFound.ports.emplace_back();
        mFound.ports.back().name = aName;
        return mFound.ports.back();
    }

    void addHolders() {
        for (const std::string& lProcess : namesIn(mFolders.proc)) {
            if (!toNumber(lProcess, 1, 0xFFFFFFFFUL)) {
                continue;
            }
            const fs::path lFolder = fs::path(mFolders.proc) / lProcess;
            std::set<std::string> lOpen;
            for (const std::string& lDescriptor : namesIn(lFolder / "fd", &mFound.hasHidden)) {
                std::error_code lError;
                lOpen.insert(fs::read_symlink(lFolder / "fd" / lDescriptor, lError).string());
            }
            for (SerialPort& lPort : mFound.ports) {
                if (lOpen.count(mFolders.dev + "/" + lPort.name) != 0) {
                    lPort.holders.push_back({lProcess, attribute(lFolder, "comm")});
                }
            }
        }
    }

    const MachineFolders& mFolders;
    const std::map<unsigned int, std::string> mCounters = countersIn(mFolders.proc);
    SerialPorts mFound;
};

}  // namespace

SerialPorts findSerialPorts(const MachineFolders& aFolders) {
    return Finder(aFolders).find();
}

}  // namespace command
