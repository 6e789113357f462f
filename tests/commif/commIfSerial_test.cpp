// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <tuple>
#include <vector>

#include "ace/TTY_IO.h"
#include "commif/SerialDriverModel.h"
#include "commif/SerialLine.h"
#include "commif/commif.h"
#include "commif/osxComPort.h"
#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/cancellation.h"
#include "support/inChild.h"
#include "support/logMatchers.h"
#include "support/longForm.h"
#include "support/times.h"
#include "support/waitUntil.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr int kDesc = 7;
constexpr unsigned int kNoLimit = 0xFFFFFFFFU;
constexpr unsigned long kReplaceReadTimeout = 6;
constexpr unsigned long kHalfDuplexRequest = test::SerialDriverModel::kHalfDuplexRequest;

using Bytes = std::initializer_list<unsigned char>;

std::string allBytes() {
    std::string lBytes;
    for (int lByte = 0; lByte < 256; ++lByte) {
        lBytes.push_back(static_cast<char>(lByte));
    }
    return lBytes;
}

std::string hex(const void* aPointer) {
    char lText[16];
    std::snprintf(lText, sizeof lText, "0x%x",
                  static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(aPointer)));
    return lText;
}

/// A line with a driver, and parameters that open it on `kDesc`.
class SerialChannel : public testing::Test {
protected:
    SerialChannel() {
        mParams.portNr = mLine.port();
        mParams.readTimeout = 30000;
        mParams.baudRate = 9600;
        mParams.dataBits = 8;
    }
    ~SerialChannel() override {
        if (commIfDesc[kDesc].info.serial.comPort != nullptr) {
            commIfSerialClose(kDesc);
        }
    }

    int open() { return commIfSerialOpen(kDesc, &mParams); }
    int read(std::size_t aLength) {
        mBuffer.assign(aLength, '\0');
        mGot = 77;
        const int lResult = commIfSerialRead(
            kDesc, reinterpret_cast<unsigned char*>(mBuffer.data()), aLength, &mGot);
        mBuffer.resize(mGot <= aLength ? mGot : 0);
        return lResult;
    }
    int write(std::string aData) {
        mGot = 77;
        return commIfSerialWrite(kDesc, reinterpret_cast<unsigned char*>(aData.data()),
                                 aData.size(), &mGot);
    }
    int setReadTimeout(unsigned int aMilliseconds) {
        return commIfSerialIoctl(
            kDesc, kReplaceReadTimeout,
            reinterpret_cast<void*>(static_cast<std::uintptr_t>(aMilliseconds)));
    }
    osxComPort* port() const { return commIfDesc[kDesc].info.serial.comPort; }
    int handle() const { return port()->getACE_TTY_IO()->get_handle(); }
    std::string inDescriptor(const std::string& aText) const {
        return "%t " + aText + "  fd[" + std::to_string(kDesc) + "] \n";
    }
    std::string ofPort() const {
        return "[" + mLine.path() + "] fd[" + std::to_string(kDesc) + "]";
    }
    std::string refusedLine() const {
        return "%t commIfSerialOpen: Unable to set the port settings for port " + ofPort() + " \n";
    }
    void expectNoPort();

    test::LogCapture mLog;
    test::SerialDriverModel mDriver;
    test::SerialLine mLine;
    commIfSerialParams_t mParams{};
    std::string mBuffer;
    unsigned long mGot = 77;
};

void SerialChannel::expectNoPort() {
    EXPECT_EQ(nullptr, port());
    mLog.clear();
    int lState = 0;
    EXPECT_EQ(10015, read(1));
    EXPECT_EQ(10015, write("a"));
    EXPECT_EQ(10015, commIfSerialIoctl(kDesc, 7, &lState));
    EXPECT_EQ(10015, commIfSerialIoctl(kDesc, 99, nullptr));
    EXPECT_EQ(10015, commIfSerialClose(kDesc));
    EXPECT_EQ(77U, mGot);
    EXPECT_THAT(mLog.texts(), ElementsAre(inDescriptor("commIfSerialRead: losxComPort == 0"),
                                          inDescriptor("commIfSerialWrite: losxComPort == 0"),
                                          inDescriptor("commIfSerialIoctl: losxComPort == 0"),
                                          inDescriptor("commIfSerialIoctl: losxComPort == 0"),
                                          inDescriptor("commIfSerialClose: lComport == 0")));
    EXPECT_THAT(mLog.lines(), testing::Each(test::IsLineOf(LM_DEBUG, -1, "CommIfACE.cpp")));
}

using SerialOpen = SerialChannel;
using SerialRead = SerialChannel;
using SerialWrite = SerialChannel;
using SerialIoctl = SerialChannel;
using SerialClose = SerialChannel;

/// The same by way of the generic calls.
class SerialDescriptor : public SerialChannel {
protected:
    SerialDescriptor() {
        mDevParams.devType = eSERIAL;
        mDevParams.serial = mParams;
    }
    int openDescriptor() { return commIfOpen(&mDesc, &mDevParams, nullptr); }

    commIfDevParams_t mDevParams{};
    int mDesc = 77;
};

/// Sends a word each way over a line of its own, opened anew each time, until the end.
void useLine(steady_clock::time_point aEnd) {
    const test::SerialLine lLine;
    commIfDevParams_t lParams{};
    lParams.devType = eSERIAL;
    lParams.serial.portNr = lLine.port();
    lParams.serial.readTimeout = 30000;
    lParams.serial.baudRate = 115200;
    lParams.serial.dataBits = 8;
    do {
        int lDesc = -1;
        ASSERT_EQ(COMMIF_OK, commIfOpen(&lDesc, &lParams, nullptr));
        unsigned char lWord[] = {'w', 'o', 'r', 'd'};
        unsigned long lCount = 0;
        EXPECT_EQ(COMMIF_OK, commIfWrite(lDesc, lWord, 4, &lCount));
        EXPECT_EQ("word", lLine.receive(4));
        lLine.send("back");
        EXPECT_EQ(COMMIF_OK, commIfRead(lDesc, lWord, 4, &lCount));
        EXPECT_EQ(0, std::memcmp("back", lWord, 4));
        EXPECT_EQ(COMMIF_OK, commIfClose(lDesc));
    } while (!testing::Test::HasFailure() && steady_clock::now() < aEnd);
}

/// Data bits, parity, stop bits, whether parity is enabled.
using Framing = std::tuple<unsigned char, unsigned char, unsigned char, unsigned char>;
class SerialFraming : public SerialChannel, public testing::WithParamInterface<Framing> {};

std::string framingName(const testing::TestParamInfo<Framing>& aInfo) {
    const auto [lDataBits, lParity, lStopBits, lEnabled] = aInfo.param;
    return std::to_string(lDataBits) + "NOE"[lParity] + "Stop" + std::to_string(lStopBits) +
           (lEnabled != 0 ? "Enabled" : "");
}

}  // namespace

TEST_F(SerialOpen, MakesAPortThatReadsAndWrites) {
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_TRUE(mLine.isOpen());
    EXPECT_EQ(COMMIF_OK, write("to the instrument"));
    EXPECT_EQ(17U, mGot);
    EXPECT_EQ("to the instrument", mLine.receive(17));
    mLine.send("from it");
    EXPECT_EQ(COMMIF_OK, read(7));
    EXPECT_EQ("from it", mBuffer);
    EXPECT_EQ(COMMIF_OK, commIfSerialClose(kDesc));
    EXPECT_FALSE(mLine.isOpen());
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(SerialOpen, KeepsItsParametersInTheDescriptor) {
    mParams.parityEnable = mParams.dsrFlow = mParams.reserved9 = 1;
    mParams.dtrControl = 3;
    mParams.rtsControl = -1;
    mParams.stopBits = 9;
    mParams.reserved[2] = 123;
    ASSERT_EQ(COMMIF_OK, open());
    const commIfSerialParams_t& lKept = commIfDesc[kDesc].info.serial;
    EXPECT_EQ(0, std::memcmp(&mParams, &lKept, sizeof mParams));
}

TEST_F(SerialOpen, OpensADescriptorThatIsPrivateAndBlocking) {
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(handle(), F_GETFD));
    const int lFlags = ::fcntl(handle(), F_GETFL);
    EXPECT_EQ(O_RDWR, lFlags & O_ACCMODE);
    EXPECT_EQ(0, lFlags & O_NONBLOCK);
}

TEST_F(SerialOpen, TakesTheCountersAsTheyAre) {
    serial_icounter_struct lCounters{};
    lCounters.overrun = 5;
    mDriver.setCounters(lCounters);
    ASSERT_EQ(COMMIF_OK, open());
    mLine.send("a");
    EXPECT_EQ(COMMIF_OK, read(1));
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(SerialOpen, WorksOnADriverThatRefusesAllRequests) {
    for (const unsigned long lRequest :
         {static_cast<unsigned long>(TIOCGICOUNT), kHalfDuplexRequest,
          static_cast<unsigned long>(TIOCMGET), static_cast<unsigned long>(TIOCMSET)}) {
        mDriver.refuse(lRequest);
    }
    mParams.rtsHalfDuplex = 1;
    ASSERT_EQ(COMMIF_OK, open());
    mLine.send("a");
    EXPECT_EQ(COMMIF_OK, read(1));
    EXPECT_THAT(mLog.texts(), ElementsAre("osxComPort::init() ioctl failed \n",
                                          "osxComPort::checkUART() ioctl failed \n"));
}

TEST_F(SerialOpen, DoesNotMakeThePortTheControllingTerminal) {
    const pid_t lChild = ::fork();
    if (lChild == 0) {
        const bool lIsLeader = ::setsid() != -1;
        const bool lHasTerminal =
            open() != COMMIF_OK || ::open("/dev/tty", O_RDWR | O_CLOEXEC) != -1;
        ::_exit(lIsLeader && !lHasTerminal ? 0 : 1);
    }
    int lStatus = -1;
    ASSERT_EQ(lChild, ::waitpid(lChild, &lStatus, 0));
    EXPECT_EQ(0, lStatus);
}

TEST_F(SerialOpen, FailsOnAPortThatIsNotThere) {
    mParams.portNr = 4000000000U;
    const int lBefore = test::openDescriptors();
    EXPECT_EQ(10015, open());
    EXPECT_EQ(lBefore, test::openDescriptors());
    ASSERT_THAT(
        mLog.texts(),
        ElementsAre("%t commIfSerialOpen: Unable to open port [/dev/ttyS3999999999] fd[7]\n"));
    const test::LogLine lLine = mLog.lines()[0];
    EXPECT_EQ(LM_ERROR, lLine.priority);
    EXPECT_EQ("CommIfACE.cpp", lLine.module);
    EXPECT_EQ(-1, lLine.status);
    EXPECT_EQ(ENOENT, lLine.errnum);
    expectNoPort();
}

TEST_F(SerialOpen, NeedsParameters) {
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(10014, commIfSerialOpen(kDesc, nullptr));
    EXPECT_NE(nullptr, port());
}

TEST_F(SerialOpen, SucceedsWithoutAPortWhenThereIsNoMemoryForTheDevice) {
    const int lBefore = test::openDescriptors();
    {
        const test::FailingAllocator lNoMemory;
        errno = 0;
        EXPECT_EQ(COMMIF_OK, open());
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ(lBefore, test::openDescriptors());
    EXPECT_THAT(mLog.texts(), IsEmpty());
    expectNoPort();
}

TEST_F(SerialOpen, SucceedsWithoutAPortWhenThereIsNoMemoryForThePort) {
    for (const unsigned char lHalfDuplex : Bytes{0, 1}) {
        mLog.clear();
        mParams.rtsHalfDuplex = lHalfDuplex;
        {
            const test::FailingAllocator lNoMemory(1, true);
            errno = 0;
            EXPECT_EQ(COMMIF_OK, open());
            EXPECT_EQ(ENOMEM, errno);
        }
        ASSERT_THAT(mLog.texts(),
                    ElementsAre("%t commIfSerialOpen: Unable to create an osxComPort for port " +
                                ofPort() + " \n"));
        EXPECT_EQ(LM_DEBUG, mLog.lines()[0].priority);
        EXPECT_EQ(ENOMEM, mLog.lines()[0].errnum);
        EXPECT_TRUE(mLine.isOpen());
        expectNoPort();
        EXPECT_FALSE(mLine.isOpen());
    }
}

TEST_F(SerialOpen, LeavesNothingFromAnOpenWithoutPort) {
    {
        const test::FailingAllocator lNoMemory(1, true);
        EXPECT_EQ(COMMIF_OK, open());
    }
    const int lBefore = test::openDescriptors();
    EXPECT_EQ(COMMIF_OK, open());
    EXPECT_EQ(lBefore, test::openDescriptors());
}

TEST_F(SerialOpen, ForgetsAnEarlierPortWhenThereIsNoMemory) {
    for (const int lAllowed : {0, 1}) {
        ASSERT_EQ(COMMIF_OK, open());
        {
            const test::FailingAllocator lNoMemory(lAllowed, true);
            EXPECT_EQ(COMMIF_OK, open());
        }
        expectNoPort();
    }
}

TEST_F(SerialOpen, KeepsThePortWhenItsSettingsAreRefused) {
    mParams.baudRate = 12345;
    EXPECT_EQ(10015, open());
    EXPECT_THAT(mLog.texts(),
                ElementsAre(inDescriptor("CommParamsSet: lComport->control fails"), refusedLine()));
    for (const test::LogLine& lLine : mLog.lines()) {
        EXPECT_EQ(LM_DEBUG, lLine.priority);
        EXPECT_EQ(-1, lLine.status);
    }
    EXPECT_NE(nullptr, port());
    EXPECT_TRUE(mLine.isOpen());
    EXPECT_EQ(COMMIF_OK, commIfSerialClose(kDesc));
    EXPECT_FALSE(mLine.isOpen());
}

TEST_F(SerialOpen, DoesNotLeakAPortWhoseSettingsWereRefused) {
    mParams.dataBits = 9;
    EXPECT_EQ(10015, open());
    const int lBefore = test::openDescriptors();
    for (const unsigned char lDataBits : Bytes{4, 9, 8}) {
        mParams.dataBits = lDataBits;
        EXPECT_EQ(lDataBits == 8 ? COMMIF_OK : 10015, open());
        EXPECT_EQ(lBefore, test::openDescriptors());
    }
}

TEST_F(SerialOpen, EndsAnEarlierPortBeforeItMakesANewOne) {
    mParams.rtsHalfDuplex = 1;
    ASSERT_EQ(COMMIF_OK, open());
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_THAT(mDriver.values(kHalfDuplexRequest), ElementsAre(1, 0, 1));
}

TEST_F(SerialOpen, FailsOnMarkAndSpaceParity) {
    mParams.parityEnable = 1;
    for (const unsigned char lParity : Bytes{3, 4, 200}) {
        mLog.clear();
        mParams.parity = lParity;
        EXPECT_EQ(10015, open());
        EXPECT_THAT(
            mLog.texts(),
            ElementsAre(inDescriptor("CommParamsSet: lComport->control fails"), refusedLine()));
    }
}

TEST_F(SerialOpen, SetsNoParityUnlessItIsEnabled) {
    ASSERT_EQ(COMMIF_OK, open());
    const termios lPlain = mDriver.settings();
    for (const unsigned char lParity : Bytes{1, 2, 3, 4, 200}) {
        mParams.parity = lParity;
        EXPECT_EQ(COMMIF_OK, open());
        const termios lSettings = mDriver.settings();
        EXPECT_EQ(0U, lSettings.c_cflag & PARENB);
        EXPECT_EQ(0, std::memcmp(&lPlain, &lSettings, sizeof lPlain));
    }
}

TEST_F(SerialOpen, TracesItsSteps) {
    const test::TraceLevel lLevel(9);
    ASSERT_EQ(COMMIF_OK, open());
    const std::string lPort = "lComport[" + hex(port()->getACE_TTY_IO()) + "] \n";
    EXPECT_THAT(mLog.texts(),
                ElementsAre("%t commIfSerialOpen: CommParamsSet " + ofPort() + " " + lPort,
                            "%t CommParamsSet: CommParamsSet start fd[7] " + lPort,
                            "%t CommParamsSet: CommParamsSet done fd[7] " + lPort,
                            "%t commIfSerialOpen: CommParamsSet done " + ofPort() + " " + lPort));
    for (const test::LogLine& lLine : mLog.lines()) {
        EXPECT_EQ(LM_DEBUG, lLine.priority);
        EXPECT_EQ(0, lLine.status);
    }
}

TEST_F(SerialOpen, TracesItsFailureToTheEnd) {
    const test::TraceLevel lLevel(9);
    mParams.baudRate = 1;
    ASSERT_EQ(10015, open());
    const std::vector<std::string> lTexts = mLog.texts();
    ASSERT_EQ(5U, lTexts.size());
    EXPECT_EQ(refusedLine(), lTexts[3]);
    EXPECT_THAT(lTexts[4], StartsWith("%t commIfSerialOpen: CommParamsSet done " + ofPort()));
}

TEST_F(SerialOpen, TracesNothingBelowItsLevel) {
    const test::TraceLevel lLevel(8);
    ASSERT_EQ(COMMIF_OK, open());
    int lState = 0;
    EXPECT_EQ(COMMIF_OK, commIfSerialIoctl(kDesc, 7, &lState));
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(SerialOpen, SetsTheSpeed) {
    for (const auto& [lRate, lSpeed] :
         {std::pair{300U, B300}, std::pair{9600U, B9600}, std::pair{115200U, B115200}}) {
        mParams.baudRate = lRate;
        ASSERT_EQ(COMMIF_OK, open());
        const termios lSettings = mDriver.settings();
        EXPECT_EQ(lSpeed, ::cfgetospeed(&lSettings));
        EXPECT_EQ(lSpeed, ::cfgetispeed(&lSettings));
    }
}

TEST_F(SerialOpen, SetsTheFlowControl) {
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(0U, mDriver.settings().c_cflag & CRTSCTS);
    EXPECT_EQ(0U, mDriver.settings().c_iflag & (IXON | IXOFF | IXANY));
    mParams.ctsFlow = 1;
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_NE(0U, mDriver.settings().c_cflag & CRTSCTS);
    mParams.ctsFlow = 0;
    const auto lExpectRtsCts = [this] {
        ASSERT_EQ(COMMIF_OK, open());
        EXPECT_NE(0U, mDriver.settings().c_cflag & CRTSCTS);
    };
    mParams.rtsControl = 1;
    lExpectRtsCts();
    mParams.rtsControl = -1;
    lExpectRtsCts();
    mParams.rtsControl = -2;
    lExpectRtsCts();
    mParams.rtsControl = 0;
    mParams.xonXoffOut = 1;
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(static_cast<tcflag_t>(IXON), mDriver.settings().c_iflag & (IXON | IXOFF));
    EXPECT_EQ(0U, mDriver.settings().c_cflag & CRTSCTS);
    mParams.xonXoffOut = 0;
    mParams.xonXoffIn = 1;
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(static_cast<tcflag_t>(IXOFF), mDriver.settings().c_iflag & (IXON | IXOFF));
}

TEST_F(SerialOpen, RaisesDtrUnlessToldNotTo) {
    mDriver.setModemLines(TIOCM_RTS);
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(TIOCM_RTS | TIOCM_DTR, mDriver.modemLines());
    for (const unsigned int lControl : {1U, 2U, 3U}) {
        mDriver.setModemLines(TIOCM_RTS | TIOCM_DTR);
        mParams.dtrControl = lControl & 3U;
        ASSERT_EQ(COMMIF_OK, open());
        EXPECT_EQ(TIOCM_RTS, mDriver.modemLines());
    }
}

TEST_F(SerialOpen, IgnoresFlagsThatMeanNothing) {
    ASSERT_EQ(COMMIF_OK, open());
    const termios lPlain = mDriver.settings();
    mParams.reserved0 = mParams.reserved6 = mParams.reserved9 = mParams.dsrFlow = 1;
    ASSERT_EQ(COMMIF_OK, open());
    const termios lSettings = mDriver.settings();
    EXPECT_EQ(0, std::memcmp(&lPlain, &lSettings, sizeof lPlain));
}

TEST_F(SerialOpen, UndoesWhatAFormerUserOfThePortLeft) {
    for (const unsigned char lParity : Bytes{0, 1, 2}) {
        mParams.parity = lParity;
        mParams.parityEnable = 1;
        const test::SerialLine lUnused;
        mParams.portNr = lUnused.port();
        ASSERT_EQ(COMMIF_OK, open());
        const termios lClean = mDriver.settings();

        termios lLeft{};
        lLeft.c_iflag = lLeft.c_oflag = lLeft.c_lflag = ~tcflag_t{0};
        lLeft.c_cflag = ~tcflag_t{0} & ~static_cast<tcflag_t>(CBAUD | CIBAUD);
        lLeft.c_cflag |= B9600 | CIBAUD;
        std::fill_n(lLeft.c_cc, NCCS, cc_t{'x'});
        ASSERT_EQ(0, ::tcsetattr(mLine.farEnd(), TCSANOW, &lLeft));
        mDriver.keepSettings(lLeft);
        mParams.portNr = mLine.port();
        ASSERT_EQ(COMMIF_OK, open());
        const termios lSettings = mDriver.settings();
        EXPECT_EQ(lClean.c_iflag, lSettings.c_iflag);
        EXPECT_EQ(lClean.c_oflag, lSettings.c_oflag);
        EXPECT_EQ(lClean.c_cflag, lSettings.c_cflag);
        EXPECT_EQ(lClean.c_lflag, lSettings.c_lflag);
        EXPECT_EQ(0, std::memcmp(lClean.c_cc, lSettings.c_cc, sizeof lClean.c_cc));
        EXPECT_EQ(0x11, lSettings.c_cc[VSTART]);
        EXPECT_EQ(0x13, lSettings.c_cc[VSTOP]);
        EXPECT_EQ(0U, lSettings.c_iflag & (IGNPAR | PARMRK | IUTF8));
        EXPECT_EQ(0U, lSettings.c_cflag & (CMSPAR | CIBAUD));
        mLine.send(allBytes());
        EXPECT_EQ(COMMIF_OK, read(256));
        EXPECT_EQ(allBytes(), mBuffer);
    }
}

TEST_P(SerialFraming, IsSetAndPassesAllBytes) {
    const auto [lDataBits, lParity, lStopBits, lEnabled] = GetParam();
    mParams.dataBits = lDataBits;
    mParams.parity = lParity;
    mParams.stopBits = lStopBits;
    mParams.parityEnable = lEnabled & 1U;
    ASSERT_EQ(COMMIF_OK, open());

    const termios lSettings = mDriver.settings();
    const tcflag_t lSizes[] = {CS5, CS6, CS7, CS8};
    const tcflag_t lParities[] = {0, lEnabled != 0 ? PARENB | PARODD : 0U,
                                  lEnabled != 0 ? PARENB : 0U};
    EXPECT_EQ(lSizes[lDataBits - 5], lSettings.c_cflag & CSIZE);
    EXPECT_EQ(lParities[lParity], lSettings.c_cflag & (PARENB | PARODD));
    EXPECT_EQ(lStopBits == 0 ? 0U : static_cast<tcflag_t>(CSTOPB), lSettings.c_cflag & CSTOPB);
    EXPECT_EQ(lParity != 0 && lEnabled != 0, (lSettings.c_iflag & INPCK) != 0);
    EXPECT_EQ(0U, lSettings.c_iflag & (PARMRK | IGNPAR));
    EXPECT_EQ(static_cast<tcflag_t>(CREAD | CLOCAL), lSettings.c_cflag & (CREAD | CLOCAL));
    EXPECT_EQ(1, lSettings.c_cc[VMIN]);
    EXPECT_EQ(0, lSettings.c_cc[VTIME]);

    // The far end of a pseudo terminal always has eight bits.
    std::string lExpected = allBytes();
    mLine.send(lExpected);
    for (char& lByte : lExpected) {
        lByte = static_cast<char>(lDataBits == 8 ? lByte : lByte & 0x7F);
    }
    EXPECT_EQ(COMMIF_OK, read(256));
    EXPECT_EQ(lExpected, mBuffer);
    EXPECT_EQ(COMMIF_OK, write(allBytes()));
    EXPECT_EQ(allBytes(), mLine.receive(256));
}

INSTANTIATE_TEST_SUITE_P(Each, SerialFraming,
                         testing::Combine(testing::Values(5, 6, 7, 8), testing::Values(0, 1, 2),
                                          testing::Values(0, 1, 2), testing::Values(0, 1)),
                         framingName);

TEST_F(SerialRead, WaitsForAllBytes) {
    ASSERT_EQ(COMMIF_OK, open());
    std::thread lSender([this] {
        for (const char* lPart : {"a", "bc", "d"}) {
            mLine.send(lPart);
            std::this_thread::sleep_for(test::kInterval);
        }
    });
    EXPECT_EQ(COMMIF_OK, read(4));
    EXPECT_EQ("abcd", mBuffer);
    lSender.join();
}

/// A read time-out in milliseconds. Whether it is below or above what the driver's own timer can do
/// does not matter.
class SerialTimeOut : public SerialChannel, public testing::WithParamInterface<unsigned int> {};
INSTANTIATE_TEST_SUITE_P(Of, SerialTimeOut, testing::Values(0, 1, 50, 99, 100, 250),
                         testing::PrintToStringParamName());

TEST_P(SerialTimeOut, EndsAReadInTimeWithWhatCame) {
    mParams.readTimeout = GetParam();
    ASSERT_EQ(COMMIF_OK, open());
    const auto lStart = steady_clock::now();
    EXPECT_EQ(10011, read(1));
    EXPECT_EQ(0U, mGot);
    mLine.send("abc");
    test::awaitInput(handle(), 3);
    EXPECT_EQ(10011, read(5));
    EXPECT_EQ("abc", mBuffer);
    EXPECT_GE(steady_clock::now() - lStart, 2 * milliseconds(GetParam()));
}

TEST_F(SerialRead, WaitsAsLongAsItTakes) {
    // 25600 ms is where the driver's own timer starts from nothing again.
    for (const unsigned int lTimeout : {kNoLimit, 25600U, 51200U}) {
        mParams.readTimeout = lTimeout;
        SCOPED_TRACE(lTimeout);
        ASSERT_EQ(COMMIF_OK, open());
        std::thread lSender([this] {
            std::this_thread::sleep_for(test::kLongerThanATenth);
            mLine.send("a");
            std::this_thread::sleep_for(test::kLongerThanATenth);
            mLine.send("b");
        });
        EXPECT_EQ(COMMIF_OK, read(2));
        EXPECT_EQ("ab", mBuffer);
        lSender.join();
    }
}

TEST_F(SerialRead, FollowsEachNewTimeOut) {
    mParams.readTimeout = 100;
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(10011, read(1));

    EXPECT_EQ(COMMIF_OK, setReadTimeout(kNoLimit));
    std::thread lSender([this] {
        std::this_thread::sleep_for(test::kLongerThanATenth);
        mLine.send("a");
    });
    EXPECT_EQ(COMMIF_OK, read(1));
    lSender.join();

    EXPECT_EQ(COMMIF_OK, setReadTimeout(0));
    const auto lStart = steady_clock::now();
    EXPECT_EQ(10011, read(1));
    EXPECT_LT(steady_clock::now() - lStart, test::kSlack);

    constexpr milliseconds kTimeOut(250);
    EXPECT_EQ(COMMIF_OK, setReadTimeout(kTimeOut.count()));
    EXPECT_EQ(kTimeOut.count(), commIfDesc[kDesc].info.serial.readTimeout);
    const auto lThen = steady_clock::now();
    EXPECT_EQ(10011, read(1));
    EXPECT_GE(steady_clock::now() - lThen, kTimeOut);
}

TEST_F(SerialRead, BecomesBoundedAfterAnOpenWithoutLimit) {
    mParams.readTimeout = kNoLimit;
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(COMMIF_OK, setReadTimeout(60));
    mLine.send("a");
    EXPECT_EQ(10011, read(2));
    EXPECT_EQ("a", mBuffer);
}

TEST_F(SerialRead, CountsItsTimeIn32Bits) {
    // 4294968 ms are 704 us more than 32 bits of microseconds hold.
    mParams.readTimeout = 4294968;
    ASSERT_EQ(COMMIF_OK, open());
    const auto lStart = steady_clock::now();
    EXPECT_EQ(10011, read(1));
    EXPECT_LT(steady_clock::now() - lStart, test::kSlack);
}

TEST_F(SerialRead, TracesThatBytesAreMissing) {
    mParams.readTimeout = 0;
    ASSERT_EQ(COMMIF_OK, open());
    mLine.send("ab");
    {
        const test::TraceLevel lLevel(3);
        EXPECT_EQ(10011, read(4));
    }
    const test::TraceLevel lLevel(2);
    EXPECT_EQ(10011, read(4));
    ASSERT_THAT(mLog.texts(), ElementsAre("%t commIfSerialRead: *retCount [2] != Count[4] \n"));
    EXPECT_EQ(LM_DEBUG, mLog.lines()[0].priority);
    EXPECT_EQ(0, mLog.lines()[0].status);
}

TEST_F(SerialRead, TracesNothingWhenAllCame) {
    ASSERT_EQ(COMMIF_OK, open());
    mLine.send("ab");
    const test::TraceLevel lLevel(3);
    EXPECT_EQ(COMMIF_OK, read(2));
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(SerialRead, TellsOfOverruns) {
    ASSERT_EQ(COMMIF_OK, open());
    serial_icounter_struct lCounters{};
    lCounters.overrun = 3;
    mDriver.setCounters(lCounters);
    mLine.send("ab");
    EXPECT_EQ(COMMIF_OK, read(1));
    EXPECT_EQ(COMMIF_OK, read(1));
    EXPECT_THAT(mLog.texts(), ElementsAre("osxComPort::checkUART() overrun [3]. \n"));
}

TEST_F(SerialRead, NeedsNoCount) {
    ASSERT_EQ(COMMIF_OK, open());
    mLine.send("a");
    unsigned char lByte = 0;
    EXPECT_EQ(COMMIF_OK, commIfSerialRead(kDesc, &lByte, 1, nullptr));
    EXPECT_EQ(COMMIF_OK, commIfSerialWrite(kDesc, &lByte, 1, nullptr));
    EXPECT_EQ("a", mLine.receive(1));
}

TEST_F(SerialRead, GoesOnBesideAWriterOnAnotherThread) {
    static constexpr std::size_t kLength = 128 * 1024;
    mParams.readTimeout = 5;
    ASSERT_EQ(COMMIF_OK, open());
    std::thread lWriter([] {
        std::string lData(kLength, 'x');
        unsigned long lWritten = 0;
        EXPECT_EQ(COMMIF_OK,
                  commIfSerialWrite(kDesc, reinterpret_cast<unsigned char*>(lData.data()), kLength,
                                    &lWritten));
        EXPECT_EQ(kLength, lWritten);
    });
    std::atomic<bool> lAllSent{false};
    std::thread lFarEnd([&] {
        bool lGoesOn = true;
        for (std::size_t lLeft = kLength; lLeft > 0 && lGoesOn; lLeft -= 1024) {
            lGoesOn = mLine.receive(1024).size() == 1024;
            mLine.send("r");
        }
        EXPECT_TRUE(lGoesOn);
        lAllSent = true;
    });
    std::string lReplies;
    for (bool lLast = false; !lLast;) {
        lLast = lAllSent;
        const int lStatus = read(3);
        EXPECT_TRUE(lStatus == COMMIF_OK || lStatus == 10011);
        lReplies += mBuffer;
        lLast = lLast && mBuffer.empty();
    }
    lWriter.join();
    lFarEnd.join();
    EXPECT_EQ(std::string(kLength / 1024, 'r'), lReplies);
}

TEST_F(SerialWrite, StoresThatItFailed) {
    ASSERT_EQ(COMMIF_OK, open());
    mLine.hangUp();
    EXPECT_EQ(COMMIF_OK, write("a"));
    EXPECT_EQ(static_cast<unsigned long>(-1), mGot);
}

TEST_F(SerialIoctl, SwitchesAndReadsTheModemLines) {
    mDriver.setModemLines(TIOCM_CTS);
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(COMMIF_OK, commIfSerialIoctl(kDesc, 2, nullptr));
    EXPECT_EQ(TIOCM_CTS | TIOCM_DTR | TIOCM_RTS, mDriver.modemLines());
    EXPECT_EQ(COMMIF_OK, commIfSerialIoctl(kDesc, 1, nullptr));
    EXPECT_EQ(TIOCM_CTS | TIOCM_DTR, mDriver.modemLines());
    int lState = 77;
    EXPECT_EQ(COMMIF_OK, commIfSerialIoctl(kDesc, 7, &lState));
    EXPECT_EQ(1, lState);
    EXPECT_EQ(COMMIF_OK, commIfSerialIoctl(kDesc, 3, nullptr));
    EXPECT_EQ(TIOCM_CTS, mDriver.modemLines());
    EXPECT_EQ(COMMIF_OK, commIfSerialIoctl(kDesc, 7, &lState));
    EXPECT_EQ(0, lState);
    EXPECT_EQ(COMMIF_OK, commIfSerialIoctl(kDesc, 4, nullptr));
    EXPECT_EQ(TIOCM_CTS | TIOCM_DTR, mDriver.modemLines());
    EXPECT_EQ(COMMIF_OK, commIfSerialIoctl(kDesc, 8, &lState));
    EXPECT_EQ(0, lState);
    mDriver.setModemLines(TIOCM_DSR);
    EXPECT_EQ(COMMIF_OK, commIfSerialIoctl(kDesc, 8, &lState));
    EXPECT_EQ(1, lState);
    EXPECT_EQ(COMMIF_OK, commIfSerialIoctl(kDesc, 5, nullptr));
    EXPECT_EQ(1U, mDriver.count(TCFLSH));
}

TEST_F(SerialIoctl, IgnoresRefusals) {
    ASSERT_EQ(COMMIF_OK, open());
    mDriver.refuse(TIOCMGET);
    mDriver.refuse(TIOCMSET);
    mDriver.refuse(TCFLSH);
    int lState = 77;
    for (const unsigned long lCommand : {1UL, 2UL, 3UL, 4UL, 5UL, 7UL, 8UL}) {
        EXPECT_EQ(COMMIF_OK, commIfSerialIoctl(kDesc, lCommand, &lState));
    }
}

TEST_F(SerialIoctl, KnowsNoOtherCommand) {
    ASSERT_EQ(COMMIF_OK, open());
    for (const unsigned long lCommand : {0UL, 9UL, 0xFFFFFFFFUL}) {
        EXPECT_EQ(10012, commIfSerialIoctl(kDesc, lCommand, nullptr));
    }
}

TEST_F(SerialIoctl, NeedsAPlaceForWhatItIsAsked) {
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(10014, commIfSerialIoctl(kDesc, 7, nullptr));
    EXPECT_EQ(10014, commIfSerialIoctl(kDesc, 8, nullptr));
}

TEST_F(SerialIoctl, TracesItsCommand) {
    ASSERT_EQ(COMMIF_OK, open());
    const test::TraceLevel lLevel(9);
    EXPECT_EQ(10012, commIfSerialIoctl(kDesc, 9, nullptr));
    EXPECT_EQ(COMMIF_OK, commIfSerialClose(kDesc));
    EXPECT_EQ(10015, commIfSerialIoctl(kDesc, 2, nullptr));
    EXPECT_THAT(mLog.texts(), ElementsAre("%t commIfSerialIoctl: Start  fd[7] cmd[9] \n",
                                          "%t commIfSerialIoctl: Start  fd[7] cmd[2] \n",
                                          inDescriptor("commIfSerialIoctl: losxComPort == 0")));
}

TEST_F(SerialIoctl, SaysThatAPortHasNoDevice) {
    ASSERT_EQ(COMMIF_OK, open());
    // Behind the pointer to the virtual operations stands that to the device.
    ACE_TTY_IO* const lDevice = port()->getACE_TTY_IO();
    char* const lMember = reinterpret_cast<char*>(port()) + sizeof(void*);
    std::memset(lMember, 0, sizeof lDevice);
    EXPECT_EQ(10015, commIfSerialIoctl(kDesc, 2, nullptr));
    std::memcpy(lMember, &lDevice, sizeof lDevice);
    ASSERT_THAT(mLog.texts(), ElementsAre(inDescriptor("commIfSerialIoctl: lComport == 0")));
    EXPECT_EQ(LM_DEBUG, mLog.lines()[0].priority);
}

TEST_F(SerialClose, EndsThePortOnce) {
    const int lBefore = test::openDescriptors();
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(COMMIF_OK, commIfSerialClose(kDesc));
    EXPECT_EQ(lBefore, test::openDescriptors());
    expectNoPort();
}

TEST_F(SerialClose, LeavesHalfDuplexMode) {
    mParams.rtsHalfDuplex = 1;
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_NE(nullptr, dynamic_cast<osxComPortRTS_Ctrl*>(port()));
    EXPECT_THAT(mDriver.values(kHalfDuplexRequest), ElementsAre(1));
    EXPECT_EQ(COMMIF_OK, commIfSerialClose(kDesc));
    EXPECT_THAT(mDriver.values(kHalfDuplexRequest), ElementsAre(1, 0));
}

TEST_F(SerialClose, AsksAPlainPortForNoHalfDuplexMode) {
    ASSERT_EQ(COMMIF_OK, open());
    EXPECT_EQ(nullptr, dynamic_cast<osxComPortRTS_Ctrl*>(port()));
    EXPECT_EQ(COMMIF_OK, commIfSerialClose(kDesc));
    EXPECT_EQ(0U, mDriver.count(kHalfDuplexRequest));
}

TEST_F(SerialChannel, IsOpenedToTheEndWhereItsThreadIsCancelled) {
    mDriver.refuse(TIOCGICOUNT);  // which makes a line
    const test::CancellingLog lLog;
    EXPECT_TRUE(test::outlastsItsCancellation([this] { EXPECT_EQ(0, open()); }));
    EXPECT_NE(nullptr, port());
}

TEST_F(SerialChannel, TakesNoStandardDescriptorThoughTheyAreFree) {
    EXPECT_TRUE(test::inChild([this] {
        for (const int lDescriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            ::close(lDescriptor);
        }
        return open() == COMMIF_OK && handle() > STDERR_FILENO;
    }));
}

TEST_F(SerialChannel, RefusesDescriptorsOutsideTheTable) {
    unsigned char lByte = 0;
    for (const int lDesc : {-1, 203}) {
        EXPECT_EQ(10006, commIfSerialOpen(lDesc, &mParams));
        EXPECT_EQ(10006, commIfSerialRead(lDesc, &lByte, 1, &mGot));
        EXPECT_EQ(10006, commIfSerialWrite(lDesc, &lByte, 1, &mGot));
        EXPECT_EQ(10006, commIfSerialIoctl(lDesc, 1, nullptr));
        EXPECT_EQ(10006, commIfSerialClose(lDesc));
    }
}

TEST_F(SerialDescriptor, ServesAPort) {
    ASSERT_EQ(COMMIF_OK, openDescriptor());
    unsigned char lByte = 'a';
    EXPECT_EQ(COMMIF_OK, commIfWrite(mDesc, &lByte, 1, &mGot));
    EXPECT_EQ("a", mLine.receive(1));
    EXPECT_EQ(1, commIffputs(const_cast<char*>("text"), mDesc));
    EXPECT_EQ("text", mLine.receive(4));
    mLine.send("b");
    EXPECT_EQ(COMMIF_OK, commIfRead(mDesc, &lByte, 1, &mGot));
    EXPECT_EQ('b', lByte);
    EXPECT_EQ(10012, commIfIoctl(mDesc, 9, nullptr));
    EXPECT_EQ(COMMIF_OK, commIfIoctl(mDesc, kReplaceReadTimeout, nullptr));
    EXPECT_EQ(10011, commIfRead(mDesc, &lByte, 1, &mGot));
    EXPECT_EQ(COMMIF_OK, commIfClose(mDesc));
    EXPECT_FALSE(mLine.isOpen());
    EXPECT_EQ(10005, commIfClose(mDesc));
}

TEST_F(SerialDescriptor, IsFreeAfterRefusedSettingsAndLeaksNothing) {
    mDevParams.serial.baudRate = 12345;
    EXPECT_EQ(10015, openDescriptor());
    EXPECT_EQ(-1, mDesc);
    EXPECT_TRUE(mLine.isOpen());
    EXPECT_EQ(0U, commIfDesc[COMMIF_FIRST_DESC].used);
    const int lBefore = test::openDescriptors();
    EXPECT_EQ(10015, openDescriptor());
    EXPECT_EQ(lBefore, test::openDescriptors());
    mDevParams.serial.baudRate = 9600;
    EXPECT_EQ(COMMIF_OK, openDescriptor());
    EXPECT_EQ(COMMIF_FIRST_DESC, mDesc);
    EXPECT_EQ(lBefore, test::openDescriptors());
    EXPECT_EQ(COMMIF_OK, commIfClose(mDesc));
    EXPECT_FALSE(mLine.isOpen());
}

TEST_F(SerialDescriptor, StaysTakenWithoutAPort) {
    {
        const test::FailingAllocator lNoMemory(1, true);
        EXPECT_EQ(COMMIF_OK, openDescriptor());
    }
    unsigned char lByte = 'a';
    EXPECT_EQ(1U, commIfDesc[mDesc].used);
    EXPECT_EQ(10015, commIfWrite(mDesc, &lByte, 1, &mGot));
    EXPECT_EQ(10015, commIfRead(mDesc, &lByte, 1, &mGot));
    EXPECT_EQ(10015, commIfIoctl(mDesc, 1, nullptr));
    EXPECT_EQ(10015, commIfClose(mDesc));
    EXPECT_EQ(0U, commIfDesc[mDesc].used);
    EXPECT_FALSE(mLine.isOpen());
}

TEST(SerialThreads, OpenUseAndCloseTheirPortsAtOnce) {
    const test::LogCapture lLog;
    const auto lEnd = steady_clock::now() + test::stressTime(std::chrono::seconds(1));
    std::vector<std::thread> lThreads;
    for (int lThread = 0; lThread < 4; ++lThread) {
        lThreads.emplace_back(useLine, lEnd);
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
}

TEST(SerialThreads, ReadersOfOnePortEachEndInTime) {
    constexpr int kReaders = 6;
    const test::LogCapture lLog;
    const test::SerialDriverModel lDriver;
    const test::SerialLine lLine;
    std::atomic<bool> lDone{false};
    std::atomic<int> lRunning{kReaders};
    std::vector<std::thread> lReaders;
    for (int lReader = 0; lReader < kReaders; ++lReader) {
        lReaders.emplace_back([&] {
            commIfDevParams_t lParams{};
            lParams.devType = eSERIAL;
            lParams.serial.portNr = lLine.port();
            lParams.serial.readTimeout = 20;
            lParams.serial.baudRate = 115200;
            lParams.serial.dataBits = 8;
            int lDesc = -1;
            EXPECT_EQ(COMMIF_OK, commIfOpen(&lDesc, &lParams, nullptr));
            unsigned char lByte = 0;
            unsigned long lCount = 0;
            while (!lDone) {
                commIfRead(lDesc, &lByte, 1, &lCount);
            }
            --lRunning;
            EXPECT_EQ(COMMIF_OK, commIfClose(lDesc));
        });
    }
    constexpr milliseconds kPace(1);
    for (int lRound = 0; lRound < 300; ++lRound) {
        lLine.send("x");
        std::this_thread::sleep_for(kPace);
    }
    lDone = true;
    EXPECT_TRUE(test::waitUntil([&] { return lRunning == 0; }));
    while (lRunning != 0) {
        lLine.send("x");
        std::this_thread::sleep_for(kPace);
    }
    for (std::thread& lReader : lReaders) {
        lReader.join();
    }
}
