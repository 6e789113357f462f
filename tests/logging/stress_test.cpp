// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Network logging under what a hostile or broken network does to it.
///
/// OSX_STRESS_SECONDS sets how long the random clients run: 5 s by default, 30 s for the full
/// figure.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ace/Log_Msg.h"
#include "logging/Arguments.h"
#include "logging/Logging.h"
#include "logging/RedirectService.h"
#include "osx/osx.h"
#include "support/Port.h"
#include "support/Program.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"
#include "support/longForm.h"
#include "support/waitUntil.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::Arguments;
using test::TcpPeer;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

long stressSeconds() {
    return static_cast<long>(test::stressTime(seconds(5)).count());
}

void line(const std::string& aText) {
    ACE_DEBUG((LM_DEBUG, "%C\n", aText.c_str()));
}

/// Logs a text again and again until a watcher has read it: a full queue drops lines, this one
/// among them. @return whether it has been read within 60 s.
bool logUntilRead(const TcpPeer& aWatcher, const std::string& aText) {
    std::string lRead;
    std::array<char, 65536> lChunk{};
    const auto lWasRead = [&] { return lRead.find(aText + "\n") != std::string::npos; };
    const auto lEnd = steady_clock::now() + seconds(60);
    while (!lWasRead() && steady_clock::now() < lEnd) {
        line(aText);
        pollfd lPoll{aWatcher.descriptor(), POLLIN, 0};
        while (!lWasRead() && ::poll(&lPoll, 1, 100) == 1) {
            const ssize_t lCount = ::recv(aWatcher.descriptor(), lChunk.data(), lChunk.size(), 0);
            if (lCount <= 0) {
                return false;
            }
            lRead.append(lChunk.data(), static_cast<std::size_t>(lCount));
        }
    }
    return lWasRead();
}

/// Network logging on ports of its own, beside a log file.
class Stress : public testing::Test {
protected:
    Stress()
        : mReactor(2),
          mDebugPort(test::freePort()),
          mRedirectPort(test::freePort()),
          mDirectory(testing::TempDir() + "osx-stress-XXXXXX") {
        ::mkdtemp(mDirectory.data());
        setDebugLevelPortNumber(mDebugPort);
    }
    ~Stress() override {
        LogDeinit();
        std::filesystem::remove_all(mDirectory);
    }

    void start(std::vector<std::string> aOptions = {}) {
        std::vector<std::string> lArguments{"prog", "-RedirectPort", std::to_string(mRedirectPort)};
        lArguments.insert(lArguments.end(), aOptions.begin(), aOptions.end());
        Arguments(lArguments).init(true);
    }

    std::string logFile() const { return mDirectory + "/log.txt"; }

    /// A watcher that gets every line from now on.
    TcpPeer connectWatcher(int aReceiveBuffer = 0) {
        TcpPeer lWatcher = TcpPeer::connect(mRedirectPort, aReceiveBuffer);
        static int lMark = 0;
        const std::string lText = "mark " + std::to_string(++lMark);
        EXPECT_TRUE(test::waitUntil([&] {
            line(lText);
            pollfd lPoll{lWatcher.descriptor(), POLLIN, 0};
            return ::poll(&lPoll, 1, 10) == 1;
        }));
        EXPECT_TRUE(logUntilRead(lWatcher, lText + " end"));
        return lWatcher;
    }

    test::RunningReactor mReactor;
    unsigned short mDebugPort;
    unsigned short mRedirectPort;
    std::string mDirectory;
};

std::size_t residentBytes() {
    std::ifstream lStatus("/proc/self/statm");
    std::size_t lTotal = 0;
    std::size_t lResident = 0;
    lStatus >> lTotal >> lResident;
    return lResident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace

TEST_F(Stress, FiftyClientsResetAtOnceLeaveTheLogQuietAndTheMemoryAsItWas) {
    constexpr std::size_t kClients = 50;
    constexpr std::size_t kMaxGrowth = (kSanitized ? 512U : 32U) * 1024U * 1024U;
    start({"-LogFile", logFile()});
    std::vector<TcpPeer> lClients;
    for (std::size_t lClient = 0; lClient < kClients; ++lClient) {
        lClients.push_back(connectWatcher());
    }
    std::atomic<bool> lLogging{true};
    std::atomic<int> lLines{0};
    std::thread lLogger([&] {
        while (lLogging) {
            line("a line of the application, number " + std::to_string(++lLines));
        }
    });
    EXPECT_TRUE(test::waitUntil([&] { return lLines > 1000; }));
    const std::size_t lBefore = residentBytes();
    for (TcpPeer& lClient : lClients) {
        lClient.reset();
    }
    const int lAtReset = lLines;
    EXPECT_TRUE(test::waitUntil([&] { return lLines > lAtReset + 5000; }));
    lLogging = false;
    lLogger.join();

    std::uintmax_t lSize = 0;
    EXPECT_TRUE(test::waitUntil([&] {
        const auto lNow = std::filesystem::file_size(logFile());
        std::this_thread::sleep_for(test::kToMeasure);
        return lNow == std::exchange(lSize, lNow);
    }));
    EXPECT_GT(kMaxGrowth, residentBytes() - std::min(lBefore, residentBytes()));
    const TcpPeer lWatcher = connectWatcher();
    EXPECT_TRUE(logUntilRead(lWatcher, "still here"));
}

namespace {

/// Reads all that comes until told to stop.
class Reader {
public:
    explicit Reader(TcpPeer aPeer) : mPeer(std::move(aPeer)), mThread([this] { run(); }) {}
    ~Reader() { stop(); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    const std::string& stop() {
        mStopping = true;
        if (mThread.joinable()) {
            mThread.join();
        }
        return mText;
    }
    /// Looks on from where the text before was found, so that texts come in the order asked for.
    bool waitFor(const std::string& aText, milliseconds aLimit) {
        return test::waitUntil([&] { return find(aText); }, aLimit);
    }

private:
    bool find(const std::string& aText) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        const std::size_t lFound = mText.find(aText, mSearched);
        if (lFound != std::string::npos) {
            mSearched = lFound + aText.size();
            return true;
        }
        // Not all of it again the next time: while it is searched it is not read.
        mSearched = std::max(mSearched, mText.size() - std::min(mText.size(), aText.size()));
        return false;
    }

    void run() {
        std::array<char, 65536> lChunk{};
        while (!mStopping) {
            pollfd lPoll{mPeer.descriptor(), POLLIN, 0};
            if (::poll(&lPoll, 1, 20) == 1) {
                const ssize_t lCount = ::recv(mPeer.descriptor(), lChunk.data(), lChunk.size(), 0);
                if (lCount <= 0) {
                    return;
                }
                const std::lock_guard<std::mutex> lGuard(mMutex);
                mText.append(lChunk.data(), static_cast<std::size_t>(lCount));
            }
        }
    }

    TcpPeer mPeer;
    std::mutex mMutex;
    std::string mText;
    std::size_t mSearched = 0;
    std::atomic<bool> mStopping{false};
    std::thread mThread;
};

milliseconds timeToLog(int aLines) {
    const std::string lText(99, 'x');
    const auto lStart = steady_clock::now();
    for (int lLine = 0; lLine < aLines; ++lLine) {
        line(lText);
    }
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - lStart);
}

/// What else the machine does can only add to a time: the least of a few is the one to compare.
milliseconds leastTimeToLog(int aLines) {
    return std::min({timeToLog(aLines), timeToLog(aLines), timeToLog(aLines)});
}

/// The same for a watcher that a reader serves.
bool logUntilRead(Reader& aReader, const char* aText) {
    return test::waitUntil(
        [&] {
            line(aText);
            return aReader.waitFor(aText, milliseconds(100));
        },
        seconds(60));
}

/// @return the longest time that an echoing port took to answer, while clients of another one come
/// and go.
milliseconds worstAnswer(TcpPeer& aEcho, unsigned short aBusyPort, const std::atomic<bool>& aGoOn) {
    milliseconds lWorst{0};
    while (aGoOn) {
        const auto lStart = steady_clock::now();
        const TcpPeer lComing = TcpPeer::connect(aBusyPort);
        EXPECT_TRUE(aEcho.isEchoed("ping"));
        lWorst = std::max(lWorst,
                          std::chrono::duration_cast<milliseconds>(steady_clock::now() - lStart));
        std::this_thread::sleep_for(test::kInterval);
    }
    return lWorst;
}

/// Connects without having the lines read, and with little room for them.
TcpPeer connectStalled(unsigned short aPort) {
    TcpPeer lStalled = TcpPeer::connect(aPort);
    const int lSmall = 4096;
    ::setsockopt(lStalled.descriptor(), SOL_SOCKET, SO_RCVBUF, &lSmall, sizeof lSmall);
    return lStalled;
}

}  // namespace

TEST_F(Stress, AClientThatNeverReadsHarmsNeitherTheLoggersNorTheReactor) {
    constexpr int kLines = 100000;
    constexpr milliseconds kGivenUp(RedirectService::kStalledClientMs);
    start();
    const test::Port lEchoPort(test::kEcho);
    TcpPeer lEcho = lEchoPort.connect();
    Reader lReader(connectWatcher());
    const milliseconds lUsual = leastTimeToLog(kLines);
    ASSERT_TRUE(logUntilRead(lReader, "all read"));

    const TcpPeer lStalled = connectStalled(mRedirectPort);
    std::atomic<bool> lGoOn{true};
    milliseconds lWorst{0};
    std::thread lProbe([&] { lWorst = worstAnswer(lEcho, mRedirectPort, lGoOn); });
    const milliseconds lStalledTime = timeToLog(kLines);
    // Loggers that wait for the client do so until it is given up; a busy machine is not to look
    // so.
    EXPECT_GT(lUsual * 10 + kGivenUp / 2, lStalledTime);
    EXPECT_TRUE(logUntilRead(lReader, "read beside it"));
    lGoOn = false;
    lProbe.join();
    EXPECT_GT(kGivenUp * 4 / 5, lWorst);
}

namespace {

constexpr std::size_t kTimedThreads = 8;

/// How many timed lines each thread has written.
using Written = std::array<int, kTimedThreads>;

/// Logs a line that tells when that was. @return what the call took.
std::chrono::nanoseconds logTimed(std::size_t aThread, int aNumber, std::size_t aLength) {
    const auto lNow = steady_clock::now();
    const std::string lText = "timed " + std::to_string(aThread) + " " + std::to_string(aNumber) +
                              " " + std::to_string(lNow.time_since_epoch().count()) + " " +
                              std::string(aLength, '.');
    const auto lBefore = steady_clock::now();
    line(lText);
    return steady_clock::now() - lBefore;
}

/// Logs such lines, a given number a second from some threads.
class TimedLoggers {
public:
    explicit TimedLoggers(int aLinesASecond)
        : mPause(1000000LL * static_cast<long long>(kTimedThreads) / aLinesASecond) {}

    /// @param aWritten counted on.
    void logFor(milliseconds aTime, Written& aWritten) {
        std::vector<std::thread> lThreads;
        for (std::size_t lThread = 0; lThread < kTimedThreads; ++lThread) {
            lThreads.emplace_back([&, lThread] { log(lThread, aTime, aWritten[lThread]); });
        }
        for (std::thread& lThread : lThreads) {
            lThread.join();
        }
    }
    /// @return the median time that a call took.
    std::chrono::nanoseconds cost() {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        std::sort(mCosts.begin(), mCosts.end());
        return mCosts.empty() ? std::chrono::nanoseconds(0) : mCosts[mCosts.size() / 2];
    }

private:
    void log(std::size_t aThread, milliseconds aTime, int& aNumber) {
        std::vector<std::chrono::nanoseconds> lCosts;
        const auto lStart = steady_clock::now();
        for (auto lNext = lStart; lNext < lStart + aTime; lNext += mPause) {
            std::this_thread::sleep_until(lNext);
            lCosts.push_back(logTimed(aThread, aNumber++, 40));
        }
        const std::lock_guard<std::mutex> lGuard(mMutex);
        mCosts.insert(mCosts.end(), lCosts.begin(), lCosts.end());
    }

    const std::chrono::microseconds mPause;
    std::mutex mMutex;
    std::vector<std::chrono::nanoseconds> mCosts;
};

/// Reads such lines: none may be missing.
class TimedReader {
public:
    explicit TimedReader(TcpPeer aPeer) : mPeer(std::move(aPeer)), mThread([this] { run(); }) {}
    ~TimedReader() { stop(); }
    TimedReader(const TimedReader&) = delete;
    TimedReader& operator=(const TimedReader&) = delete;

    bool waitFor(const Written& aWritten) const {
        const auto lIsBehind = [](const std::atomic<int>& aNext, int aNumber) {
            return aNext < aNumber;
        };
        return test::waitUntil(
            [&] {
                return std::equal(mNext.begin(), mNext.end(), aWritten.begin(),
                                  std::not_fn(lIsBehind));
            },
            seconds(60));
    }
    void stop() {
        mStopping = true;
        if (mThread.joinable()) {
            mThread.join();
        }
    }
    /// Call `stop` before.
    std::vector<milliseconds::rep> sortedDelaysInMicroseconds() {
        std::sort(mDelays.begin(), mDelays.end());
        return mDelays;
    }

private:
    void run() {
        std::string lText;
        std::array<char, 65536> lChunk{};
        while (!mStopping) {
            pollfd lPoll{mPeer.descriptor(), POLLIN, 0};
            if (::poll(&lPoll, 1, 20) != 1) {
                continue;
            }
            const ssize_t lCount = ::recv(mPeer.descriptor(), lChunk.data(), lChunk.size(), 0);
            if (lCount <= 0) {
                return;
            }
            lText.append(lChunk.data(), static_cast<std::size_t>(lCount));
            takeLines(lText);
        }
    }
    void takeLines(std::string& aText) {
        const auto lNow = steady_clock::now().time_since_epoch().count();
        std::size_t lStart = 0;
        for (std::size_t lEnd = aText.find('\n'); lEnd != std::string::npos;
             lEnd = aText.find('\n', lStart)) {
            std::size_t lThread = 0;
            int lNumber = 0;
            long long lTime = 0;
            if (std::sscanf(aText.c_str() + lStart, "timed %zu %d %lld", &lThread, &lNumber,
                            &lTime) == 3) {
                EXPECT_EQ(lNumber, mNext.at(lThread)) << "of logger " << lThread;
                mNext[lThread] = lNumber + 1;
                mDelays.push_back((lNow - lTime) / 1000);
            }
            EXPECT_EQ(std::string::npos, aText.substr(lStart, lEnd - lStart).find(" dropped"));
            lStart = lEnd + 1;
        }
        aText.erase(0, lStart);
    }

    TcpPeer mPeer;
    std::array<std::atomic<int>, kTimedThreads> mNext{};
    std::vector<milliseconds::rep> mDelays;
    std::atomic<bool> mStopping{false};
    std::thread mThread;
};

/// @return how many connections to a listening port of this process wait to be accepted.
unsigned int waitingAt(unsigned short aPort) {
    for (int lDescriptor = 0; lDescriptor < 1024; ++lDescriptor) {
        sockaddr_in lLocal{};
        socklen_t lSize = sizeof lLocal;
        tcp_info lInfo{};
        socklen_t lInfoSize = sizeof lInfo;
        if (::getsockname(lDescriptor, reinterpret_cast<sockaddr*>(&lLocal), &lSize) == 0 &&
            lLocal.sin_port == htons(aPort) &&
            ::getsockopt(lDescriptor, IPPROTO_TCP, TCP_INFO, &lInfo, &lInfoSize) == 0 &&
            lInfo.tcpi_state == TCP_LISTEN) {
            return lInfo.tcpi_unacked;
        }
    }
    return 0;
}

/// Clients that take nothing, or a byte a second.
class BadClients {
public:
    BadClients(unsigned short aPort, std::size_t aStalled, std::size_t aTrickling) {
        for (std::size_t lClient = 0; lClient < aStalled + aTrickling; ++lClient) {
            EXPECT_TRUE(test::waitUntil([aPort] { return waitingAt(aPort) < 3; }));
            mPeers.push_back(TcpPeer::connect(aPort, lClient % 2 == 0 ? 4096 : 0));
            EXPECT_TRUE(mPeers.back().connected());
        }
        mThread = std::thread([this, aStalled] {
            while (!mStopping) {
                for (std::size_t lClient = aStalled; lClient < mPeers.size(); ++lClient) {
                    char lByte = 0;
                    ::recv(mPeers[lClient].descriptor(), &lByte, 1, MSG_DONTWAIT);
                }
                for (int lPart = 0; lPart < 50 && !mStopping; ++lPart) {
                    std::this_thread::sleep_for(test::kInterval);
                }
            }
        });
    }
    ~BadClients() {
        mStopping = true;
        mThread.join();
    }
    BadClients(const BadClients&) = delete;
    BadClients& operator=(const BadClients&) = delete;

private:
    std::vector<TcpPeer> mPeers;
    std::atomic<bool> mStopping{false};
    std::thread mThread;
};

/// How late a timer of 10 ms came at worst.
class TimerProbe {
public:
    TimerProbe() : mTimer(osxCreateTimer(onTime, this, 10, 10)) {}
    ~TimerProbe() { osxDestroyTimer(mTimer); }
    TimerProbe(const TimerProbe&) = delete;
    TimerProbe& operator=(const TimerProbe&) = delete;

    milliseconds worst() const { return mWorst.load(); }

private:
    static void onTime(const void* aProbe) {
        auto& lProbe = *static_cast<TimerProbe*>(const_cast<void*>(aProbe));
        const auto lNow = steady_clock::now();
        lProbe.mWorst = std::max(lProbe.mWorst.load(), std::chrono::duration_cast<milliseconds>(
                                                           lNow - lProbe.mLast - milliseconds(10)));
        lProbe.mLast = lNow;
    }

    std::atomic<milliseconds> mWorst{milliseconds(0)};
    steady_clock::time_point mLast = steady_clock::now();
    void* mTimer;
};

}  // namespace

/// The figures are for a person; what is expected is only what a loaded machine cannot miss.
TEST_F(Stress, BadClientsCostAGoodOneNothing) {
    constexpr std::size_t kBad = 50;
    constexpr std::size_t kMaxGrowth = (kSanitized ? 512U : 32U) * 1024U * 1024U;
    const milliseconds lTime(1000 * stressSeconds());
    start();
    TimedReader lReader(connectWatcher());
    Written lWritten{};
    TimedLoggers lAlone(2000);
    lAlone.logFor(lTime / 2, lWritten);
    EXPECT_TRUE(lReader.waitFor(lWritten));

    const std::size_t lBefore = residentBytes();
    const BadClients lBad(mRedirectPort, kBad, kBad);
    // More than the kernel holds for the bad ones.
    for (int lPart = 0; lPart < 15; ++lPart) {
        for (int lLine = 0; lLine < 1000; ++lLine) {
            logTimed(0, lWritten[0]++, 1000);
        }
        EXPECT_TRUE(lReader.waitFor(lWritten));
    }
    TimedLoggers lLoggers(2000);
    const TimerProbe lTimer;
    lLoggers.logFor(lTime, lWritten);
    EXPECT_TRUE(lReader.waitFor(lWritten));
    lReader.stop();
    EXPECT_GT(kMaxGrowth, residentBytes() - std::min(lBefore, residentBytes()));
    EXPECT_GT(seconds(10), lTimer.worst());
    const auto lDelays = lReader.sortedDelaysInMicroseconds();
    ASSERT_FALSE(lDelays.empty());
    EXPECT_GT(10000000, lDelays.back());
    std::printf(
        "delay of a line: median %lld us, worst %lld us; a call: %lld ns, alone %lld ns; "
        "timer late by %lld ms at worst; memory grew by %lld KiB\n",
        static_cast<long long>(lDelays[lDelays.size() / 2]), static_cast<long long>(lDelays.back()),
        static_cast<long long>(lLoggers.cost().count()),
        static_cast<long long>(lAlone.cost().count()),
        static_cast<long long>(lTimer.worst().count()),
        (static_cast<long long>(residentBytes()) - static_cast<long long>(lBefore)) / 1024);
}

namespace {

constexpr int kSmallBuffer = 4096;

/// Reads at a pace that does not depend on the machine's load, until the other end closes or a text
/// has come. @return whether it has.
bool readAtPace(const TcpPeer& aPeer, long aBytesASecond, const std::string& aText) {
    const auto lStart = steady_clock::now();
    std::string lTail;
    std::array<char, 65536> lChunk{};
    for (long lRead = 0; lTail.find(aText) == std::string::npos;) {
        const auto lTime = std::chrono::duration<double>(steady_clock::now() - lStart);
        const long lDue = static_cast<long>(lTime.count() * static_cast<double>(aBytesASecond));
        if (lDue <= lRead) {
            std::this_thread::sleep_for(test::kInterval);
            continue;
        }
        const auto lMost = std::min(lChunk.size(), static_cast<std::size_t>(lDue - lRead));
        const ssize_t lCount = ::recv(aPeer.descriptor(), lChunk.data(), lMost, 0);
        if (lCount <= 0) {
            return false;
        }
        lRead += lCount;
        lTail.erase(0, lTail.size() - std::min(lTail.size(), aText.size()));
        lTail.append(lChunk.data(), static_cast<std::size_t>(lCount));
    }
    return true;
}

}  // namespace

/// At a pace at which it takes over ten seconds, and in the long form more than thirty.
TEST_F(Stress, LogDeinitGivesASlowReaderAllThatWasLogged) {
    start();
    const TcpPeer lSlow = connectWatcher(kSmallBuffer);
    for (int lLine = 0; lLine < 3900; ++lLine) {
        line(std::string(1000, 'x'));
    }
    line("the last line");
    std::thread lEnd([] { LogDeinit(); });
    EXPECT_TRUE(readAtPace(lSlow, 3900000 / (6 + stressSeconds()), "the last line\n"));
    lEnd.join();
}

namespace {

/// A program that logs to clients and ends, with its own ports.
class EndingProgram {
public:
    EndingProgram() {
        ::setenv("OSX_TEST_DEBUG_PORT", std::to_string(test::freePort()).c_str(), 1);
        mProgram = std::make_unique<test::Program>(
            std::vector<std::string>{test::Program::beside("logging_program"), "to-network",
                                     "-RedirectPort", std::to_string(mPort)});
    }
    /// A client that the program knows of.
    TcpPeer connect() const {
        TcpPeer lClient = TcpPeer::connectOnceItListens(mPort, kSmallBuffer);
        EXPECT_TRUE(lClient.connected());
        lClient.receiveUntil("a line\n");
        return lClient;
    }
    test::Program& program() { return *mProgram; }

private:
    unsigned short mPort = test::freePort();
    std::unique_ptr<test::Program> mProgram;
};

}  // namespace

/// At a pace at which it takes some seconds.
TEST(EndOfLogging, GivesASlowReaderAllThatWasLogged) {
    EndingProgram lEnding;
    const TcpPeer lSlow = lEnding.connect();
    lEnding.program().endInput();
    EXPECT_TRUE(readAtPace(lSlow, 650000, "the last line\n"));
    EXPECT_EQ(7, lEnding.program().wait());
}

TEST(EndOfLogging, WaitsForNobodyWhoTakesNothing) {
    EndingProgram lEnding;
    const TcpPeer lStalled = lEnding.connect();
    TcpPeer lGood = lEnding.connect();
    lEnding.program().endInput();
    EXPECT_TRUE(readAtPace(lGood, 100000000, "the last line\n"));
    EXPECT_EQ(7, lEnding.program().wait());
}

namespace {

constexpr int kLoggers = 4;

/// One of many clients, which comes and goes.
class RandomClient {
public:
    bool connected() const { return mPeer.connected(); }
    int descriptor() const { return mPeer.descriptor(); }
    void connect(unsigned short aPort) {
        mPeer = TcpPeer::connect(aPort);
        mText.clear();
        mNext.clear();
    }
    /// By a reset, a close, or half of one, after which the other end closes.
    void leave(unsigned int aWay) {
        if (aWay == 0) {
            mPeer.reset();
            return;
        }
        if (aWay == 1) {
            ::shutdown(mPeer.descriptor(), SHUT_WR);
        }
        mPeer.close();
    }
    /// Takes what has come, and checks that of each logger no line is missing, doubled or late.
    void read() {
        std::array<char, 65536> lChunk{};
        const ssize_t lCount =
            ::recv(mPeer.descriptor(), lChunk.data(), lChunk.size(), MSG_DONTWAIT);
        if (lCount > 0) {
            mText.append(lChunk.data(), static_cast<std::size_t>(lCount));
            checkLines();
        }
    }
    /// @return the number after that of the last line of a logger; 0 before the first.
    int next(int aLogger) const {
        const auto lFound = mNext.find(aLogger);
        return lFound == mNext.end() ? 0 : lFound->second;
    }

private:
    void checkLines() {
        std::size_t lStart = 0;
        for (std::size_t lEnd = mText.find('\n'); lEnd != std::string::npos;
             lEnd = mText.find('\n', lStart)) {
            int lLogger = -1;
            int lNumber = -1;
            if (std::sscanf(mText.c_str() + lStart, "logger %d line %d", &lLogger, &lNumber) == 2) {
                const auto lKnown = mNext.find(lLogger);
                if (lKnown != mNext.end()) {
                    EXPECT_EQ(lKnown->second, lNumber) << "of logger " << lLogger;
                }
                mNext[lLogger] = lNumber + 1;
            }
            lStart = lEnd + 1;
        }
        mText.erase(0, lStart);
    }

    TcpPeer mPeer;
    std::string mText;
    std::map<int, int> mNext;
};

/// Threads that write numbered lines, each its own, until they are stopped.
class Loggers {
public:
    explicit Loggers(milliseconds aPause) : mPause(aPause) {
        for (int lLogger = 0; lLogger < kLoggers; ++lLogger) {
            mThreads.emplace_back([this, lLogger] { writeLines(lLogger); });
        }
    }
    ~Loggers() { stop(); }
    Loggers(const Loggers&) = delete;
    Loggers& operator=(const Loggers&) = delete;

    void stop() {
        mLogging = false;
        for (std::thread& lThread : mThreads) {
            lThread.join();
        }
        mThreads.clear();
    }
    int written(int aLogger) const { return mWritten.at(static_cast<std::size_t>(aLogger)); }

private:
    void writeLines(int aLogger) {
        auto& lNumber = mWritten.at(static_cast<std::size_t>(aLogger));
        for (; mLogging; ++lNumber) {
            line("logger " + std::to_string(aLogger) + " line " + std::to_string(lNumber));
            std::this_thread::sleep_for(mPause);
        }
    }

    milliseconds mPause;
    std::atomic<bool> mLogging{true};
    std::array<std::atomic<int>, kLoggers> mWritten{};
    std::vector<std::thread> mThreads;
};

void comeOrGo(RandomClient& aClient, unsigned short aPort, unsigned int aWay) {
    if (aClient.connected()) {
        aClient.leave(aWay);
    } else {
        aClient.connect(aPort);
    }
}

void readAll(std::vector<RandomClient>& aClients) {
    std::vector<pollfd> lPolls;
    for (const RandomClient& lClient : aClients) {
        lPolls.push_back({lClient.descriptor(), POLLIN, 0});
    }
    ::poll(lPolls.data(), lPolls.size(), 1);
    for (std::size_t lIndex = 0; lIndex < aClients.size(); ++lIndex) {
        if (lPolls[lIndex].revents != 0) {
            aClients[lIndex].read();
        }
    }
}

}  // namespace

TEST_F(Stress, ClientsThatStaySeeEveryLineOnceAndInOrderWhileOthersComeAndGo) {
    constexpr std::size_t kClients = 80;  // more than the port holds
    constexpr std::size_t kStaying = 20;
    constexpr milliseconds kPause{kSanitized ? 100 : 20};
    start();
    std::vector<RandomClient> lClients(kClients);
    for (std::size_t lClient = 0; lClient < kStaying; ++lClient) {
        lClients[lClient].connect(mRedirectPort);
        ASSERT_TRUE(lClients[lClient].connected());
    }
    // Its reception shows that those who connected before it are known, too.
    connectWatcher();
    Loggers lLoggers(kPause);
    std::mt19937 lRandom(20250101);
    const auto lEnd = steady_clock::now() + seconds(stressSeconds());
    while (steady_clock::now() < lEnd) {
        RandomClient& lClient = lClients[kStaying + lRandom() % (kClients - kStaying)];
        comeOrGo(lClient, mRedirectPort, static_cast<unsigned int>(lRandom() % 3));
        readAll(lClients);
    }
    lLoggers.stop();
    for (std::size_t lClient = 0; lClient < kStaying; ++lClient) {
        for (int lLogger = 0; lLogger < kLoggers; ++lLogger) {
            EXPECT_TRUE(test::waitUntil([&] {
                readAll(lClients);
                return lClients[lClient].next(lLogger) == lLoggers.written(lLogger);
            })) << "client "
                << lClient << ", logger " << lLogger;
        }
    }
}

namespace {

std::string randomBytes(std::size_t aSize) {
    std::mt19937 lRandom(4711);
    std::string lBytes(aSize, '\0');
    std::generate(lBytes.begin(), lBytes.end(), [&] { return static_cast<char>(lRandom()); });
    return lBytes;
}

/// Does not overrun the port's backlog: the kernel would have the client wait for a second.
void connectAndLeave(unsigned short aPort, int aTimes) {
    for (int lTime = 0; lTime < aTimes; ++lTime) {
        ASSERT_TRUE(test::waitUntil([aPort] { return waitingAt(aPort) < 3; }));
        TcpPeer lPeer = TcpPeer::connect(aPort);
        ASSERT_TRUE(lPeer.connected()) << lTime;
        if (lTime % 3 == 0) {
            lPeer.reset();
        }
    }
}

bool levelBecomes(unsigned int aLevel) {
    return test::waitUntil([aLevel] { return getLogLevel() == aLevel; });
}

/// The reactor has taken what came before on the port.
void expectPortSetsLevels(unsigned short aPort) {
    TcpPeer lTool = TcpPeer::connect(aPort);
    for (const unsigned int lLevel : {11U, 12U}) {
        ASSERT_TRUE(lTool.send(std::to_string(lLevel)));
        EXPECT_TRUE(levelBecomes(lLevel));
    }
}

}  // namespace

TEST_F(Stress, BadInputToTheDebugLevelPortOnlySetsTheLevel) {
    start();
    // Not the level that follows: two loop threads serve connections in no order, and only a change
    // shows that a request has been served before the next comes on another connection.
    setLogLevel(5);
    TcpPeer lPeer = TcpPeer::connect(mDebugPort);
    ASSERT_TRUE(lPeer.send("GET / HTTP/1.1\r\n\r\n"));
    EXPECT_TRUE(levelBecomes(0));
    expectPortSetsLevels(mDebugPort);
    ASSERT_TRUE(lPeer.send("x" + randomBytes(100)));
    EXPECT_TRUE(levelBecomes(0));
    ASSERT_TRUE(lPeer.send(std::string(1024U * 1024U, '7')));
    EXPECT_TRUE(levelBecomes(2147483647));
    ASSERT_TRUE(lPeer.send(std::string(1024U * 1024U, ' ')));
    EXPECT_TRUE(levelBecomes(0));
    for (const char lDigit : {'1', '2', '3'}) {
        ASSERT_TRUE(lPeer.send(std::string(1, lDigit)));
        EXPECT_TRUE(levelBecomes(static_cast<unsigned int>(lDigit - '0')));
    }
    const TcpPeer lHalfOpen = TcpPeer::connect(mDebugPort);
    ASSERT_EQ(0, ::shutdown(lPeer.descriptor(), SHUT_WR));
    EXPECT_TRUE(lPeer.waitForClose());
    connectAndLeave(mDebugPort, kSanitized ? 500 : 2000);
    expectPortSetsLevels(mDebugPort);
    EXPECT_TRUE(TcpPeer::connect(mRedirectPort).connected());
}

TEST_F(Stress, BadInputToTheRedirectPortChangesNothing) {
    start();
    setLogLevel(2);
    TcpPeer lPeer = connectWatcher();
    ASSERT_TRUE(lPeer.send("9\n"));
    ASSERT_TRUE(lPeer.send(randomBytes(1024U * 1024U)));
    constexpr milliseconds kApart(5);  // mostly read one by one
    for (const char lByte : {'1', '2', '3'}) {
        ASSERT_TRUE(lPeer.send(std::string(1, lByte)));
        std::this_thread::sleep_for(kApart);
    }
    EXPECT_TRUE(logUntilRead(lPeer, "still served"));
    const TcpPeer lHalfOpen = TcpPeer::connect(mRedirectPort);
    ASSERT_EQ(0, ::shutdown(lPeer.descriptor(), SHUT_WR));
    EXPECT_TRUE(lPeer.waitForClose());
    connectAndLeave(mRedirectPort, kSanitized ? 500 : 2000);
    TcpPeer lNew = connectWatcher();
    EXPECT_TRUE(logUntilRead(lNew, "still there"));
    EXPECT_EQ(2U, getLogLevel());
}
