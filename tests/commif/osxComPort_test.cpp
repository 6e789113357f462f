// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "commif/osxComPort.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "ace/TTY_IO.h"
#include "ace/Time_Value.h"
#include "commif/SerialDriverModel.h"
#include "commif/SerialLine.h"
#include "commif/commif.h"
#include "support/Interrupter.h"
#include "support/LogCapture.h"
#include "support/times.h"
#include "support/waitUntil.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr unsigned long kHalfDuplexRequest = test::SerialDriverModel::kHalfDuplexRequest;
constexpr char kCheckFailed[] = "osxComPort::checkUART() ioctl failed \n";
constexpr milliseconds kShortly(1);

std::atomic<int> gYields{0};
std::atomic<int> gFlagSettings{0};

/// What happens around each wait of a read.
std::function<void()> gBeforeWait;
std::function<void()> gAfterWait;

/// A terminal set up as a line without timer of its own.
std::unique_ptr<ACE_TTY_IO> openTerminal(const test::SerialLine& aLine, int aFlags = 0) {
    auto lTerminal = std::make_unique<ACE_TTY_IO>();
    lTerminal->set_handle(::open(aLine.terminal().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | aFlags));
    termios lSettings{};
    EXPECT_EQ(0, ::tcgetattr(lTerminal->get_handle(), &lSettings));
    ::cfmakeraw(&lSettings);
    EXPECT_EQ(0, ::tcsetattr(lTerminal->get_handle(), TCSANOW, &lSettings));
    return lTerminal;
}

/// A line, its driver and its port.
class ComPort : public testing::Test {
protected:
    int read(std::size_t aLength, const ACE_Time_Value* aTimeout) {
        mBuffer.assign(aLength, '\0');
        const int lResult =
            mPort.recv_n(mBuffer.data(), static_cast<unsigned int>(aLength), aTimeout, &mGot);
        mBuffer.resize(mGot);
        return lResult;
    }
    int readFor(std::size_t aLength, milliseconds aTimeout) {
        const ACE_Time_Value lTimeout(aTimeout);
        return read(aLength, &lTimeout);
    }
    int handle() const { return mPort.getACE_TTY_IO()->get_handle(); }
    void awaitInput(int aLength) const { test::awaitInput(handle(), aLength); }
    /// Sets what the driver itself waits for: so many bytes, so many tenths of a second.
    void setDriverWait(cc_t aBytes, cc_t aTenths) const {
        termios lSettings{};
        ASSERT_EQ(0, ::tcgetattr(handle(), &lSettings));
        lSettings.c_cc[VMIN] = aBytes;
        lSettings.c_cc[VTIME] = aTenths;
        ASSERT_EQ(0, ::tcsetattr(handle(), TCSANOW, &lSettings));
    }
    bool isBlocking() const { return (::fcntl(handle(), F_GETFL) & O_NONBLOCK) == 0; }

    test::LogCapture mLog;
    test::SerialDriverModel mDriver;
    test::SerialLine mLine;
    osxComPort mPort{openTerminal(mLine).release()};
    std::string mBuffer;
    unsigned int mGot = 77;
};
using ComPortRead = ComPort;
using ComPortWrite = ComPort;

/// A port on a pipe that takes nothing more until it is read.
class FullPort {
public:
    FullPort() {
        std::array<int, 2> lEnds{};
        EXPECT_EQ(0, ::pipe2(lEnds.data(), O_CLOEXEC | O_NONBLOCK));
        mReader = test::Descriptor(lEnds[0]);
        const std::string lData(4096, 'x');
        while (::write(lEnds[1], lData.data(), lData.size()) > 0) {
        }
        auto lDevice = std::make_unique<ACE_TTY_IO>();
        lDevice->set_handle(lEnds[1]);
        mPort = std::make_unique<osxComPort>(lDevice.release());
    }

    const osxComPort& port() const { return *mPort; }
    void setBlocking() const {
        EXPECT_EQ(0, ::fcntl(mPort->getACE_TTY_IO()->get_handle(), F_SETFL, O_WRONLY));
    }
    /// Writes on a thread of its own. @return the result, or -1 and the error, which is EPIPE when
    /// nothing else has ended the write in half a minute.
    std::pair<int, int> write(bool aInterrupted) {
        std::future<std::pair<int, int>> lResult = std::async(std::launch::async, [&] {
            std::optional<test::Interrupter> lInterrupter;
            if (aInterrupted) {
                lInterrupter.emplace();
            }
            errno = 0;
            const int lSent = mPort->send_n("abc", 3);
            return std::pair(lSent, errno);
        });
        if (lResult.wait_for(test::kLimit) != std::future_status::ready) {
            mReader.reset();
        }
        return lResult.get();
    }

private:
    test::Descriptor mReader;
    std::unique_ptr<osxComPort> mPort;
};

class HalfDuplexPort : public testing::Test {
protected:
    test::LogCapture mLog;
    test::SerialDriverModel mDriver;
    test::SerialLine mLine;
    osxComPortRTS_Ctrl mPort{openTerminal(mLine).release(), 9600};
};

class ModemLines : public testing::Test {
protected:
    test::SerialDriverModel mDriver;
    test::SerialLine mLine;
    osxComPort mPort{openTerminal(mLine).release()};
    ACE_TTY_IO& mDevice = *mPort.getACE_TTY_IO();
};

}  // namespace

// In the place of libc's: lets others have their turn.
extern "C" __attribute__((visibility("default"))) int ppoll(pollfd* aPolls, nfds_t aCount,
                                                            const timespec* aLimit,
                                                            const sigset_t* aMask) {
    static const auto gNext = reinterpret_cast<decltype(&ppoll)>(::dlsym(RTLD_NEXT, "ppoll"));
    if (gBeforeWait) {
        gBeforeWait();
    }
    const int lReady = gNext(aPolls, aCount, aLimit, aMask);
    if (gAfterWait) {
        gAfterWait();
    }
    return lReady;
}

// In the place of libc's: counts.
extern "C" __attribute__((visibility("default"))) int sched_yield() noexcept {
    ++gYields;
    return 0;
}

// In the place of libc's: counts. With large file offsets <fcntl.h> turns one name into the other.
extern "C" __attribute__((visibility("default"))) int testFcntl(int, int, long) __asm__("fcntl");
extern "C" __attribute__((visibility("default"))) int testFcntl64(int, int,
                                                                  long) __asm__("fcntl64");

extern "C" int testFcntl64(int aHandle, int aCommand, long aArgument) {
    static const auto gNext =
        reinterpret_cast<int (*)(int, int, ...)>(::dlsym(RTLD_NEXT, "fcntl64"));
    gFlagSettings += aCommand == F_SETFL ? 1 : 0;
    return gNext(aHandle, aCommand, aArgument);
}

extern "C" int testFcntl(int aHandle, int aCommand, long aArgument) {
    return testFcntl64(aHandle, aCommand, aArgument);
}

TEST(ComPortName, CountsPortsFromOne) {
    std::array<char, 32> lName{};
    EXPECT_EQ(10, getComPortDevName(1, lName.data()));
    EXPECT_STREQ("/dev/ttyS0", lName.data());
    EXPECT_EQ(10, getComPortDevName(4, lName.data()));
    EXPECT_STREQ("/dev/ttyS3", lName.data());
    EXPECT_EQ(11, getComPortDevName(11, lName.data()));
    EXPECT_STREQ("/dev/ttyS10", lName.data());
}

TEST(ComPortName, WrapsAroundForPortZero) {
    std::array<char, 32> lName{};
    getComPortDevName(0, lName.data());
    EXPECT_STREQ("/dev/ttyS4294967295", lName.data());
    EXPECT_EQ(19, getComPortDevName(0, lName.data()));
}

TEST(ComPortName, TakesTheLow32BitsOfANumber) {
    std::array<char, 40> lName{};
    getComPortDevName(ULONG_MAX, lName.data());
    EXPECT_STREQ("/dev/ttyS4294967294", lName.data());
}

TEST(ComPortDeathTest, AssertsThatThereIsADevice) {
    EXPECT_EXIT(osxComPort(nullptr), testing::KilledBySignal(SIGABRT),
                "file osxComPort.*assertion failed for 'aComport != 0'");
    EXPECT_EXIT(osxComPortRTS_Ctrl(nullptr, 9600), testing::KilledBySignal(SIGABRT),
                "aComport != 0");
}

TEST(ComPortLayout, HasItsOperationsInOrder) {
    // A pointer to a virtual member holds 1 and the offset of its slot, after two destructors.
    constexpr auto kSend = &osxComPort::send_n;
    std::uintptr_t lSlot = 0;
    std::memcpy(&lSlot, &kSend, sizeof lSlot);
    EXPECT_EQ(1 + 2 * sizeof(void*), lSlot);
    EXPECT_EQ(2 * sizeof(void*) + sizeof(serial_icounter_struct), sizeof(osxComPort));
    EXPECT_EQ(80U, sizeof(serial_icounter_struct));
}

TEST_F(ComPort, DoesNotTouchTheDeviceWhenMade) {
    EXPECT_THAT(mDriver.requests(), IsEmpty());
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(ComPort, ClosesItsDeviceInTheEnd) {
    const test::SerialLine lLine;
    auto lPort = std::make_unique<osxComPort>(openTerminal(lLine).release());
    const int lHandle = lPort->getACE_TTY_IO()->get_handle();
    EXPECT_TRUE(lLine.isOpen());
    lPort.reset();
    EXPECT_FALSE(lLine.isOpen());
    EXPECT_EQ(-1, ::fcntl(lHandle, F_GETFD));
}

TEST_F(ComPort, InitTakesTheCountersAsTheyAre) {
    serial_icounter_struct lCounters{};
    lCounters.overrun = 5;
    lCounters.buf_overrun = 6;
    mDriver.setCounters(lCounters);
    EXPECT_EQ(0, mPort.init());
    mPort.checkUART();
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(ComPort, InitSaysThatThereAreNoCounters) {
    mDriver.refuse(TIOCGICOUNT);
    EXPECT_EQ(-1, mPort.init());
    ASSERT_THAT(mLog.texts(), ElementsAre("osxComPort::init() ioctl failed \n"));
    const test::LogLine lLine = mLog.lines()[0];
    EXPECT_EQ(LM_ERROR, lLine.priority);
    EXPECT_EQ("osxComPort.cpp", lLine.module);
    EXPECT_EQ(-1, lLine.status);
    EXPECT_EQ(ENOTTY, lLine.errnum);
}

TEST_F(ComPort, TellsOfEachNewOverrunOnce) {
    EXPECT_EQ(0, mPort.init());
    serial_icounter_struct lCounters{};
    lCounters.overrun = 3;
    mDriver.setCounters(lCounters);
    mPort.checkUART();
    mPort.checkUART();
    EXPECT_THAT(mLog.texts(), ElementsAre("osxComPort::checkUART() overrun [3]. \n"));
    EXPECT_EQ(LM_ERROR, mLog.lines()[0].priority);
}

TEST_F(ComPort, ShowsTheTotalsOfBothOverruns) {
    serial_icounter_struct lCounters{};
    lCounters.overrun = 3;
    lCounters.buf_overrun = 40;
    mDriver.setCounters(lCounters);
    EXPECT_EQ(0, mPort.init());
    lCounters.overrun = 4;
    lCounters.buf_overrun = 42;
    lCounters.frame = lCounters.parity = lCounters.rx = 9;
    mDriver.setCounters(lCounters);
    mPort.checkUART();
    EXPECT_THAT(mLog.texts(), ElementsAre("osxComPort::checkUART() buf_overrun [42]. \n",
                                          "osxComPort::checkUART() overrun [4]. \n"));
}

TEST_F(ComPort, KeepsTheCountersWhenTheyCannotBeRead) {
    serial_icounter_struct lCounters{};
    lCounters.overrun = 3;
    mDriver.setCounters(lCounters);
    EXPECT_EQ(0, mPort.init());
    {
        const test::SerialDriverModel lRefusing;
        const_cast<test::SerialDriverModel&>(lRefusing).refuse(TIOCGICOUNT);
        mPort.checkUART();
    }
    const test::SerialDriverModel lZero;
    mPort.checkUART();
    EXPECT_THAT(mLog.texts(), ElementsAre(kCheckFailed, "osxComPort::checkUART() overrun [0]. \n"));
    EXPECT_EQ(LM_ERROR, mLog.lines()[0].priority);
}

TEST_F(ComPort, TellsHowMuchWasSent) {
    serial_icounter_struct lCounters{};
    lCounters.tx = 1234;
    mDriver.setCounters(lCounters);
    EXPECT_EQ(1234, mPort.getTx());
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(ComPort, CannotTellHowMuchWasSent) {
    mDriver.refuse(TIOCGICOUNT);
    EXPECT_EQ(0, mPort.getTx());
    EXPECT_THAT(mLog.texts(), ElementsAre(kCheckFailed));
    EXPECT_EQ(LM_ERROR, mLog.lines()[0].priority);
}

TEST_F(ComPort, SwitchesHalfDuplexMode) {
    EXPECT_EQ(0, mPort.setHalfDuplexMode(true));
    EXPECT_EQ(0, mPort.setHalfDuplexMode(false));
    EXPECT_THAT(mDriver.values(kHalfDuplexRequest), ElementsAre(1, 0));
    mDriver.refuse(kHalfDuplexRequest);
    EXPECT_EQ(-1, mPort.setHalfDuplexMode(true));
}

TEST_F(ComPort, SwitchesRtsAlone) {
    mDriver.setModemLines(TIOCM_DTR | TIOCM_DSR);
    EXPECT_EQ(0, mPort.setRTS(true));
    EXPECT_EQ(TIOCM_RTS | TIOCM_DTR | TIOCM_DSR, mDriver.modemLines());
    EXPECT_EQ(0, mPort.setRTS(false));
    EXPECT_EQ(TIOCM_DTR | TIOCM_DSR, mDriver.modemLines());
    mDriver.refuse(TIOCMSET);
    EXPECT_EQ(-1, mPort.setRTS(true));
}

TEST_F(ComPortRead, ReadsWhatIsThere) {
    mLine.send("abcdef");
    EXPECT_EQ(COMMIF_OK, readFor(4, test::kLimit));
    EXPECT_EQ("abcd", mBuffer);
    EXPECT_EQ(COMMIF_OK, readFor(2, test::kLimit));
    EXPECT_EQ("ef", mBuffer);
}

TEST_F(ComPortRead, WaitsUntilAllHasCome) {
    for (const bool lLimited : {true, false}) {
        std::thread lSender([this] {
            for (const char* lPart : {"ab", "c", "def"}) {
                mLine.send(lPart);
                std::this_thread::sleep_for(test::kInterval);
            }
        });
        const ACE_Time_Value lLimit(60);
        EXPECT_EQ(COMMIF_OK, read(6, lLimited ? &lLimit : nullptr));
        EXPECT_EQ("abcdef", mBuffer);
        lSender.join();
    }
}

/// A read with a time-out, in milliseconds: one that is over gives what is there at once.
class ComPortTimeOut : public ComPort, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Of, ComPortTimeOut, testing::Values(-1500, 0, 1, 120));

TEST_P(ComPortTimeOut, EndsAReadInTimeWithWhatCame) {
    const milliseconds lTimeOut(GetParam());
    const auto lStart = steady_clock::now();
    EXPECT_EQ(10011, readFor(1, lTimeOut));
    EXPECT_EQ(0U, mGot);
    mLine.send("abc");
    awaitInput(3);
    EXPECT_EQ(10011, readFor(5, lTimeOut));
    EXPECT_EQ("abc", mBuffer);
    EXPECT_GE(steady_clock::now() - lStart, 2 * lTimeOut);
    EXPECT_LT(steady_clock::now() - lStart, test::kSlack);
}

TEST_P(ComPortTimeOut, EndsAReadInTimeWithADriverThatKnowsItsOwnRequestsAlone) {
    mLine.send("abc");
    awaitInput(3);
    for (const int lResult : {0, -1}) {
        mDriver.answerOthers(lResult);
        EXPECT_EQ(10011, readFor(5, milliseconds(GetParam())));
    }
}

TEST_P(ComPortTimeOut, LetsAReadTakeWhatIsThere) {
    mLine.send("abc");
    awaitInput(3);
    EXPECT_EQ(COMMIF_OK, readFor(3, milliseconds(GetParam())));
    EXPECT_EQ("abc", mBuffer);
}

TEST_F(ComPortRead, ReadsNothingAtOnce) {
    EXPECT_EQ(COMMIF_OK, read(0, nullptr));
    EXPECT_EQ(COMMIF_OK, readFor(0, test::kLimit));
    EXPECT_EQ(0U, mGot);
}

TEST_F(ComPortRead, NeedsNoCount) {
    mLine.send("a");
    char lByte = 0;
    EXPECT_EQ(COMMIF_OK, mPort.recv_n(&lByte, 1, nullptr, nullptr));
    EXPECT_EQ('a', lByte);
}

TEST_F(ComPortRead, EndsWhenTheLineIsHungUp) {
    for (const bool lLimited : {true, false}) {
        test::SerialLine lLine;
        osxComPort lPort(openTerminal(lLine).release());
        lLine.send("ab");
        std::array<char, 4> lBuffer{};
        ASSERT_EQ(COMMIF_OK, lPort.recv_n(lBuffer.data(), 1, nullptr, &mGot));
        lLine.hangUp();
        const ACE_Time_Value lLimit(60);
        EXPECT_EQ(COMMIF_OK, lPort.recv_n(lBuffer.data(), 4, lLimited ? &lLimit : nullptr, &mGot));
        EXPECT_LE(mGot, 1U);
    }
}

TEST_F(ComPortRead, FailsWithoutADevice) {
    auto lTerminal = std::make_unique<ACE_TTY_IO>();
    osxComPort lPort(lTerminal.release());
    char lByte = 0;
    const ACE_Time_Value lLimit(60);
    for (const ACE_Time_Value* lTimeout : {&lLimit, static_cast<const ACE_Time_Value*>(nullptr)}) {
        mGot = 77;
        EXPECT_EQ(-1, lPort.recv_n(&lByte, 1, lTimeout, &mGot));
        EXPECT_EQ(EBADF, errno);
        EXPECT_EQ(0U, mGot);
    }
}

TEST_F(ComPortRead, IsEndedByASignalWithWhatCame) {
    for (const bool lLimited : {true, false}) {
        mLine.send("abc");
        const test::Interrupter lInterrupter;
        const ACE_Time_Value lLimit(60);
        std::string lAll;
        while (lAll.size() < 3) {
            EXPECT_EQ(-1, read(5, lLimited ? &lLimit : nullptr));
            EXPECT_EQ(EINTR, errno);
            lAll += mBuffer;
        }
        EXPECT_EQ("abc", lAll);
    }
}

TEST_F(ComPortRead, ChecksTheCountersFirst) {
    serial_icounter_struct lCounters{};
    lCounters.overrun = 3;
    mDriver.setCounters(lCounters);
    mLine.send("ab");
    EXPECT_EQ(COMMIF_OK, read(1, nullptr));
    EXPECT_EQ(COMMIF_OK, read(1, nullptr));
    EXPECT_THAT(mLog.texts(), ElementsAre("osxComPort::checkUART() overrun [3]. \n"));
}

TEST_F(ComPortRead, ProceedsWithoutCounters) {
    mDriver.refuse(TIOCGICOUNT);
    mLine.send("ab");
    EXPECT_EQ(COMMIF_OK, read(1, nullptr));
    EXPECT_EQ(COMMIF_OK, read(1, nullptr));
    EXPECT_EQ("b", mBuffer);
    EXPECT_THAT(mLog.texts(), ElementsAre(kCheckFailed, kCheckFailed));
}

TEST_F(ComPortRead, WaitsByItsOwnTimeOutAlone) {
    // The driver would end a read without data at once, or after a tenth of a second.
    for (const cc_t lTenths : {cc_t{0}, cc_t{1}}) {
        setDriverWait(0, lTenths);
        EXPECT_EQ(10011, readFor(1, test::kLongerThanATenth));
        std::thread lSender([this] {
            std::this_thread::sleep_for(test::kLongerThanATenth);
            mLine.send("a");
        });
        EXPECT_EQ(COMMIF_OK, read(1, nullptr));
        EXPECT_EQ("a", mBuffer);
        lSender.join();
    }
}

TEST_F(ComPortRead, TakesWhatIsThereWhereTheDriverWaitsForMore) {
    for (const cc_t lTenths : {cc_t{0}, cc_t{200}}) {
        setDriverWait(5, lTenths);
        mLine.send("abc");
        awaitInput(3);
        EXPECT_EQ(COMMIF_OK, readFor(3, test::kLimit));
        EXPECT_EQ("abc", mBuffer);
        mLine.send("de");
        awaitInput(2);
        EXPECT_EQ(10011, readFor(3, test::kLongerThanATenth));
        EXPECT_EQ("de", mBuffer);
    }
}

TEST_F(ComPortRead, TakesInTheEndWhatTheDriverKeptBack) {
    setDriverWait(5, 0);
    bool lIsSent = false;
    gBeforeWait = [&] {
        if (!std::exchange(lIsSent, true)) {
            mLine.send("abc");
        }
    };
    EXPECT_EQ(COMMIF_OK, readFor(3, test::kToMeasure));
    EXPECT_EQ("abc", mBuffer);
    gBeforeWait = nullptr;
}

TEST_F(ComPortRead, EndsInTimeThoughOthersTakeAllThatComes) {
    const test::Descriptor lOther(
        ::open(mLine.terminal().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    gBeforeWait = [this] { mLine.send("x"); };
    gAfterWait = [&lOther] {
        std::array<char, 64> lTaken{};
        while (::read(lOther.get(), lTaken.data(), lTaken.size()) > 0) {
        }
    };
    const auto lStart = steady_clock::now();
    std::future<int> lResult =
        std::async(std::launch::async, [this] { return readFor(4000, test::kLongerThanATenth); });
    if (lResult.wait_for(test::kLimit) != std::future_status::ready) {
        ADD_FAILURE() << "waits on";
        mLine.hangUp();
    }
    EXPECT_EQ(10011, lResult.get());
    EXPECT_GE(steady_clock::now() - lStart, test::kLongerThanATenth);
    gBeforeWait = gAfterWait = nullptr;
}

TEST_F(ComPortRead, LeavesTheHandleAsItWas) {
    EXPECT_EQ(10011, readFor(1, kShortly));
    EXPECT_TRUE(isBlocking());
    mLine.send("a");
    EXPECT_EQ(COMMIF_OK, readFor(1, test::kLimit));
    EXPECT_TRUE(isBlocking());
    ASSERT_EQ(0, ::fcntl(handle(), F_SETFL, O_RDWR | O_NONBLOCK));
    EXPECT_EQ(10011, readFor(1, kShortly));
    EXPECT_FALSE(isBlocking());
}

/// Whoever sets them all writes over what others set meanwhile.
TEST_F(ComPortRead, LeavesTheHandlesOtherFlagsAlone) {
    const int lBefore = gFlagSettings;
    EXPECT_EQ(10011, readFor(1, kShortly));
    mLine.send("a");
    EXPECT_EQ(COMMIF_OK, readFor(1, test::kLimit));
    EXPECT_EQ(lBefore, gFlagSettings);
    ASSERT_EQ(0, ::fcntl(handle(), F_SETFL, O_RDWR));
    EXPECT_EQ(lBefore + 1, gFlagSettings) << "none is seen";
}

TEST_F(ComPortRead, LeavesTheHandleAsItWasWhenReadsOverlap) {
    osxComPort lOther(std::make_unique<ACE_TTY_IO>().release());
    lOther.getACE_TTY_IO()->set_handle(handle());
    const auto lReadForAMoment = [](osxComPort* aPort) {
        char lByte = 0;
        const ACE_Time_Value lMoment(0, 1000);
        EXPECT_EQ(10011, aPort->recv_n(&lByte, 1, &lMoment, nullptr));
    };
    for (int lRound = 0; lRound < 200; ++lRound) {
        std::thread lReader(lReadForAMoment, &lOther);
        lReadForAMoment(&mPort);
        lReader.join();
        ASSERT_TRUE(isBlocking());
    }
    lOther.getACE_TTY_IO()->set_handle(ACE_INVALID_HANDLE);
}

TEST_F(ComPortRead, KeepsItsTimeOutWhenOneOnADuplicateEnds) {
    osxComPort lOther(std::make_unique<ACE_TTY_IO>().release());
    lOther.getACE_TTY_IO()->set_handle(::fcntl(handle(), F_DUPFD_CLOEXEC, 0));
    std::promise<void> lFirstWaits;
    std::promise<void> lFirstMayEnd;
    static thread_local bool gIsFirst = false;
    gBeforeWait = [&] {
        if (std::exchange(gIsFirst, false)) {
            lFirstWaits.set_value();
            lFirstMayEnd.get_future().wait();
        }
    };
    std::future<int> lFirst = std::async(std::launch::async, [&] {
        gIsFirst = true;
        char lByte = 0;
        const ACE_Time_Value lMoment(0, 1000);
        return lOther.recv_n(&lByte, 1, &lMoment, nullptr);
    });
    lFirstWaits.get_future().wait();
    bool lIsAlone = false;
    bool lStaysNonBlocking = false;
    gAfterWait = [&] {
        if (!std::exchange(lIsAlone, true)) {
            lFirstMayEnd.set_value();
            EXPECT_EQ(10011, lFirst.get());
            lStaysNonBlocking = !isBlocking();
            mLine.send("a");
            awaitInput(1);
        }
    };
    EXPECT_EQ(COMMIF_OK, readFor(1, kShortly));
    EXPECT_TRUE(lStaysNonBlocking);
    EXPECT_TRUE(isBlocking());
    gBeforeWait = gAfterWait = nullptr;
}

TEST_F(ComPortRead, LeavesTheHandleAsItWasWhenItsThreadIsCancelled) {
    std::promise<void> lWaits;
    bool lIsTold = false;
    gBeforeWait = [&] {
        if (!std::exchange(lIsTold, true)) {
            lWaits.set_value();
        }
    };
    pthread_t lReader{};
    const auto lRead = [](void* aPort) -> void* {
        char lByte = 0;
        const ACE_Time_Value lLong(1000);
        static_cast<osxComPort*>(aPort)->recv_n(&lByte, 1, &lLong, nullptr);
        return nullptr;
    };
    ASSERT_EQ(0, ::pthread_create(&lReader, nullptr, lRead, &mPort));
    lWaits.get_future().wait();
    EXPECT_EQ(0, ::pthread_cancel(lReader));
    EXPECT_EQ(0, ::pthread_join(lReader, nullptr));
    EXPECT_TRUE(isBlocking());
    gBeforeWait = nullptr;
    EXPECT_EQ(10011, readFor(1, kShortly));
}

TEST_F(ComPortRead, LeavesTheHandleBlockingForAWriterOnAnotherThread) {
    static constexpr std::size_t kLength = 256 * 1024;
    osxComPort lDuplicate(std::make_unique<ACE_TTY_IO>().release());
    lDuplicate.getACE_TTY_IO()->set_handle(::fcntl(handle(), F_DUPFD_CLOEXEC, 0));
    std::atomic<bool> lDone{false};
    std::thread lReader([&] {
        while (!lDone) {
            readFor(1, kShortly);
        }
    });
    const std::string lData(kLength, 'x');
    for (const osxComPort* lPort : {&mPort, &lDuplicate}) {
        std::thread lFarEnd([this] { EXPECT_EQ(kLength, mLine.receive(kLength).size()); });
        EXPECT_EQ(static_cast<int>(kLength), lPort->send_n(lData.data(), kLength));
        lFarEnd.join();
    }
    lDone = true;
    lReader.join();
}

TEST_F(ComPortWrite, WritesAll) {
    EXPECT_EQ(6, mPort.send_n("abcdef", 6));
    EXPECT_EQ("abcdef", mLine.receive(6));
    EXPECT_EQ(0, mPort.send_n("", 0));
}

TEST_F(ComPortWrite, FailsWithoutADevice) {
    const osxComPort lPort(std::make_unique<ACE_TTY_IO>().release());
    EXPECT_EQ(-1, lPort.send_n("a", 1));
    EXPECT_EQ(EBADF, errno);
}

TEST_F(ComPortWrite, FailsWhenTheLineIsHungUp) {
    mLine.hangUp();
    EXPECT_EQ(-1, mPort.send_n("a", 1));
    EXPECT_EQ(EIO, errno);
}

TEST_F(ComPortWrite, RaisesNoSignalWhereAReaderIsGone) {
    std::array<int, 2> lEnds{};
    ASSERT_EQ(0, ::pipe2(lEnds.data(), O_CLOEXEC));
    ::close(lEnds[0]);
    auto lDevice = std::make_unique<ACE_TTY_IO>();
    lDevice->set_handle(lEnds[1]);
    const osxComPort lPort(lDevice.release());
    EXPECT_EQ(-1, lPort.send_n("a", 1));
    EXPECT_EQ(EPIPE, errno);
}

TEST_F(ComPortWrite, GoesOnAfterSignalsOnceItIsUnderWay) {
    static constexpr std::size_t kLength = 1024 * 1024;
    std::promise<void> lIsWritten;
    std::promise<void> lIsQuiet;
    std::thread lWriter([&] {
        const std::string lData(kLength, 'x');
        EXPECT_EQ(static_cast<int>(kLength), mPort.send_n(lData.data(), kLength));
        // What is still on its way must not come when nobody handles it any more.
        sigset_t lAll;
        ::sigfillset(&lAll);
        ::pthread_sigmask(SIG_BLOCK, &lAll, nullptr);
        lIsWritten.set_value();
        lIsQuiet.get_future().wait();
    });
    EXPECT_EQ(1U, mLine.receive(1).size());
    {
        const test::Interrupter lInterrupter(lWriter.native_handle());
        lInterrupter.awaitSignals(20);
        EXPECT_EQ(kLength - 1, mLine.receive(kLength - 1).size());
        lIsWritten.get_future().wait();
    }
    lIsQuiet.set_value();
    lWriter.join();
}

TEST_F(ComPortWrite, IsCalledOffByASignalBeforeItsFirstByte) {
    FullPort lPort;
    lPort.setBlocking();
    EXPECT_EQ(std::pair(-1, EINTR), lPort.write(true));
}

TEST_F(ComPortWrite, IsCalledOffByASignalWhileAReadHasTheHandle) {
    ASSERT_EQ(0, ::tcflow(handle(), TCOOFF));
    std::promise<void> lReads;
    std::atomic<bool> lIsTold{false};
    gBeforeWait = [&] {
        if (!lIsTold.exchange(true)) {
            lReads.set_value();
        }
    };
    std::thread lReader([this] { EXPECT_EQ(COMMIF_OK, readFor(1, 2 * test::kLimit)); });
    lReads.get_future().wait();
    {
        const test::Interrupter lInterrupter;
        EXPECT_EQ(-1, mPort.send_n("abc", 3));
        EXPECT_EQ(EINTR, errno);
    }
    ASSERT_EQ(0, ::tcflow(handle(), TCOON));
    mLine.send("a");
    lReader.join();
    gBeforeWait = nullptr;
}

TEST_F(ComPortWrite, DoesNotWaitWhereAnApplicationMadeTheHandleNonBlocking) {
    FullPort lPort;
    EXPECT_EQ(std::pair(-1, EAGAIN), lPort.write(false));
}

TEST_F(ComPortWrite, WorksInAChildOfAProcessThatReads) {
    std::atomic<bool> lDone{false};
    std::thread lReader([&] {
        char lByte = 0;
        const ACE_Time_Value lNone;
        while (!lDone) {
            mPort.recv_n(&lByte, 1, &lNone, nullptr);
        }
    });
    const FullPort lPort;
    int lStatus = 0;
    for (int lRound = 0; lRound < 300 && lStatus == 0; ++lRound) {
        const pid_t lChild = ::fork();
        if (lChild == 0) {
            ::alarm(60);
            ::_exit(lPort.port().send_n("a", 1) == -1 && errno == EAGAIN ? 0 : 1);
        }
        EXPECT_EQ(lChild, ::waitpid(lChild, &lStatus, 0));
    }
    EXPECT_EQ(0, lStatus);
    lDone = true;
    lReader.join();
}

TEST_F(HalfDuplexPort, IsInHalfDuplexModeForItsWholeLife) {
    const test::SerialLine lLine;
    EXPECT_THAT(mDriver.values(kHalfDuplexRequest), ElementsAre(1));
    std::unique_ptr<osxComPort> lPort =
        std::make_unique<osxComPortRTS_Ctrl>(openTerminal(lLine).release(), 9600);
    EXPECT_THAT(mDriver.values(kHalfDuplexRequest), ElementsAre(1, 1));
    lPort.reset();
    EXPECT_THAT(mDriver.values(kHalfDuplexRequest), ElementsAre(1, 1, 0));
    EXPECT_FALSE(lLine.isOpen());
}

TEST_F(HalfDuplexPort, WorksOnADriverWithoutThatMode) {
    mDriver.refuse(kHalfDuplexRequest);
    const test::SerialLine lLine;
    const osxComPortRTS_Ctrl lPort(openTerminal(lLine).release(), 9600);
    EXPECT_EQ(2, lPort.send_n("ab", 2));
    EXPECT_EQ("ab", lLine.receive(2));
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(HalfDuplexPort, DoesNotWaitForAnEmptyTransmitter) {
    gYields = 0;
    mPort.waitUntilBytesAreSend();
    EXPECT_EQ(1U, mDriver.count(TIOCSERGETLSR));
    EXPECT_EQ(0, gYields);
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(HalfDuplexPort, WaitsUntilTheTransmitterIsEmpty) {
    gYields = 0;
    mDriver.setLineStatus({0, 0, 0x20, TIOCSER_TEMT, 0});
    mPort.waitUntilBytesAreSend();
    EXPECT_EQ(4U, mDriver.count(TIOCSERGETLSR));
    EXPECT_EQ(3, gYields);
}

TEST_F(HalfDuplexPort, WaitsNoLongerThanAHundredTurns) {
    gYields = 0;
    mDriver.setLineStatus({0});
    mPort.waitUntilBytesAreSend();
    EXPECT_EQ(101U, mDriver.count(TIOCSERGETLSR));
    EXPECT_EQ(100, gYields);
}

TEST_F(HalfDuplexPort, WaitsNoLongerOnADriverThatCannotTell) {
    mDriver.refuse(TIOCSERGETLSR);
    mPort.waitUntilBytesAreSend();
    EXPECT_EQ(101U, mDriver.count(TIOCSERGETLSR));
}

TEST_F(HalfDuplexPort, TracesItsWait) {
    serial_icounter_struct lCounters{};
    lCounters.tx = 17;
    mDriver.setCounters(lCounters);
    mDriver.setLineStatus({0, 0x1E, 0x21});
    const test::TraceLevel lLevel(5);
    mPort.waitUntilBytesAreSend();
    EXPECT_THAT(
        mLog.texts(),
        ElementsAre(MatchesRegex("osxComPortRTS_Ctrl TIOCSERGETLSR [0-9:. -]*[0-9]. \n"),
                    "osxComPortRTS_Ctrl TIOCSERGETLSR [0x1e].getTx()[17] \n",
                    "osxComPortRTS_Ctrl TIOCSERGETLSR [0x21].getTx()[17] \n",
                    MatchesRegex("osxComPortRTS_Ctrl End TIOCSERGETLSR [0-9:. -]*[0-9]. \n")));
    EXPECT_EQ(LM_DEBUG, mLog.lines()[0].priority);
    EXPECT_EQ(0, mLog.lines()[0].status);
}

TEST_F(HalfDuplexPort, TracesOnlyFromItsLevelOn) {
    mDriver.setLineStatus({0, TIOCSER_TEMT});
    const test::TraceLevel lLevel(4);
    mPort.waitUntilBytesAreSend();
    mPort.DetectNotAllBytesWereSent();
    EXPECT_THAT(mLog.texts(), IsEmpty());
    EXPECT_EQ(0U, mDriver.count(TIOCGICOUNT));
}

TEST_F(HalfDuplexPort, SeesThatAllWasSent) {
    constexpr milliseconds kFiveLooks(50);
    const auto lStart = steady_clock::now();
    EXPECT_FALSE(mPort.DetectNotAllBytesWereSent());
    EXPECT_GE(steady_clock::now() - lStart, kFiveLooks);
    EXPECT_LT(steady_clock::now() - lStart, test::kSlack);
    EXPECT_EQ(5U, mDriver.count(TIOCSERGETLSR));
}

TEST_F(HalfDuplexPort, SeesBytesPendingAtAnyOfFiveLooks) {
    for (std::size_t lPending = 0; lPending < 5; ++lPending) {
        std::deque<int> lStatus(5, TIOCSER_TEMT);
        lStatus[lPending] = 0x1E;
        mDriver.setLineStatus(lStatus);
        EXPECT_TRUE(mPort.DetectNotAllBytesWereSent());
        EXPECT_EQ(5 * (lPending + 1), mDriver.count(TIOCSERGETLSR));
    }
}

TEST_F(HalfDuplexPort, TracesItsLooks) {
    const test::TraceLevel lLevel(5);
    mPort.DetectNotAllBytesWereSent();
    const std::string lSample = "osxComPortRTS_Ctrl TIOCSERGETLSR [0x1].getTx()[0] \n";
    EXPECT_THAT(
        mLog.texts(),
        ElementsAre(MatchesRegex("osxComPortRTS_Ctrl TIOCSERGETLSR [0-9:. -]*[0-9]. \n"), lSample,
                    lSample, lSample, lSample, lSample,
                    MatchesRegex("osxComPortRTS_Ctrl End TIOCSERGETLSR [0-9:. -]*[0-9]. \n")));
}

TEST_F(ModemLines, AreSwitchedOneByOne) {
    mDriver.setModemLines(TIOCM_CTS);
    EXPECT_EQ(0, setRTS(mDevice));
    EXPECT_EQ(TIOCM_CTS | TIOCM_RTS, mDriver.modemLines());
    EXPECT_EQ(0, setDTR(mDevice));
    EXPECT_EQ(TIOCM_CTS | TIOCM_RTS | TIOCM_DTR, mDriver.modemLines());
    EXPECT_EQ(0, clearRTS(mDevice));
    EXPECT_EQ(TIOCM_CTS | TIOCM_DTR, mDriver.modemLines());
    EXPECT_EQ(0, clearDTR(mDevice));
    EXPECT_EQ(TIOCM_CTS, mDriver.modemLines());
}

TEST_F(ModemLines, AreReadOneByOne) {
    int lState = 77;
    mDriver.setModemLines(TIOCM_DSR);
    EXPECT_EQ(0, getDSR(mDevice, lState));
    EXPECT_EQ(1, lState);
    EXPECT_EQ(0, getDTR(mDevice, lState));
    EXPECT_EQ(0, lState);
    mDriver.setModemLines(~TIOCM_DSR);
    EXPECT_EQ(0, getDTR(mDevice, lState));
    EXPECT_EQ(1, lState);
    EXPECT_EQ(0, getDSR(mDevice, lState));
    EXPECT_EQ(0, lState);
}

TEST_F(ModemLines, MayBeRefused) {
    mDriver.setModemLines(TIOCM_DSR | TIOCM_DTR);
    mDriver.refuse(TIOCMGET);
    mDriver.refuse(TIOCMSET);
    for (const auto lSwitch :
         {static_cast<int (*)(ACE_TTY_IO&)>(setRTS), clearRTS, setDTR, clearDTR}) {
        EXPECT_EQ(0, lSwitch(mDevice));
    }
    for (const auto lQuery : {getDSR, getDTR}) {
        int lState = 77;
        EXPECT_EQ(0, lQuery(mDevice, lState));
        EXPECT_EQ(0, lState);
    }
}

TEST_F(ModemLines, FlushAsksInAWayThatFlushesNothing) {
    mLine.send("abc");
    ASSERT_TRUE(test::waitForInput(mDevice.get_handle()));
    EXPECT_EQ(0, flushPort(mDevice));
    ASSERT_EQ(1U, mDriver.count(TCFLSH));
    EXPECT_GT(mDriver.requests()[0].argument, static_cast<std::uintptr_t>(TCIOFLUSH));
    std::array<char, 3> lBuffer{};
    EXPECT_EQ(COMMIF_OK, mPort.recv_n(lBuffer.data(), 3, nullptr, nullptr));
    EXPECT_THAT(lBuffer, ElementsAreArray({'a', 'b', 'c'}));
}
