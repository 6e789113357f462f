// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ace/INET_Addr.h"
#include "ace/SOCK_Stream.h"
#include "osx/FakeHost.h"
#include "osx/osx.h"
#include "support/FailingAllocator.h"
#include "support/Interrupter.h"
#include "support/LogCapture.h"
#include "support/TcpPeer.h"
#include "support/cancellation.h"
#include "support/inChild.h"
#include "support/times.h"

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;

namespace {

constexpr auto kFailed = static_cast<unsigned long>(-1);
constexpr std::size_t kMuch = 8UL * 1024 * 1024;  ///< More than the buffers of a connection hold.

/// A connection with the library at one end and a plain peer at the other.
class Connection {
public:
    Connection() {
        test::TcpListener lListener;
        EXPECT_EQ(0UL, osxOpenSocket(mSocket, lListener.address().c_str()));
        mPeer = lListener.accept();
    }
    ~Connection() {
        if (mSocket != nullptr) {
            osxCloseSocketAndRelease(mSocket);
        }
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void*& socket() { return mSocket; }
    int descriptor() const { return static_cast<ACE_SOCK_Stream*>(mSocket)->get_handle(); }
    test::TcpPeer& peer() { return mPeer; }

    /// The peer is gone, and the socket knows: what is sent now would raise SIGPIPE.
    void breakIt() {
        mPeer.reset();
        char lByte = 0;
        ::recv(descriptor(), &lByte, 1, 0);
    }

private:
    void* mSocket = nullptr;
    test::TcpPeer mPeer;
};

std::size_t openDescriptors() {
    std::size_t lCount = 0;
    for (const auto& lEntry : std::filesystem::directory_iterator("/proc/self/fd")) {
        lCount += lEntry.is_symlink() ? 1 : 0;
    }
    return lCount;
}

std::string pattern(std::size_t aLength) {
    std::string lData(aLength, '\0');
    for (std::size_t lIndex = 0; lIndex < aLength; ++lIndex) {
        lData[lIndex] = static_cast<char>(lIndex * 31 % 251);
    }
    return lData;
}

void makeNonBlocking(int aDescriptor) {
    ::fcntl(aDescriptor, F_SETFL, ::fcntl(aDescriptor, F_GETFL) | O_NONBLOCK);
}

void expectOneLine(const test::LogCapture& aLog, const std::string& aText,
                   ACE_Log_Priority aPriority) {
    EXPECT_THAT(aLog.texts(), ElementsAre(aText));
    ASSERT_EQ(1U, aLog.lines().size());
    EXPECT_EQ(aPriority, aLog.lines()[0].priority);
    EXPECT_EQ(-1, aLog.lines()[0].status);
    EXPECT_EQ("osxACE.cpp", aLog.lines()[0].module);
}

}  // namespace

TEST(Socket, AHostThatIsNotFoundLeavesAnErrno) {
    const test::LogCapture lLog;
    // Neither is asked of the network.
    for (const char* const lAddress : {"a..b:80", "::1:80"}) {
        void* lSocket = nullptr;
        errno = 0;
        EXPECT_EQ(static_cast<unsigned long>(-1), osxOpenSocket(lSocket, lAddress));
        EXPECT_LT(0, errno) << lAddress;
        EXPECT_LT(0, lLog.lines().back().errnum) << lAddress;
    }
}

TEST(Socket, LayerStartsAndStops) {
    EXPECT_EQ(0UL, osxStartupSockets());
    EXPECT_EQ(0UL, osxCloseSockets());
    errno = EPIPE;
    EXPECT_EQ(0UL, osxGetLastNetworkError());
}

TEST(Socket, SendsAndReceives) {
    Connection lConnection;
    EXPECT_EQ(0UL, osxSocketSend(lConnection.socket(), "hello", 5UL));
    EXPECT_EQ("hello", lConnection.peer().receive(5));
    lConnection.peer().send("abc");
    char lBuffer[3] = {};
    unsigned long lReceived = 0;
    EXPECT_EQ(0UL, osxSocketRecv(lConnection.socket(), lBuffer, 3, lReceived));
    EXPECT_EQ(3UL, lReceived);
    EXPECT_EQ("abc", std::string(lBuffer, 3));
}

TEST(Socket, OpenGivesABlockingCloseOnExecStream) {
    Connection lConnection;
    EXPECT_NE(0, ::fcntl(lConnection.descriptor(), F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(0, ::fcntl(lConnection.descriptor(), F_GETFL) & O_NONBLOCK);
}

TEST(Socket, IsClosedAndReleasedByAThreadThatIsCancelled) {
    Connection lConnection;
    Connection lOther;
    const int lDescriptor = lConnection.descriptor();
    const int lOtherDescriptor = lOther.descriptor();
    EXPECT_TRUE(test::outlastsItsCancellation([&] { osxCloseSocket(lOther.socket()); }));
    EXPECT_EQ(-1, ::fcntl(lOtherDescriptor, F_GETFD));
    EXPECT_TRUE(
        test::outlastsItsCancellation([&] { osxCloseSocketAndRelease(lConnection.socket()); }));
    EXPECT_EQ(-1, ::fcntl(lDescriptor, F_GETFD));
    EXPECT_EQ(nullptr, lConnection.socket());
}

TEST(Socket, SmallSendsAreNotHeldBack) {
    Connection lConnection;
    EXPECT_TRUE(test::sendsWithoutDelay(lConnection.descriptor()));
}

/// A connection is begun without waiting, which leaves EINPROGRESS.
TEST(Socket, OpenLeavesNoErrnoWhenItSucceeds) {
    test::TcpListener lListener;
    void* lSocket = nullptr;
    errno = EPIPE;
    const unsigned long lResult =
        osxOpenSocket(lSocket, ("127.0.0.1:" + std::to_string(lListener.port())).c_str());
    EXPECT_EQ(0, errno);
    ASSERT_EQ(0UL, lResult);
    osxCloseSocketAndRelease(lSocket);
}

TEST(Socket, OpenLooksNamesUp) {
    test::TcpListener lListener;
    void* lSocket = nullptr;
    const std::string lAddress = "localhost:" + std::to_string(lListener.port());
    ASSERT_EQ(0UL, osxOpenSocket(lSocket, lAddress.c_str()));
    test::TcpPeer lPeer = lListener.accept();
    EXPECT_TRUE(lPeer.connected());
    unsigned long lNumber = 0;
    EXPECT_EQ(0UL, osxGetPeername(lSocket, lNumber));
    EXPECT_EQ(0x7F000001UL, lNumber);
    osxCloseSocketAndRelease(lSocket);
}

TEST(Socket, OpenIsRefusedWhereNobodyListens) {
    const test::LogCapture lLog;
    int lMark = 0;
    void* lSocket = &lMark;
    const auto lStart = Clock::now();
    EXPECT_EQ(kFailed, osxOpenSocket(lSocket, "127.0.0.1:1"));
    EXPECT_LT(Clock::now() - lStart, test::kSlack);
    EXPECT_EQ(&lMark, lSocket);
    expectOneLine(lLog, "%t osxOpenSocket: unable to connect \n", LM_DEBUG);
    EXPECT_EQ(ECONNREFUSED, lLog.lines()[0].errnum);
}

/// A listener whose queue is full lets the kernel drop what else comes: a connection that is
/// neither made nor refused.
TEST(Socket, OpenGivesUpAfterATenthOfASecond) {
    const test::LogCapture lLog;
    test::TcpListener lListener(0);
    std::vector<test::Descriptor> lFill;
    for (int lIndex = 0; lIndex < 4; ++lIndex) {
        lFill.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        sockaddr_in lAddress{};
        lAddress.sin_family = AF_INET;
        lAddress.sin_port = htons(lListener.port());
        lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::connect(lFill.back().get(), reinterpret_cast<sockaddr*>(&lAddress), sizeof lAddress);
    }
    void* lSocket = nullptr;
    const auto lStart = Clock::now();
    EXPECT_EQ(kFailed, osxOpenSocket(lSocket, lListener.address().c_str()));
    constexpr milliseconds kTenthOfASecond(100);
    EXPECT_GE(Clock::now() - lStart, kTenthOfASecond - test::kRounding);
    EXPECT_LT(Clock::now() - lStart, kTenthOfASecond + test::kSlack);
    expectOneLine(lLog, "%t osxOpenSocket: unable to connect \n", LM_DEBUG);
    EXPECT_EQ(ETIME, lLog.lines()[0].errnum);
}

TEST(Socket, OpenFailsForWhatIsNoAddress) {
    const std::vector<const char*> lBad = {nullptr,
                                           "",
                                           ":",
                                           ":80",
                                           "127.0.0.1",
                                           "127.0.0.1:",
                                           "127.0.0.1:0",
                                           "127.0.0.1:65536",
                                           "127.0.0.1:-1",
                                           "127.0.0.1:99999999999999999999",
                                           "127.0.0.1:80x",
                                           "127.0.0.1:http",
                                           "127.0.0.1: 80",
                                           "x",
                                           "80",
                                           "256.256.256.256:80",
                                           "no.such.invalid:80"};
    const std::size_t lBefore = openDescriptors();
    for (const char* lAddress : lBad) {
        const test::LogCapture lLog;
        void* lSocket = nullptr;
        EXPECT_EQ(kFailed, osxOpenSocket(lSocket, lAddress)) << (lAddress ? lAddress : "null");
        EXPECT_EQ(nullptr, lSocket);
        EXPECT_THAT(lLog.texts(), ElementsAre("%t osxOpenSocket: unable to connect \n"));
    }
    EXPECT_EQ(lBefore, openDescriptors());
}

TEST(Socket, OpenWithoutMemoryFails) {
    const test::LogCapture lLog;
    test::TcpListener lListener;
    const std::string lAddress = lListener.address();
    void* lSocket = nullptr;
    {
        const test::FailingAllocator lNoMemory(0, true);
        EXPECT_EQ(kFailed, osxOpenSocket(lSocket, lAddress.c_str()));
    }
    EXPECT_EQ(nullptr, lSocket);
    expectOneLine(lLog, "%t osxOpenSocket: lSOCK_Stream == 0 \n", LM_DEBUG);
    EXPECT_EQ(ENOMEM, lLog.lines()[0].errnum);
}

/// In a child: what ACE's own code has when it throws is lost.
TEST(Socket, OpenSurvivesAnyAllocationThatFails) {
    test::TcpListener lListener;
    const std::string lAddress = "localhost:" + std::to_string(lListener.port());
    EXPECT_TRUE(test::inChild([&]() noexcept {
        bool lTold = true;
        bool lFailed = true;
        for (int lAllowed = 0; lFailed && lTold; ++lAllowed) {
            void* lSocket = nullptr;
            unsigned long lResult = 0;
            {
                const test::FailingAllocator lNoMemory(lAllowed);
                lResult = osxOpenSocket(lSocket, lAddress.c_str());
                lFailed = lNoMemory.failures() != 0;
            }
            lTold = (lResult == 0) == (lSocket != nullptr);
            if (lSocket != nullptr) {
                osxCloseSocketAndRelease(lSocket);
            }
        }
        return lTold;
    }));
}

TEST(Socket, OpenAndCloseLeakNothing) {
    test::TcpListener lListener;
    const std::size_t lBefore = openDescriptors();
    for (int lRound = 0; lRound < 50; ++lRound) {
        void* lSocket = nullptr;
        ASSERT_EQ(0UL, osxOpenSocket(lSocket, lListener.address().c_str()));
        lListener.accept();
        EXPECT_EQ(0UL, osxCloseSocketAndRelease(lSocket));
        osxOpenSocket(lSocket, "127.0.0.1:1");
    }
    EXPECT_EQ(lBefore, openDescriptors());
}

TEST(Socket, ConnectByNumberTakesTheFirstOctetLowest) {
    test::TcpListener lListener;
    void* lSocket = osxConnectByNumber(0x0100007FUL, lListener.port());
    ASSERT_NE(reinterpret_cast<void*>(kFailed), lSocket);
    EXPECT_TRUE(lListener.accept().connected());
    unsigned long lNumber = 0;
    EXPECT_EQ(0UL, osxGetPeername(lSocket, lNumber));
    EXPECT_EQ(0x7F000001UL, lNumber);
    osxCloseSocketAndRelease(lSocket);
}

TEST(Socket, ConnectByNumberGivesMinusOneOnFailure) {
    const test::LogCapture lLog;
    EXPECT_EQ(reinterpret_cast<void*>(kFailed), osxConnectByNumber(0x0100007FUL, 1));
    EXPECT_EQ(reinterpret_cast<void*>(kFailed), osxConnectByNumber(0x0100007FUL, 0));
    EXPECT_THAT(lLog.texts(), ElementsAre("%t osxOpenSocket: unable to connect \n",
                                          "%t osxOpenSocket: unable to connect \n"));
}

TEST(Socket, NullHandlesFailWithALine) {
    struct Case {
        std::function<unsigned long()> call;
        std::string line;
        ACE_Log_Priority priority;
    };
    void* lNone = nullptr;
    char lBuffer[4] = {};
    iovec lVec{lBuffer, sizeof lBuffer};
    unsigned long lNumber = 77;
    const std::vector<Case> lCases = {
        {[&] { return osxSocketSend(nullptr, lBuffer, 4UL); },
         "%t osxSocketSend: lSOCK_Stream == 0 \n", LM_DEBUG},
        {[&] { return osxSocketSend(nullptr, &lVec, 1); }, "%t osxSocketSend: lSOCK_Stream == 0 \n",
         LM_DEBUG},
        {[&] { return osxSocketRecv(nullptr, lBuffer, 4, lNumber); },
         "%t osxSocketRecv: lSOCK_Stream == 0 \n", LM_DEBUG},
        {[&] { return osxCloseSocket(nullptr); }, "%t osxCloseSocket: lSOCK_Stream == 0 \n",
         LM_DEBUG},
        {[&] { return osxCloseSocketAndRelease(lNone); },
         "%t osxCloseSocketAndRelease: lSOCK_Stream == 0 \n", LM_DEBUG},
        {[&] { return osxGetPeername(nullptr, lNumber); },
         "%t osxGetPeername: lSOCK_Stream == 0 \n", LM_ERROR}};
    for (const Case& lCase : lCases) {
        const test::LogCapture lLog;
        EXPECT_EQ(kFailed, lCase.call()) << lCase.line;
        expectOneLine(lLog, lCase.line, lCase.priority);
    }
    EXPECT_EQ(77UL, lNumber);
}

TEST(Socket, SendWaitsUntilASlowPeerHasTakenAll) {
    for (const bool lNonBlocking : {false, true}) {
        Connection lConnection;
        if (lNonBlocking) {
            makeNonBlocking(lConnection.descriptor());
        }
        const std::string lData = pattern(kMuch);
        std::string lCame;
        std::thread lReader([&] { lCame = lConnection.peer().receive(kMuch); });
        EXPECT_EQ(0UL, osxSocketSend(lConnection.socket(), lData.data(), lData.size()));
        lReader.join();
        EXPECT_TRUE(lCame == lData);
    }
}

TEST(Socket, SendGoesOnAfterSignals) {
    Connection lConnection;
    const std::string lData = pattern(kMuch);
    const test::Interrupter lInterrupter;
    std::string lCame;
    std::thread lReader([&] {
        lInterrupter.awaitSignals(20);
        lCame = lConnection.peer().receive(kMuch);
    });
    EXPECT_EQ(0UL, osxSocketSend(lConnection.socket(), lData.data(), lData.size()));
    lReader.join();
    EXPECT_TRUE(lCame == lData);
}

TEST(Socket, SendToAPeerThatIsGoneFailsWithALineAndNoSignal) {
    struct sigaction lBefore{};
    ::sigaction(SIGPIPE, nullptr, &lBefore);
    ASSERT_EQ(SIG_DFL, lBefore.sa_handler);
    Connection lConnection;
    lConnection.breakIt();
    const test::LogCapture lLog;
    EXPECT_EQ(kFailed, osxSocketSend(lConnection.socket(), "hello", 5UL));
    expectOneLine(lLog, "%t osxSocketSend: lNrOfBytesSend[-1] != aLen[5] \n", LM_DEBUG);
    struct sigaction lAfter{};
    ::sigaction(SIGPIPE, nullptr, &lAfter);
    EXPECT_EQ(SIG_DFL, lAfter.sa_handler);
}

TEST(Socket, SendOfNothingSucceeds) {
    Connection lConnection;
    const test::LogCapture lLog;
    EXPECT_EQ(0UL, osxSocketSend(lConnection.socket(), nullptr, 0UL));
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(Socket, SendOnAClosedSocketFails) {
    Connection lConnection;
    const test::LogCapture lLog;
    EXPECT_EQ(0UL, osxCloseSocket(lConnection.socket()));
    EXPECT_EQ(kFailed, osxSocketSend(lConnection.socket(), "x", 1UL));
    EXPECT_TRUE(lConnection.peer().waitForClose());
    EXPECT_EQ(0UL, osxCloseSocket(lConnection.socket()));
}

TEST(Socket, VectorSendKeepsTheOrderAndTheVector) {
    Connection lConnection;
    std::string lFirst = "first,";
    std::string lEmpty;
    std::string lSecond = "second";
    const iovec lVec[] = {{lFirst.data(), lFirst.size()},
                          {lEmpty.data(), 0},
                          {lSecond.data(), lSecond.size()},
                          {lEmpty.data(), 0}};
    EXPECT_EQ(0UL, osxSocketSend(lConnection.socket(), lVec, 4));
    EXPECT_EQ("first,second", lConnection.peer().receive(12));
    EXPECT_EQ(lFirst.data(), lVec[0].iov_base);
    EXPECT_EQ(lFirst.size(), lVec[0].iov_len);
}

TEST(Socket, VectorSendTakesMoreBuffersThanTheKernelDoesAtOnce) {
    Connection lConnection;
    std::string lData = pattern(3000);
    std::vector<iovec> lVec;
    for (char& lByte : lData) {
        lVec.push_back({&lByte, 1});
    }
    EXPECT_EQ(0UL, osxSocketSend(lConnection.socket(), lVec.data(), static_cast<int>(lVec.size())));
    EXPECT_TRUE(lConnection.peer().receive(lData.size()) == lData);
}

TEST(Socket, VectorSendWaitsAndGoesOnAfterSignals) {
    for (const bool lNonBlocking : {false, true}) {
        Connection lConnection;
        if (lNonBlocking) {
            makeNonBlocking(lConnection.descriptor());
        }
        std::string lData = pattern(kMuch);
        const std::size_t lThird = kMuch / 3;
        std::vector<iovec> lVec = {{lData.data(), lThird},
                                   {lData.data() + lThird, lThird},
                                   {lData.data() + 2 * lThird, kMuch - 2 * lThird}};
        const std::vector<iovec> lBefore = lVec;
        const test::Interrupter lInterrupter;
        std::string lCame;
        std::thread lReader([&] {
            lInterrupter.awaitSignals(20);
            lCame = lConnection.peer().receive(kMuch);
        });
        EXPECT_EQ(0UL, osxSocketSend(lConnection.socket(), lVec.data(), 3));
        lReader.join();
        EXPECT_TRUE(lCame == lData);
        EXPECT_EQ(0, std::memcmp(lBefore.data(), lVec.data(), sizeof(iovec) * 3));
    }
}

TEST(Socket, VectorSendDoesNotReportAFailure) {
    Connection lConnection;
    lConnection.breakIt();
    const test::LogCapture lLog;
    char lByte = 'x';
    const iovec lVec{&lByte, 1};
    EXPECT_EQ(0UL, osxSocketSend(lConnection.socket(), &lVec, 1));
    EXPECT_EQ(0UL, osxSocketSend(lConnection.socket(), &lVec, 0));
    EXPECT_EQ(0UL, osxSocketSend(lConnection.socket(), &lVec, -1));
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(Socket, ReceiveCountsNothingWhenThePeerClosesTooEarly) {
    Connection lConnection;
    const test::LogCapture lLog;
    lConnection.peer().send("abc");
    lConnection.peer().close();
    char lBuffer[10] = {};
    unsigned long lReceived = 99;
    EXPECT_EQ(kFailed, osxSocketRecv(lConnection.socket(), lBuffer, 10, lReceived));
    EXPECT_EQ(0UL, lReceived);
    EXPECT_STREQ("abc", lBuffer);
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(Socket, ReceiveSaysMinusOneOnAnError) {
    Connection lConnection;
    lConnection.peer().reset();
    char lBuffer[10] = {};
    unsigned long lReceived = 99;
    EXPECT_EQ(kFailed, osxSocketRecv(lConnection.socket(), lBuffer, 10, lReceived));
    EXPECT_EQ(kFailed, lReceived);
}

TEST(Socket, ReceiveOfNothingReturnsAtOnce) {
    Connection lConnection;
    unsigned long lReceived = 99;
    EXPECT_EQ(0UL, osxSocketRecv(lConnection.socket(), nullptr, 0, lReceived));
    EXPECT_EQ(0UL, lReceived);
}

TEST(Socket, ReceiveWaitsForAllAndGoesOnAfterSignals) {
    for (const bool lNonBlocking : {false, true}) {
        Connection lConnection;
        if (lNonBlocking) {
            makeNonBlocking(lConnection.descriptor());
        }
        const test::Interrupter lInterrupter;
        std::thread lSender([&] {
            for (const char* lPart : {"ab", "cd", "ef"}) {
                lInterrupter.awaitSignals(5);
                lConnection.peer().send(lPart);
            }
        });
        char lBuffer[7] = {};
        unsigned long lReceived = 0;
        EXPECT_EQ(0UL, osxSocketRecv(lConnection.socket(), lBuffer, 6, lReceived));
        lSender.join();
        EXPECT_EQ(6UL, lReceived);
        EXPECT_STREQ("abcdef", lBuffer);
    }
}

TEST(Socket, PeernameOfOneThatIsNotConnectedFails) {
    Connection lConnection;
    osxCloseSocket(lConnection.socket());
    const test::LogCapture lLog;
    unsigned long lNumber = 77;
    EXPECT_EQ(kFailed, osxGetPeername(lConnection.socket(), lNumber));
    EXPECT_EQ(77UL, lNumber);
    expectOneLine(lLog, "%t osxGetPeername: get_remote_addr failed \n", LM_ERROR);
}

TEST(Host, TheThreeWaysToAskForTheAddressAgree) {
    unsigned long lNumber = 0;
    char lText[16] = {};
    ACE_CString lString;
    EXPECT_EQ(0UL, osxGetIpAddr(lNumber));
    EXPECT_EQ(0UL, osxGetIpAddr(lText));
    EXPECT_EQ(0UL, osxGetIpAddr(lString));
    EXPECT_STREQ(lText, lString.c_str());
    in_addr lParsed{};
    ASSERT_EQ(1, ::inet_pton(AF_INET, lText, &lParsed)) << lText;
    EXPECT_EQ(lNumber, static_cast<unsigned long>(ntohl(lParsed.s_addr)));
}

TEST(Host, AddressIsTheFirstThatIsNotTheLoopback) {
    test::FakeHost lHost;
    lHost.addresses = {INADDR_LOOPBACK, 0x0A010203, 0x0A090909};
    unsigned long lNumber = 0;
    char lText[16] = {};
    EXPECT_EQ(0UL, osxGetIpAddr(lNumber));
    EXPECT_EQ(0x0A010203UL, lNumber);
    EXPECT_EQ(0UL, osxGetIpAddr(lText));
    EXPECT_STREQ("10.1.2.3", lText);
}

TEST(Host, AddressIsTheLoopbackWhereThereIsNoOther) {
    test::FakeHost lHost;
    lHost.addresses = {INADDR_LOOPBACK};
    unsigned long lNumber = 0;
    char lText[16] = {};
    EXPECT_EQ(0UL, osxGetIpAddr(lNumber));
    EXPECT_EQ(0x7F000001UL, lNumber);
    EXPECT_EQ(0UL, osxGetIpAddr(lText));
    EXPECT_STREQ("127.0.0.1", lText);
}

TEST(Host, InterfacesThatCannotBeListedFail) {
    test::FakeHost lHost;
    lHost.listingInterfacesFails = true;
    unsigned long lNumber = 77;
    char lText[16] = "as before";
    ACE_CString lString("as before");
    const test::LogCapture lLog;
    EXPECT_EQ(kFailed, osxGetIpAddr(lNumber));
    EXPECT_EQ(77UL, lNumber);
    expectOneLine(lLog, "%t osxGetIpAddr: ACE_Sock_Connect::get_ip_interfaces failed. \n",
                  LM_ERROR);
    EXPECT_EQ(kFailed, osxGetIpAddr(lText));
    EXPECT_STREQ("as before", lText);
    EXPECT_EQ(kFailed, osxGetIpAddr(lString));
    EXPECT_STREQ("as before", lString.c_str());
}

TEST(Host, NameIsCutToTheBufferAndTerminated) {
    utsname lHost{};
    ASSERT_EQ(0, ::uname(&lHost));
    const std::string lName = lHost.nodename;
    for (const std::size_t lSize :
         {std::size_t{4}, std::size_t{1}, lName.size() + 1, std::size_t{300}}) {
        std::vector<char> lBuffer(lSize + 1, '#');
        EXPECT_EQ(0UL, osxGetHostname(lBuffer.data(), lSize));
        EXPECT_EQ(lName.substr(0, lSize - 1), lBuffer.data());
        EXPECT_EQ('#', lBuffer[lSize]);
    }
    char lUntouched = '#';
    EXPECT_EQ(0UL, osxGetHostname(&lUntouched, 0));
    EXPECT_EQ('#', lUntouched);
    ACE_CString lString;
    EXPECT_EQ(0UL, osxGetHostname(lString));
    EXPECT_EQ(lName, lString.c_str());
}

TEST(Host, NameIntoNowhereFailsWithALine) {
    const test::LogCapture lLog;
    EXPECT_EQ(kFailed, osxGetHostname(nullptr, 10));
    expectOneLine(lLog, "%t osxGetHostname: aHost == 0 \n", LM_ERROR);
}
