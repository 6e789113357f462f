// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "ports/ports.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "common/Failure.h"
#include "common/Output.h"
#include "common/text.h"
#include "ports/udevRule.h"

namespace command {

namespace {

namespace fs = std::filesystem;

/// Above those that boards have.
constexpr unsigned int kFirstNumber = 65;
constexpr unsigned int kLastNumber = 255;

std::string asText(const SerialPort& aPort) {
    std::string lText = aPort.name + ":";
    if (aPort.numbers.empty()) {
        lText += " no number";
    }
    for (const unsigned int lNumber : aPort.numbers) {
        lText += " port " + std::to_string(lNumber);
    }
    lText += ", " + (aPort.driver.empty() ? "no driver" : "driver " + aPort.driver);
    if (!aPort.usb.socket.empty()) {
        lText += ", " + aPort.usb.description + " " + aPort.usb.vendor + ":" + aPort.usb.product +
                 (aPort.usb.serial.empty() ? "" : " serial " + aPort.usb.serial);
    }
    if (!aPort.counters.empty()) {
        lText += ", " + aPort.counters;
    }
    for (const Holder& lHolder : aPort.holders) {
        lText += ", held by " + lHolder.name + " (" + lHolder.process + ")";
    }
    return forTerminal(lText) + "\n";
}

std::string asJson(const SerialPort& aPort) {
    nlohmann::ordered_json lObject;
    lObject["name"] = toUtf8(aPort.name);
    lObject["numbers"] = aPort.numbers;
    lObject["driver"] = toUtf8(aPort.driver);
    lObject["counters"] = toUtf8(aPort.counters);
    lObject["usb"] = nullptr;
    if (!aPort.usb.socket.empty()) {
        lObject["usb"] = {{"vendor", toUtf8(aPort.usb.vendor)},
                          {"product", toUtf8(aPort.usb.product)},
                          {"serial", toUtf8(aPort.usb.serial)},
                          {"description", toUtf8(aPort.usb.description)}};
    }
    lObject["holders"] = nlohmann::ordered_json::array();
    for (const Holder& lHolder : aPort.holders) {
        lObject["holders"].push_back(
            {{"process", toUtf8(lHolder.process)}, {"name", toUtf8(lHolder.name)}});
    }
    return lObject.dump() + "\n";
}

std::string listText(const PortsOptions& aOptions) {
    const SerialPorts lFound = findSerialPorts(aOptions.folders);
    std::string lText;
    for (const SerialPort& lPort : lFound.ports) {
        lText += aOptions.json ? asJson(lPort) : asText(lPort);
    }
    if (aOptions.json) {
        return lText;
    }
    if (lFound.ports.empty()) {
        lText = "This machine has no serial port.\n";
    }
    if (lFound.hasHidden) {
        lText += "Who else holds them, and some counters, can be seen by root.\n";
    }
    return lText;
}

SerialPort adapterOf(const PortsOptions& aOptions) {
    std::error_code lError;
    const fs::path lPath = fs::path(aOptions.folders.dev) / aOptions.link;
    const std::string lName = fs::weakly_canonical(lPath, lError).filename().string();
    const auto lPorts = findSerialPorts(aOptions.folders).ports;
    const auto lFound =
        std::find_if(lPorts.begin(), lPorts.end(),
                     [&lName](const SerialPort& aPort) { return aPort.name == lName; });
    if (lFound == lPorts.end()) {
        failInput(aOptions.link + " is no serial port of this machine; osx ports names them");
    }
    if (lFound->usb.socket.empty()) {
        failInput(aOptions.link + " is no USB adapter");
    }
    return *lFound;
}

bool isFree(const PortsOptions& aOptions, unsigned int aNumber) {
    std::error_code lError;
    const auto lDevice = fs::symlink_status(
        fs::path(aOptions.folders.dev) / ("ttyS" + std::to_string(aNumber - 1)), lError);
    return !fs::exists(lDevice) &&
           !fs::exists(fs::path(aOptions.rules) / udevRuleFile(aNumber), lError);
}

unsigned int numberFor(const PortsOptions& aOptions, const SerialPort& aPort) {
    const std::vector<unsigned int>& lHas = aPort.numbers;
    if (aOptions.number == 0) {
        for (unsigned int lNumber = kFirstNumber; lNumber <= kLastNumber; ++lNumber) {
            if (isFree(aOptions, lNumber)) {
                return lNumber;
            }
        }
        fail("all ports from " + std::to_string(kFirstNumber) + " to " +
             std::to_string(kLastNumber) + " are taken");
    }
    if (std::find(lHas.begin(), lHas.end(), aOptions.number) == lHas.end() &&
        !isFree(aOptions, aOptions.number)) {
        failInput("port " + std::to_string(aOptions.number) + " is taken");
    }
    return aOptions.number;
}

std::string linkText(const PortsOptions& aOptions) {
    const SerialPort lPort = adapterOf(aOptions);
    if (!lPort.numbers.empty() && aOptions.number == 0) {
        return forTerminal(lPort.name) + " is port " + std::to_string(lPort.numbers.front()) +
               " already.\n";
    }
    const unsigned int lNumber = numberFor(aOptions, lPort);
    const std::string lFile = (fs::path(aOptions.rules) / udevRuleFile(lNumber)).string();
    const std::string lRule = udevRule(lPort, lNumber);
    if (!aOptions.write) {
        return lRule + "# --write writes this to " + lFile + "\n";
    }
    writeRule(lFile, lRule);
    return lRule + "# written to " + lFile +
           "; it holds from now on after:\n"
           "#   udevadm control --reload && udevadm trigger --subsystem-match=tty\n";
}

}  // namespace

std::string portsText(const PortsOptions& aOptions) {
    return aOptions.link.empty() ? listText(aOptions) : linkText(aOptions);
}

int ports(const PortsOptions& aOptions) {
    Output lOutput;
    lOutput.write(portsText(aOptions));
    lOutput.flush();
    return kDone;
}

}  // namespace command
