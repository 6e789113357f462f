// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "ports/ports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "Folder.h"
#include "common/Failure.h"
#include "run.h"
#include "support/files.h"

namespace {

using command::PortsOptions;
using testing::HasSubstr;
using testing::Not;

namespace fs = std::filesystem;

/// A machine with a UART, a place for one, a terminal and a USB adapter.
class Ports : public testing::Test {
protected:
    Ports() {
        mOptions.folders = {root("sys"), root("proc"), root("dev")};
        mOptions.rules = root("rules");
        fs::create_directories(root("rules"));
        mFolder.write("sys/class/tty/tty1/dev", "4:1\n");
        addPort("ttyS0", "devices/pnp0/00:01", "serial");
        mFolder.write("sys/class/tty/ttyS0/type", "4\n");
        addPort("ttyS1", "devices/platform/serial8250", "serial8250");
        mFolder.write("sys/class/tty/ttyS1/type", "0\n");
        addPort("ttyUSB0", "devices/usb1/1-1/1-1.2/1-1.2:1.1/ttyUSB0", "ftdi_sio");
        const std::string lAdapter = "sys/devices/usb1/1-1/1-1.2/";
        mFolder.write(lAdapter + "1-1.2:1.1/ttyUSB0/port_number", "0\n");
        mFolder.write(lAdapter + "1-1.2:1.1/bInterfaceNumber", "01\n");
        mFolder.write(lAdapter + "idVendor", "0403\n");
        mFolder.write(lAdapter + "idProduct", "6001\n");
        mFolder.write(lAdapter + "manufacturer", "FTDI\n");
        mFolder.write(lAdapter + "product", "FT232R \x1b[2J\n");
        setSerial("A1B2");
        mFolder.write("proc/tty/driver/serial",
                      "serinfo:1.0 driver revision:\n"
                      "0: uart:16550A port:000003F8 irq:4 tx:17400 rx:9 fe:1 oe:2 RTS|DTR\n");
        mFolder.write("proc/77/comm", "gateway\n");
        fs::create_directories(root("proc/77/fd"));
        fs::create_symlink(root("dev/ttyUSB0"), root("proc/77/fd/5"));
        mFolder.write("dev/ttyUSB0", "");
        mFolder.write("dev/ttyS0", "");
    }

    std::string root(const std::string& aPath) const { return mFolder.path() + "/" + aPath; }

    void addPort(const std::string& aName, const std::string& aDevice, const std::string& aDriver) {
        mFolder.write("sys/" + aDevice + "/uevent", "");
        mFolder.write("sys/class/tty/" + aName + "/dev", "4:64\n");
        fs::create_directory_symlink(root("sys/" + aDevice),
                                     root("sys/class/tty/" + aName + "/device"));
        fs::create_symlink("/nowhere/drivers/" + aDriver, root("sys/" + aDevice + "/driver"));
    }

    void setSerial(const std::string& aSerial) {
        mFolder.write("sys/devices/usb1/1-1/1-1.2/serial", aSerial + "\n");
    }

    std::string complaint() const {
        try {
            command::portsText(mOptions);
        } catch (const command::Failure& lFailure) {
            return lFailure.what();
        }
        return "no complaint";
    }

    const test::Folder mFolder;
    PortsOptions mOptions;
};

}  // namespace

TEST_F(Ports, AreListedWithDriversCountersAndHolders) {
    EXPECT_EQ(
        "ttyS0: port 1, driver serial, tx:17400 rx:9 fe:1 oe:2\n"
        "ttyUSB0: no number, driver ftdi_sio, FTDI FT232R \\x1b[2J 0403:6001 serial A1B2, held by "
        "gateway (77)\n",
        command::portsText(mOptions));
}

TEST_F(Ports, AreListedAsJson) {
    mOptions.json = true;
    EXPECT_THAT(command::portsText(mOptions),
                HasSubstr(R"({"name":"ttyS0","numbers":[1],"driver":"serial",)"
                          R"("counters":"tx:17400 rx:9 fe:1 oe:2","usb":null,"holders":[]})"));
    EXPECT_THAT(command::portsText(mOptions), HasSubstr(R"("holders":[{"process":"77",)"));
}

TEST_F(Ports, OfPseudoTerminalsAndAdaptersHaveTheNumbersOfTheirLinks) {
    fs::create_symlink("ttyUSB0", root("dev/ttyS70"));
    mFolder.write("dev/pts/3", "");
    fs::create_symlink(root("dev/pts/3"), root("dev/ttyS64"));
    EXPECT_THAT(command::portsText(mOptions), HasSubstr("ttyUSB0: port 71, driver"));
    EXPECT_THAT(command::portsText(mOptions), HasSubstr("pts/3: port 65, no driver\n"));
    mOptions.link = root("dev/ttyUSB0");
    EXPECT_EQ("ttyUSB0 is port 71 already.\n", command::portsText(mOptions));
}

TEST_F(Ports, GetANumberByARuleThatIsShownBeforeItIsWritten) {
    mOptions.link = "ttyUSB0";
    const std::string lRule =
        "# ttyUSB0, FTDI FT232R ?[2J: port 65 of the library.\n"
        "SUBSYSTEM==\"tty\", ATTRS{idVendor}==\"0403\", ATTRS{idProduct}==\"6001\", "
        "ATTRS{serial}==\"A1B2\", ENV{ID_USB_INTERFACE_NUM}==\"01\", ENV{.ID_PORT}==\"0\", "
        "SYMLINK+=\"ttyS64\"\n";
    const std::string lFile = root("rules/70-osx-ttyS64.rules");
    EXPECT_EQ(lRule + "# --write writes this to " + lFile + "\n", command::portsText(mOptions));
    EXPECT_FALSE(fs::exists(lFile));
    mOptions.write = true;
    EXPECT_THAT(command::portsText(mOptions), HasSubstr("# written to " + lFile));
    EXPECT_EQ(lRule, test::contentsOf(lFile));
    EXPECT_FALSE(fs::exists(lFile + ".new"));
    EXPECT_THAT(command::portsText(mOptions), HasSubstr("port 66 of the library"));
}

TEST_F(Ports, WithASerialNumberThatNoRuleCanNameAreKnownByTheirSocket) {
    for (const char* lSerial : {"", "A\"B", "A*", "A|B", "A\nB"}) {
        setSerial(lSerial);
        mOptions.link = "ttyUSB0";
        EXPECT_THAT(command::portsText(mOptions), HasSubstr(", KERNELS==\"1-1.2\","));
        EXPECT_THAT(command::portsText(mOptions), Not(HasSubstr("ATTRS{serial}")));
    }
}

TEST_F(Ports, ThatCannotBeLinkedAreRefused) {
    mOptions.link = "ttyS0";
    EXPECT_EQ("ttyS0 is no USB adapter", complaint());
    mOptions.link = "ttyUSB9";
    EXPECT_EQ("ttyUSB9 is no serial port of this machine; osx ports names them", complaint());
    mOptions.link = "ttyUSB0";
    mOptions.number = 1;
    EXPECT_EQ("port 1 is taken", complaint());
    mOptions.number = 99;
    mOptions.write = true;
    mOptions.rules = root("nowhere");
    EXPECT_THAT(complaint(), HasSubstr("No such file or directory"));
}

TEST_F(Ports, OfThisMachineAreListed) {
    const test::Result lResult = test::run({"ports"});
    EXPECT_EQ(0, lResult.status);
    EXPECT_FALSE(lResult.output.empty());
    EXPECT_EQ(2, test::run({"ports", "--write"}).status);
}
