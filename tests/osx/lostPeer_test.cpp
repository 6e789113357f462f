// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Peers that vanish without a word, as when a cable is cut or a device loses its power.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "ace/Reactor.h"
#include "ace/SOCK_Stream.h"
#include "base/osxExport.h"
#include "osx/observation.h"
#include "osx/osx.h"
#include "support/LogCapture.h"
#include "support/Port.h"
#include "support/RunningReactor.h"
#include "support/inChild.h"
#include "support/waitUntil.h"

using test::TcpPeer;

namespace {

constexpr auto kFailed = static_cast<unsigned long>(-1);
/// The reactor looks after its peers every 10 s; on a busy machine it comes late.
constexpr std::chrono::seconds kLookIsDue(100);
constexpr std::chrono::seconds kLongLook(1);

/// What the kernel is made to tell of every connection, to spare the tests the time it takes.
struct alignas(8) Answers {
    bool areFaked = false;
    unsigned char resent = 0;
    unsigned int silentMs = 0;
};
/// Whether the peer has sent something all the same, which acknowledged nothing new.
std::atomic<bool> gSends{false};
std::atomic<Answers> gAnswers{Answers{}};
std::atomic<int> gLooks{0};
/// Whether a look lasts until it is told, or for that long.
std::atomic<bool> gLooksLong{false};
test::Counter gLongLooks;
test::Counter gLetGo;

}  // namespace

extern "C" OSX_EXPORT int getsockopt(int aSocket, int aLevel, int aName, void* aValue,
                                     socklen_t* aLength) noexcept {
    using Function = int(int, int, int, void*, socklen_t*);
    static auto* const gOriginal = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, "getsockopt"));
    const int lResult = gOriginal(aSocket, aLevel, aName, aValue, aLength);
    const Answers lAnswers = gAnswers;
    if (lResult == 0 && aLevel == IPPROTO_TCP && aName == TCP_INFO && lAnswers.areFaked) {
        static_cast<tcp_info*>(aValue)->tcpi_retransmits = lAnswers.resent;
        static_cast<tcp_info*>(aValue)->tcpi_last_ack_recv = lAnswers.silentMs;
        static_cast<tcp_info*>(aValue)->tcpi_last_data_recv = gSends ? 0 : lAnswers.silentMs;
        ++gLooks;
        if (gLooksLong) {
            gLongLooks.add();
            gLetGo.waitFor(1, kLongLook);
        }
    }
    return lResult;
}

namespace {

int descriptorOf(void* aSocket) {
    return static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle();
}

int option(int aDescriptor, int aLevel, int aName) {
    int lValue = -1;
    socklen_t lSize = sizeof lValue;
    ::getsockopt(aDescriptor, aLevel, aName, &lValue, &lSize);
    return lValue;
}

void set(int aDescriptor, int aLevel, int aName, int aValue) {
    ASSERT_EQ(0, ::setsockopt(aDescriptor, aLevel, aName, &aValue, sizeof aValue));
}

/// Asks a silent peer within a second or two what would be asked within a minute.
void hurry(int aDescriptor) {
    set(aDescriptor, IPPROTO_TCP, TCP_KEEPIDLE, 1);
    set(aDescriptor, IPPROTO_TCP, TCP_KEEPINTVL, 1);
    set(aDescriptor, IPPROTO_TCP, TCP_KEEPCNT, 1);
}

/// Has a transfer that waits look after its peer ten times a second.
void lookOften(int aDescriptor) {
    const timeval lLimit{0, 100000};
    ::setsockopt(aDescriptor, SOL_SOCKET, SO_RCVTIMEO, &lLimit, sizeof lLimit);
    ::setsockopt(aDescriptor, SOL_SOCKET, SO_SNDTIMEO, &lLimit, sizeof lLimit);
}

void expectToNoticeAVanishedPeer(int aDescriptor) {
    EXPECT_EQ(1, option(aDescriptor, SOL_SOCKET, SO_KEEPALIVE));
    EXPECT_GT(60, option(aDescriptor, IPPROTO_TCP, TCP_KEEPIDLE) +
                      option(aDescriptor, IPPROTO_TCP, TCP_KEEPINTVL) *
                          option(aDescriptor, IPPROTO_TCP, TCP_KEEPCNT));
    EXPECT_EQ(0, option(aDescriptor, IPPROTO_TCP, TCP_USER_TIMEOUT)) << "slow readers are cut";
}

/// Switches the loopback interface of the thread's network on or off.
bool setLink(bool aOn) {
    const test::Descriptor lSocket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq lRequest{};
    std::strcpy(lRequest.ifr_name, "lo");
    lRequest.ifr_flags = static_cast<short>(aOn ? IFF_UP | IFF_RUNNING : 0);
    return ::ioctl(lSocket.get(), SIOCSIFFLAGS, &lRequest) == 0;
}

/// Does something in a network of its own, which may be cut. @return whether that could be had.
bool inOwnNetwork(const std::function<void()>& aAction) {
    bool lHas = false;
    std::thread([&] {
        lHas = ::unshare(CLONE_NEWNET) == 0 && setLink(true);
        if (lHas) {
            aAction();
        }
    }).join();
    return lHas;
}

void open(void*& aSocket, test::TcpListener& aListener) {
    ASSERT_TRUE(
        test::waitUntil([&] { return osxOpenSocket(aSocket, aListener.address().c_str()) == 0; }));
}

struct Watched {
    std::atomic<void*> socket{nullptr};
    test::Counter opened;
    test::Counter closed;
};

/// A port whose connections are watched.
class WatchedPort {
public:
    WatchedPort() = default;
    /// The peer has closed by now; the connection's last callback comes before what it uses goes.
    ~WatchedPort() { EXPECT_TRUE(mWatched.closed.waitFor(1)); }
    WatchedPort(const WatchedPort&) = delete;
    WatchedPort& operator=(const WatchedPort&) = delete;

    /// @return a peer whose connection has been accepted.
    TcpPeer connect() {
        TcpPeer lPeer = mPort.connect();
        EXPECT_TRUE(mWatched.opened.waitFor(1));
        return lPeer;
    }
    /// The same where no other thread runs the loop.
    TcpPeer connectServing() {
        TcpPeer lPeer = mPort.connect();
        serveUntil(mWatched.opened);
        return lPeer;
    }
    static void serveUntil(const test::Counter& aCounter) {
        while (aCounter.value() == 0) {
            ACE_Time_Value lLimit(0, 10000);
            ACE_Reactor::instance()->handle_events(lLimit);
        }
    }
    int descriptor() const { return descriptorOf(mWatched.socket); }
    const test::Counter& closed() const { return mWatched.closed; }

private:
    static void opened(void* aSocket, void*& aWatched) {
        static_cast<Watched*>(aWatched)->socket = aSocket;
        static_cast<Watched*>(aWatched)->opened.add();
    }
    static void closed(void*, void*& aWatched) { static_cast<Watched*>(aWatched)->closed.add(); }

    Watched mWatched;
    test::Port mPort{{&opened, nullptr, nullptr, &closed}, &mWatched};
};

}  // namespace

TEST(LostPeer, OfAConnectionThatWasMadeIsLookedFor) {
    test::TcpListener lListener;
    void* lSocket = nullptr;
    open(lSocket, lListener);
    expectToNoticeAVanishedPeer(descriptorOf(lSocket));
    osxCloseSocketAndRelease(lSocket);
}

TEST(LostPeer, OfAConnectionThatWasAcceptedIsLookedFor) {
    const test::LogCapture lLog;
    const test::RunningReactor lReactor;
    WatchedPort lPort;
    const TcpPeer lPeer = lPort.connect();
    expectToNoticeAVanishedPeer(lPort.descriptor());
}

TEST(LostPeer, EndsAReceive) {
    const bool lDone = inOwnNetwork([] {
        test::TcpListener lListener;
        void* lSocket = nullptr;
        open(lSocket, lListener);
        ASSERT_EQ(1, option(descriptorOf(lSocket), SOL_SOCKET, SO_KEEPALIVE));
        const TcpPeer lPeer = lListener.accept();
        hurry(descriptorOf(lSocket));
        ASSERT_TRUE(setLink(false));
        char lByte = 0;
        unsigned long lReceived = 0;
        EXPECT_EQ(kFailed, osxSocketRecv(lSocket, &lByte, 1, lReceived));
        EXPECT_EQ(kFailed, lReceived);
        osxCloseSocketAndRelease(lSocket);
    });
    if (!lDone) {
        GTEST_SKIP() << "needs root's right to make a network of its own";
    }
}

TEST(LostPeer, EndsAPortsConnection) {
    const test::LogCapture lLog;
    const bool lDone = inOwnNetwork([] {
        const test::RunningReactor lReactor;
        WatchedPort lPort;
        const TcpPeer lPeer = lPort.connect();
        ASSERT_EQ(1, option(lPort.descriptor(), SOL_SOCKET, SO_KEEPALIVE));
        hurry(lPort.descriptor());
        ASSERT_TRUE(setLink(false));
        EXPECT_TRUE(lPort.closed().waitFor(1));
    });
    if (!lDone) {
        GTEST_SKIP() << "needs root's right to make a network of its own";
    }
}

TEST(LostPeer, EndsAReceiveThoughBytesAreOnTheirWay) {
    test::TcpListener lListener;
    void* lSocket = nullptr;
    open(lSocket, lListener);
    const TcpPeer lPeer = lListener.accept();
    lookOften(descriptorOf(lSocket));
    gAnswers = Answers{true, 7, 50000};
    char lByte = 0;
    unsigned long lReceived = 0;
    EXPECT_EQ(kFailed, osxSocketRecv(lSocket, &lByte, 1, lReceived));
    EXPECT_EQ(kFailed, lReceived);
    EXPECT_EQ(ETIMEDOUT, errno);
    gAnswers = Answers{};
    osxCloseSocketAndRelease(lSocket);
}

/// On a link whose answers took many seconds the kernel sends again as rarely.
TEST(LostPeer, EndsAReceiveThoughBytesWereSentAgainOnlyOnce) {
    test::TcpListener lListener;
    void* lSocket = nullptr;
    open(lSocket, lListener);
    const TcpPeer lPeer = lListener.accept();
    lookOften(descriptorOf(lSocket));
    gAnswers = Answers{true, 1, 50000};
    char lByte = 0;
    unsigned long lReceived = 0;
    EXPECT_EQ(kFailed, osxSocketRecv(lSocket, &lByte, 1, lReceived));
    EXPECT_EQ(ETIMEDOUT, errno);
    gAnswers = Answers{};
    osxCloseSocketAndRelease(lSocket);
}

TEST(LostPeer, EndsASendThatHasNoRoom) {
    const test::LogCapture lLog;
    test::TcpListener lListener;
    void* lSocket = nullptr;
    open(lSocket, lListener);
    const TcpPeer lPeer = lListener.accept();
    lookOften(descriptorOf(lSocket));
    gAnswers = Answers{true, 7, 50000};
    const std::string lMuch(16UL * 1024 * 1024, 'x');
    EXPECT_EQ(kFailed, osxSocketSend(lSocket, lMuch.data(), lMuch.size()));
    gAnswers = Answers{};
    osxCloseSocketAndRelease(lSocket);
}

/// As of a program that sends a little now and then, and never receives.
TEST(LostPeer, EndsSendsThatHaveRoom) {
    const test::LogCapture lLog;
    test::TcpListener lListener;
    void* lSocket = nullptr;
    open(lSocket, lListener);
    const TcpPeer lPeer = lListener.accept();
    gAnswers = Answers{true, 7, 50000};
    EXPECT_TRUE(test::waitUntil([&] { return osxSocketSend(lSocket, "x", 1) == kFailed; }));
    EXPECT_EQ(ETIMEDOUT, errno);
    gAnswers = Answers{};
    EXPECT_EQ(kFailed, osxSocketSend(lSocket, "x", 1));
    osxCloseSocketAndRelease(lSocket);
}

/// This form says nothing of a failure.
TEST(LostPeer, EndsTheConnectionOfSendsOfSeveralBuffersThatHaveRoom) {
    const test::LogCapture lLog;
    test::TcpListener lListener;
    void* lSocket = nullptr;
    open(lSocket, lListener);
    TcpPeer lPeer = lListener.accept();
    char lByte = 'x';
    const iovec lBuffer{&lByte, 1};
    const int lBefore = gLooks;
    gAnswers = Answers{true, 7, 50000};
    EXPECT_TRUE(test::waitUntil([&] {
        EXPECT_EQ(0UL, osxSocketSend(lSocket, &lBuffer, 1));
        return gLooks > lBefore;
    }));
    gAnswers = Answers{};
    EXPECT_TRUE(lPeer.waitForClose());
    osxCloseSocketAndRelease(lSocket);
}

/// A look costs as much as a small send.
TEST(LostPeer, IsSeldomLookedForBySendsThatHaveRoom) {
    constexpr int kSends = 1000;
    test::TcpListener lListener;
    void* lSocket = nullptr;
    open(lSocket, lListener);
    const TcpPeer lPeer = lListener.accept();
    gAnswers = Answers{true, 0, 0};
    const int lBefore = gLooks;
    const auto lStart = std::chrono::steady_clock::now();
    for (int lSend = 0; lSend < kSends; ++lSend) {
        EXPECT_EQ(0UL, osxSocketSend(lSocket, "x", 1));
    }
    EXPECT_GE(test::secondsBegunSince(lStart), static_cast<std::size_t>(gLooks - lBefore));
    gAnswers = Answers{};
    osxCloseSocketAndRelease(lSocket);
}

TEST(LostPeer, EndsAPortsConnectionThoughBytesAreOnTheirWay) {
    const test::LogCapture lLog;
    const test::RunningReactor lReactor;
    WatchedPort lPort;
    const TcpPeer lPeer = lPort.connect();
    gAnswers = Answers{true, 7, 50000};
    EXPECT_TRUE(lPort.closed().waitFor(1, kLookIsDue));
    gAnswers = Answers{};
}

/// With more descriptors than processes usually have: where the right to that is missing, with as
/// many as this one may have.
TEST(LostPeer, EndsAPortsConnectionWhateverItsDescriptor) {
    constexpr rlim_t kMany = 65536;
    constexpr rlim_t kOthers = 200;  // and what ports leave to the application
    rlimit lLimit{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &lLimit));
    const rlimit lRaised{kMany + kOthers, std::max(lLimit.rlim_max, kMany + kOthers)};
    const bool lMayHaveMany = ::setrlimit(RLIMIT_NOFILE, &lRaised) == 0;
    lLimit.rlim_cur = lLimit.rlim_max;
    ASSERT_TRUE(lMayHaveMany || ::setrlimit(RLIMIT_NOFILE, &lLimit) == 0);
    const auto lMany = static_cast<int>(lMayHaveMany ? kMany : lLimit.rlim_cur - kOthers);
    const test::LogCapture lLog;
    const test::RunningReactor lReactor;
    WatchedPort lPort;
    std::vector<test::Descriptor> lOthers;
    while (lOthers.size() < static_cast<std::size_t>(lMany)) {
        lOthers.emplace_back(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
    }
    const TcpPeer lPeer = lPort.connect();
    EXPECT_GE(lPort.descriptor(), lMany);
    gAnswers = Answers{true, 7, 50000};
    EXPECT_TRUE(lPort.closed().waitFor(1, kLookIsDue));
    gAnswers = Answers{};
}

/// The look that was under way at the fork is of a thread that the child does not have.
TEST(LostPeer, OfAConnectionOfAChildThatWasForkedDuringALookIsLookedFor) {
    const test::LogCapture lLog;
    const test::RunningReactor lReactor;
    WatchedPort lPort;
    const TcpPeer lPeer = lPort.connect();
    gLooksLong = true;
    gAnswers = Answers{true, 0, 0};
    ASSERT_TRUE(gLongLooks.waitFor(1, kLookIsDue));
    EXPECT_TRUE(test::inChild([] {
        gLooksLong = false;
        WatchedPort lOwn;
        const TcpPeer lOwnPeer = lOwn.connectServing();
        gAnswers = Answers{true, 7, 50000};
        WatchedPort::serveUntil(lOwn.closed());
        return true;
    }));
    gLooksLong = false;
    gLetGo.add();
    gAnswers = Answers{};
}

/// Each limit of a wait leads to a look, so that ten looks take a second; where a wait of 10 s
/// stood between every two they would take longer than is waited for them.
TEST(LostPeer, IsLookedForAfterEachWait) {
    constexpr int kLooks = 10;
    test::TcpListener lListener;
    void* lSocket = nullptr;
    open(lSocket, lListener);
    TcpPeer lPeer = lListener.accept();
    lookOften(descriptorOf(lSocket));
    gAnswers = Answers{true, 0, 0};
    const int lBefore = gLooks;
    std::thread lReceiver([&] {
        char lByte = 0;
        unsigned long lReceived = 0;
        EXPECT_EQ(0UL, osxSocketRecv(lSocket, &lByte, 1, lReceived));
    });
    EXPECT_TRUE(test::waitUntil([&] { return gLooks >= lBefore + kLooks; }));
    lPeer.send("x");
    lReceiver.join();
    gAnswers = Answers{};
    osxCloseSocketAndRelease(lSocket);
}

TEST(LostPeer, IsNoneThatIsOnlySlow) {
    test::TcpListener lListener;
    void* lSocket = nullptr;
    open(lSocket, lListener);
    TcpPeer lPeer = lListener.accept();
    lookOften(descriptorOf(lSocket));
    const std::string lMuch(16UL * 1024 * 1024, 'x');
    for (const Answers lAnswers : {Answers{true, 0, 3600000}, Answers{true, 7, 30000},
                                   Answers{true, 2, 45000}, Answers{true, 7, 3600000}}) {
        gSends = lAnswers.resent == 7 && lAnswers.silentMs == 3600000;
        gAnswers = lAnswers;
        std::thread lSender(
            [&] { EXPECT_EQ(0UL, osxSocketSend(lSocket, lMuch.data(), lMuch.size())); });
        const int lBefore = gLooks;
        EXPECT_TRUE(test::waitUntil([&] { return gLooks > lBefore; })) << "has nobody looked?";
        EXPECT_EQ(lMuch.size(), lPeer.receive(lMuch.size()).size());
        lSender.join();
    }
    gAnswers = Answers{};
    osxCloseSocketAndRelease(lSocket);
}
