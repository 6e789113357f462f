// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "ports/udevRule.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "base/Descriptor.h"
#include "common/Failure.h"
#include "common/text.h"

namespace command {

namespace {

/// @return whether a rule can name a text as it is: an adapter may have any serial number, quotes
///         and wildcards among it.
bool canBeNamed(const std::string& aText) {
    return !aText.empty() &&
           aText.find_first_not_of(
               "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.:-") ==
               std::string::npos;
}

std::string match(const std::string& aKey, const std::string& aValue) {
    return canBeNamed(aValue) ? ", " + aKey + "==\"" + aValue + "\"" : "";
}

std::string plain(const std::string& aText) {
    std::string lPlain;
    for (const char lByte : aText) {
        lPlain += lByte >= ' ' && lByte <= '~' ? lByte : '?';
    }
    return lPlain;
}

std::string linkOf(unsigned int aNumber) {
    return "ttyS" + std::to_string(aNumber - 1);
}

}  // namespace

std::string udevRuleFile(unsigned int aNumber) {
    return "70-osx-" + linkOf(aNumber) + ".rules";
}

std::string udevRule(const SerialPort& aPort, unsigned int aNumber) {
    const UsbIdentity& lUsb = aPort.usb;
    std::string lText = "# " + plain(aPort.name + ", " + lUsb.description) + ": port " +
                        std::to_string(aNumber) + " of the library.\n";
    std::string lRule = "SUBSYSTEM==\"tty\"" + match("ATTRS{idVendor}", lUsb.vendor) +
                        match("ATTRS{idProduct}", lUsb.product);
    if (canBeNamed(lUsb.serial)) {
        lRule += match("ATTRS{serial}", lUsb.serial);
    } else {
        lText +=
            "# It has no serial number that a rule can name: what is plugged in there is meant.\n";
        lRule += match("KERNELS", lUsb.socket);
    }
    lRule += match("ENV{ID_USB_INTERFACE_NUM}", lUsb.interface) + match("ENV{.ID_PORT}", lUsb.port);
    return lText + lRule + ", SYMLINK+=\"" + linkOf(aNumber) + "\"\n";
}

void writeRule(const std::string& aFile, const std::string& aRule) {
    std::ifstream lFormer(aFile);
    if (lFormer) {
        const std::string lText{std::istreambuf_iterator<char>(lFormer),
                                std::istreambuf_iterator<char>()};
        if (lText == aRule) {
            return;
        }
        fail(aFile + ": there is another rule in it; remove it first");
    }
    const std::string lTemporary = aFile + ".new";
    const osx::Descriptor lFile(
        ::open(lTemporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!lFile) {
        fail(lTemporary + ": " + std::strerror(errno));
    }
    const ssize_t lWritten = ::write(lFile.get(), aRule.data(), aRule.size());
    if (lWritten != static_cast<ssize_t>(aRule.size()) || ::fsync(lFile.get()) != 0 ||
        std::rename(lTemporary.c_str(), aFile.c_str()) != 0) {
        const int lError =
            lWritten >= 0 && lWritten < static_cast<ssize_t>(aRule.size()) ? ENOSPC : errno;
        ::unlink(lTemporary.c_str());
        fail(aFile + ": " + std::strerror(lError));
    }
}

}  // namespace command
