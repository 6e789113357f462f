// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// For the board, whose second and third serial ports are joined as a null modem.
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <chrono>
#include <string>
#include <thread>
#include <tuple>

#include "ace/TTY_IO.h"
#include "commif/commif.h"
#include "commif/osxComPort.h"
#include "support/LogCapture.h"
#include "support/times.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr unsigned int kNearPort = 2;
constexpr unsigned int kFarPort = 3;
constexpr int kLowestLineRate = 9600;

struct LineSettings {
    unsigned int baudRate = 115200;
    unsigned char dataBits = 8;
    unsigned char parity = 0;
    unsigned char stopBits = 0;
    unsigned char halfDuplex = 0;
};

/// An open port, by its descriptor.
class Port {
public:
    Port(unsigned int aNumber, const LineSettings& aSettings) {
        commIfDevParams_t lParams{};
        lParams.devType = eSERIAL;
        lParams.serial.portNr = aNumber;
        lParams.serial.readTimeout = 20000;
        lParams.serial.baudRate = aSettings.baudRate;
        lParams.serial.parityEnable = 1;
        lParams.serial.dataBits = aSettings.dataBits;
        lParams.serial.parity = aSettings.parity;
        lParams.serial.stopBits = aSettings.stopBits;
        lParams.serial.rtsHalfDuplex = aSettings.halfDuplex;
        EXPECT_EQ(COMMIF_OK, commIfOpen(&mDesc, &lParams, nullptr));
        EXPECT_EQ(0, ::tcflush(handle(), TCIOFLUSH));
    }
    ~Port() { EXPECT_EQ(COMMIF_OK, commIfClose(mDesc)); }
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    osxComPort& driver() const { return *commIfDesc[mDesc].info.serial.comPort; }
    int handle() const { return driver().getACE_TTY_IO()->get_handle(); }

    void write(std::string aData) const {
        unsigned long lWritten = 0;
        EXPECT_EQ(COMMIF_OK, commIfWrite(mDesc, reinterpret_cast<unsigned char*>(aData.data()),
                                         aData.size(), &lWritten));
        EXPECT_EQ(aData.size(), lWritten);
    }
    std::string read(std::size_t aLength, int aExpectedStatus = COMMIF_OK) const {
        std::string lData(aLength, '\0');
        unsigned long lGot = 0;
        EXPECT_EQ(aExpectedStatus, commIfRead(mDesc, reinterpret_cast<unsigned char*>(lData.data()),
                                              aLength, &lGot));
        lData.resize(lGot);
        return lData;
    }
    int command(unsigned long aCommand, void* aData = nullptr) const {
        return commIfIoctl(mDesc, aCommand, aData);
    }
    int modemLines() const {
        int lLines = 0;
        EXPECT_EQ(0, ::ioctl(handle(), TIOCMGET, &lLines));
        return lLines;
    }
    serial_icounter_struct counters() const {
        serial_icounter_struct lCounters{};
        EXPECT_EQ(0, ::ioctl(handle(), TIOCGICOUNT, &lCounters));
        return lCounters;
    }

private:
    int mDesc = -1;
};

std::string allBytes() {
    std::string lBytes;
    for (int lByte = 0; lByte < 256; ++lByte) {
        lBytes.push_back(static_cast<char>(lByte));
    }
    return lBytes;
}

/// A line of fewer data bits carries the low ones; what else arrives is the receiver's affair.
std::string lowBits(std::string aData, unsigned int aBits) {
    for (char& lByte : aData) {
        lByte = static_cast<char>(static_cast<unsigned char>(lByte) & ((1U << aBits) - 1));
    }
    return aData;
}

/// Rate, data bits, parity, stop bits.
class UartFraming : public testing::TestWithParam<
                        std::tuple<unsigned int, unsigned char, unsigned char, unsigned char>> {};

std::string framingName(const testing::TestParamInfo<UartFraming::ParamType>& aInfo) {
    const auto [lRate, lDataBits, lParity, lStopBits] = aInfo.param;
    return "Rate" + std::to_string(lRate) + "Bits" + std::to_string(lDataBits) + "NOE"[lParity] +
           std::to_string(lStopBits + 1);
}

}  // namespace

TEST_P(UartFraming, PassesAllBytesBothWays) {
    const test::LogCapture lLog;
    const auto [lRate, lDataBits, lParity, lStopBits] = GetParam();
    const LineSettings lSettings{lRate, lDataBits, lParity, lStopBits};
    const Port lNear(kNearPort, lSettings);
    const Port lFar(kFarPort, lSettings);
    lNear.write(allBytes());
    lFar.write(allBytes());
    EXPECT_EQ(lowBits(allBytes(), lDataBits), lowBits(lFar.read(256), lDataBits));
    EXPECT_EQ(lowBits(allBytes(), lDataBits), lowBits(lNear.read(256), lDataBits));
    EXPECT_EQ(0U, lLog.countContaining("ioctl failed"));
}

INSTANTIATE_TEST_SUITE_P(Each, UartFraming,
                         testing::Combine(testing::Values(9600U, 19200U, 38400U, 57600U, 115200U),
                                          testing::Values(5, 6, 7, 8), testing::Values(0, 1, 2),
                                          testing::Values(0, 1)),
                         framingName);

TEST(Uart, ShowsItsModemLines) {
    const Port lPort(kNearPort, {});
    EXPECT_NE(0, lPort.modemLines() & TIOCM_DTR);
    const std::tuple<unsigned long, int, bool> kCommands[] = {
        {1, TIOCM_RTS, false}, {2, TIOCM_RTS, true}, {1, TIOCM_RTS, false}, {2, TIOCM_RTS, true},
        {3, TIOCM_DTR, false}, {4, TIOCM_DTR, true}, {3, TIOCM_DTR, false}, {4, TIOCM_DTR, true}};
    for (const auto& [lCommand, lLine, lOn] : kCommands) {
        EXPECT_EQ(COMMIF_OK, lPort.command(lCommand));
        EXPECT_EQ(lOn ? lLine : 0, lPort.modemLines() & lLine) << lCommand;
    }
    int lDtr = 77;
    int lDsr = 77;
    EXPECT_EQ(COMMIF_OK, lPort.command(7, &lDtr));
    EXPECT_EQ(COMMIF_OK, lPort.command(8, &lDsr));
    EXPECT_EQ(1, lDtr);
    EXPECT_EQ((lPort.modemLines() & TIOCM_DSR) != 0 ? 1 : 0, lDsr);
}

TEST(Uart, CountsWhatItSendsAndReceives) {
    const Port lNear(kNearPort, {});
    const Port lFar(kFarPort, {});
    const serial_icounter_struct lNearBefore = lNear.counters();
    const serial_icounter_struct lFarBefore = lFar.counters();
    lNear.write(allBytes());
    EXPECT_EQ(allBytes(), lFar.read(256));
    EXPECT_EQ(0, ::tcdrain(lNear.handle()));
    EXPECT_EQ(256, lNear.driver().getTx() - lNearBefore.tx);
    EXPECT_EQ(256, lFar.counters().rx - lFarBefore.rx);
    EXPECT_EQ(0, lFar.counters().overrun - lFarBefore.overrun);
}

TEST(Uart, TellsWhetherAllWasSent) {
    LineSettings lSettings;
    lSettings.baudRate = kLowestLineRate;
    lSettings.halfDuplex = 1;
    const Port lNear(kNearPort, lSettings);
    const Port lFar(kFarPort, lSettings);
    const auto& lDriver = dynamic_cast<osxComPortRTS_Ctrl&>(lNear.driver());
    EXPECT_EQ(-1, lDriver.setHalfDuplexMode(true));
    bool lSeen = false;
    for (int lTry = 0; lTry < 50 && !lSeen; ++lTry) {  // a busy machine may look too late
        lNear.write(std::string(960, 'x'));
        lSeen = lDriver.DetectNotAllBytesWereSent();
        EXPECT_EQ(0, ::tcdrain(lNear.handle()));
        lDriver.waitUntilBytesAreSend();
        EXPECT_FALSE(lDriver.DetectNotAllBytesWereSent());
        EXPECT_EQ(std::string(960, 'x'), lFar.read(960));
    }
    EXPECT_TRUE(lSeen);
}

TEST(Uart, EndsAReadInTimeWithWhatCame) {
    const Port lNear(kNearPort, {});
    const Port lFar(kFarPort, {});
    EXPECT_EQ(COMMIF_OK, lFar.command(6, reinterpret_cast<void*>(test::kToMeasure.count())));
    lNear.write("abc");
    const auto lStart = steady_clock::now();
    EXPECT_EQ("abc", lFar.read(5, COMMIF_ERR_TIMEOUT));
    EXPECT_GE(steady_clock::now() - lStart, test::kToMeasure);
    EXPECT_EQ(COMMIF_OK, lFar.command(6, nullptr));
    EXPECT_EQ("", lFar.read(1, COMMIF_ERR_TIMEOUT));
}

TEST(Uart, WaitsWithoutLimit) {
    const Port lNear(kNearPort, {});
    const Port lFar(kFarPort, {});
    EXPECT_EQ(COMMIF_OK, lFar.command(6, reinterpret_cast<void*>(0xFFFFFFFFUL)));
    constexpr milliseconds kApart(200);  // longer than the driver's own timer waits
    std::thread lWriter([&lNear, kApart] {
        for (const char* lPart : {"a", "bc", "d"}) {
            std::this_thread::sleep_for(kApart);
            lNear.write(lPart);
        }
    });
    EXPECT_EQ("abcd", lFar.read(4));
    lWriter.join();
}

TEST(Uart, CarriesAStreamWhileTheOtherWayIsBusyToo) {
    static constexpr std::size_t kLength = 16 * 1024;
    const test::LogCapture lLog;
    const Port lNear(kNearPort, {});
    const Port lFar(kFarPort, {});
    std::string lData;
    while (lData.size() < kLength) {
        lData += allBytes();
    }
    std::thread lNearWriter([&] { lNear.write(lData); });
    std::thread lFarWriter([&] { lFar.write(lData); });
    std::string lAtNear;
    std::thread lNearReader([&] { lAtNear = lNear.read(kLength); });
    EXPECT_EQ(lData, lFar.read(kLength));
    lNearReader.join();
    lNearWriter.join();
    lFarWriter.join();
    EXPECT_EQ(lData, lAtNear);
    EXPECT_EQ(0U, lLog.countContaining("overrun"));
}
