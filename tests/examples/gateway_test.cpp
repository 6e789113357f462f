// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <memory>
#include <sstream>

#include "nmea/Sentence.h"
#include "support/Program.h"
#include "support/TcpPeer.h"
#include "support/files.h"
#include "support/waitUntil.h"

namespace {

using test::Program;
using test::TcpPeer;

/// A gateway and its instrument on free ports.
class Gateway : public testing::Test {
protected:
    void startInstrument(const std::vector<std::string>& aOptions = {}) {
        std::vector<std::string> lCommand{INSTRUMENT_PROGRAM, "--port",
                                          std::to_string(mInstrumentPort), "--interval", "5"};
        lCommand.insert(lCommand.end(), aOptions.begin(), aOptions.end());
        mInstrument = std::make_unique<Program>(lCommand);
        ASSERT_TRUE(mInstrument->waitForOutput("TCP port")) << mInstrument->output();
    }

    std::vector<std::string> gatewayCommand() const {
        return {GATEWAY_PROGRAM,
                "--source",
                "127.0.0.1:" + std::to_string(mInstrumentPort),
                "--port",
                std::to_string(mPort),
                "--frame-port",
                std::to_string(mFramePort),
                "--debug-port",
                std::to_string(mDebugPort),
                "-RedirectPort",
                std::to_string(mRedirectPort),
                "--rate-interval",
                "50"};
    }

    void startGateway(const std::vector<std::string>& aOptions = {}) {
        std::vector<std::string> lCommand = gatewayCommand();
        lCommand.insert(lCommand.end(), aOptions.begin(), aOptions.end());
        mGateway = std::make_unique<Program>(lCommand);
        ASSERT_TRUE(mGateway->waitForOutput("clients on port")) << mGateway->output();
    }

    TcpPeer client() const {
        TcpPeer lClient = TcpPeer::connect(mPort);
        EXPECT_TRUE(lClient.connected());
        return lClient;
    }

    /// Reads some whole lines and checks each. @return how many were read.
    static int readSentences(TcpPeer& aClient, int aWanted) {
        int lCount = 0;
        std::string lLine;
        while (lCount < aWanted) {
            const std::string lByte = aClient.receive(1);
            if (lByte.empty()) {
                break;
            }
            lLine += lByte;
            if (lByte == "\n") {
                EXPECT_EQ("\r\n", lLine.substr(lLine.size() - 2));
                EXPECT_TRUE(nmea::isValid(lLine.substr(0, lLine.size() - 2))) << lLine;
                lLine.clear();
                ++lCount;
            }
        }
        return lCount;
    }

    void expectCleanStop(int aSignal = SIGTERM) const {
        mGateway->signal(aSignal);
        EXPECT_EQ(0, mGateway->wait()) << mGateway->output();
    }

    unsigned short mInstrumentPort = test::freePort();
    unsigned short mPort = test::freePort();
    unsigned short mFramePort = test::freePort();
    unsigned short mDebugPort = test::freePort();
    unsigned short mRedirectPort = test::freePort();
    std::unique_ptr<Program> mInstrument;
    std::unique_ptr<Program> mGateway;
};

/// Looks at a sentence about the system.
testing::AssertionResult tellsOfRealMemory(const std::string& aSentence) {
    double lLoad = -1;
    long lTotal = -1;
    long lFree = -1;
    const int lRead = std::sscanf(aSentence.c_str(), "$PGWS,%lf,%ld,%ld*", &lLoad, &lTotal, &lFree);
    const bool lReal = lRead == 3 && lLoad >= 0 && lFree > 0 && lTotal > lFree;
    return (lReal ? testing::AssertionSuccess() : testing::AssertionFailure()) << aSentence;
}

}  // namespace

TEST_F(Gateway, HandsOnOnlyValidSentencesThoughTheInstrumentSendsCorruptOnes) {
    startInstrument({"--corrupt", "3"});
    startGateway();
    TcpPeer lClient = client();
    EXPECT_EQ(60, readSentences(lClient, 60));
    EXPECT_TRUE(mGateway->waitForOutput(" valid, 2")) << "tens of sentences were to be rejected";
    expectCleanStop();
}

TEST_F(Gateway, SendsFramesOnAPortOfTheirOwn) {
    startInstrument();
    startGateway();
    TcpPeer lClient = TcpPeer::connect(mFramePort);
    for (int lFrame = 0; lFrame < 20; ++lFrame) {
        const std::string lHead = lClient.receive(4);
        ASSERT_EQ(4U, lHead.size());
        EXPECT_EQ(std::string(3, '\0'), lHead.substr(1));
        const std::string lSentence = lClient.receive(static_cast<unsigned char>(lHead[0]));
        EXPECT_TRUE(nmea::isValid(lSentence)) << lSentence;
    }
    expectCleanStop();
}

TEST_F(Gateway, OutlivesItsInstrumentAndKeepsItsClients) {
    startInstrument();
    startGateway();
    TcpPeer lClient = client();
    ASSERT_EQ(10, readSentences(lClient, 10));
    mInstrument->signal(SIGKILL);
    mInstrument->wait();
    ASSERT_TRUE(mGateway->waitForOutput(" 1 losses"));
    startInstrument();
    EXPECT_EQ(50, readSentences(lClient, 50));
    expectCleanStop();
}

TEST_F(Gateway, ReconnectsWhenTheInstrumentDropsTheConnection) {
    startInstrument({"--drop", "100"});
    startGateway();
    TcpPeer lClient = client();
    EXPECT_EQ(150, readSentences(lClient, 150));
    expectCleanStop();
}

TEST_F(Gateway, IsNotStoppedByClientsThatReset) {
    startInstrument();
    startGateway();
    TcpPeer lClient = client();
    for (int lTry = 0; lTry < 50; ++lTry) {
        TcpPeer lRude = client();
        lRude.receive(10);
        lRude.reset();
    }
    EXPECT_EQ(100, readSentences(lClient, 100));
    expectCleanStop();
}

TEST_F(Gateway, TracesEachSentenceAtLevel3SetFromOutside) {
    startInstrument();
    startGateway();
    TcpPeer lWatcher = TcpPeer::connect(mRedirectPort);
    TcpPeer lControl = TcpPeer::connect(mDebugPort);
    lControl.send("3");
    const std::string lDiagnostics = lWatcher.receiveUntil("gateway: [$GP");
    EXPECT_NE(std::string::npos, lDiagnostics.find("set the debug level to [3]"));
    EXPECT_NE(std::string::npos, lDiagnostics.find("gateway: [$GP"));
    expectCleanStop();
}

TEST_F(Gateway, RecordsSentencesAndReportsTheSystemAsItIs) {
    const std::string lRecord = testing::TempDir() + "record" + std::to_string(mPort);
    startInstrument();
    startGateway({"--record", lRecord, "--system-interval", "100"});
    TcpPeer lClient = client();
    std::string lRead = lClient.receiveUntil("$PGWS,");
    lRead += lClient.receiveUntil("\n");
    EXPECT_TRUE(tellsOfRealMemory(lRead.substr(lRead.find("$PGWS"))));
    expectCleanStop(SIGINT);
    std::istringstream lLines(test::contentsOf(lRecord));
    int lCount = 0;
    for (std::string lLine; std::getline(lLines, lLine); ++lCount) {
        EXPECT_TRUE(nmea::isValid(lLine)) << lLine;
    }
    EXPECT_GT(lCount, 0);
    std::remove(lRecord.c_str());
}

TEST_F(Gateway, StopsCleanlyWhileItsInstrumentIsSilent) {
    test::TcpListener lSilent;
    mInstrumentPort = lSilent.port();
    startGateway();
    const TcpPeer lConnection = lSilent.accept();
    EXPECT_TRUE(lConnection.connected());
    expectCleanStop();
}

TEST_F(Gateway, ConnectsAnewToAnInstrumentThatIsSilent) {
    test::TcpListener lInstrument;
    mInstrumentPort = lInstrument.port();
    startGateway({"--silence", "2000"});
    TcpPeer lSilent = lInstrument.accept();
    ASSERT_TRUE(lSilent.connected());
    EXPECT_TRUE(lSilent.send(nmea::sentence("GPONE,1") + "\r\n"));
    EXPECT_TRUE(lSilent.waitForClose());
    EXPECT_TRUE(lInstrument.accept().connected());
    EXPECT_TRUE(mGateway->waitForOutput(" 1 losses"));
    expectCleanStop();
}

TEST_F(Gateway, WaitsForASilentInstrumentIfThatIsWanted) {
    test::TcpListener lInstrument;
    mInstrumentPort = lInstrument.port();
    startGateway({"--silence", "0"});
    TcpPeer lSilent = lInstrument.accept();
    ASSERT_TRUE(mGateway->waitForOutput("0.0 sentences/s"));
    EXPECT_TRUE(lSilent.send(nmea::sentence("GPONE,1") + "\r\n"));
    EXPECT_TRUE(mGateway->waitForOutput(" 1 valid"));
    expectCleanStop();
}

namespace {

/// A named pipe that has a reader while the object lives.
class Pipe {
public:
    Pipe() {
        std::string lTemplate = testing::TempDir() + "osx-pipe-XXXXXX";
        mName = std::string(::mkdtemp(lTemplate.data())) + "/pipe";
        ::mkfifo(mName.c_str(), 0600);
        mPipe = test::Descriptor(::open(mName.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    }
    ~Pipe() { std::filesystem::remove_all(std::filesystem::path(mName).parent_path()); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    const std::string& name() const { return mName; }

    void fill() const {
        while (::write(mPipe.get(), "x", 1) == 1) {
        }
    }

    /// Reads until so many lines have come. @return what was read.
    std::string read(int aLines) const {
        std::string lText;
        std::array<char, 4096> lChunk{};
        while (std::count(lText.begin(), lText.end(), '\n') < aLines &&
               test::waitForInput(mPipe.get())) {
            const ssize_t lRead = ::read(mPipe.get(), lChunk.data(), lChunk.size());
            lText.append(lChunk.data(), static_cast<std::size_t>(std::max<ssize_t>(lRead, 0)));
        }
        return lText;
    }

private:
    std::string mName;
    test::Descriptor mPipe;
};

std::ptrdiff_t threadsOf(const Program& aProgram) {
    const std::filesystem::directory_iterator lThreads(
        "/proc/" + std::to_string(aProgram.process()) + "/task");
    return std::distance(begin(lThreads), end(lThreads));
}

/// @return whether its main thread waits.
bool sleeps(const Program& aProgram) {
    const std::string lStat =
        test::contentsOf("/proc/" + std::to_string(aProgram.process()) + "/stat");
    return lStat.find(") S ") != std::string::npos;
}

}  // namespace

TEST_F(Gateway, ServesAndStopsThoughNobodyReadsItsOutput) {
    const Pipe lPipe;
    lPipe.fill();
    startInstrument();
    std::vector<std::string> lCommand = gatewayCommand();
    lCommand.insert(lCommand.begin(), {"/bin/sh", "-c", "exec \"$@\" >" + lPipe.name(), "gateway"});
    mGateway = std::make_unique<Program>(lCommand);
    TcpPeer lClient = TcpPeer::connectOnceItListens(mPort);
    ASSERT_TRUE(lClient.connected());
    EXPECT_EQ(60, readSentences(lClient, 60));
    expectCleanStop();
}

TEST_F(Gateway, ServesAndStopsThoughTheReaderOfItsDiagnosticsHasGone) {
    auto lPipe = std::make_unique<Pipe>();
    startInstrument();
    std::vector<std::string> lCommand = gatewayCommand();
    lCommand.insert(lCommand.begin(),
                    {"/bin/sh", "-c", "exec \"$@\" 2>" + lPipe->name(), "gateway"});
    lCommand.insert(lCommand.end(), {"-stderr", "-DebugLevel", "3"});
    mGateway = std::make_unique<Program>(lCommand);
    EXPECT_TRUE(mGateway->waitForOutput("clients on port"));
    lPipe.reset();
    TcpPeer lClient = client();
    EXPECT_EQ(60, readSentences(lClient, 60));
    expectCleanStop();
}

TEST_F(Gateway, RecordsWhatItHasReadBeforeItStops) {
    constexpr int kSentences = 200;
    const Pipe lRecord;
    lRecord.fill();  // the checker waits in its first record
    test::TcpListener lInstrument;
    mInstrumentPort = lInstrument.port();
    startGateway({"--record", lRecord.name()});
    TcpPeer lConnection = lInstrument.accept();
    for (int lSentence = 0; lSentence < kSentences; ++lSentence) {
        lConnection.send(nmea::sentence("GPONE," + std::to_string(lSentence)) + "\r\n");
    }
    lConnection.close();
    ASSERT_TRUE(mGateway->waitForOutput(" 1 losses")) << "all has been read by then";
    const std::ptrdiff_t lThreads = threadsOf(*mGateway);
    mGateway->signal(SIGTERM);
    // The loop's thread ends, and the reader does: only the checker is left to be waited for.
    ASSERT_TRUE(test::waitUntil([&] { return threadsOf(*mGateway) <= lThreads - 2; }));
    ASSERT_TRUE(test::waitUntil([&] { return sleeps(*mGateway); }));
    const std::string lRead = lRecord.read(kSentences);
    EXPECT_EQ(0, mGateway->wait()) << mGateway->output();
    EXPECT_EQ(kSentences, std::count(lRead.begin(), lRead.end(), '\n'));
}

TEST_F(Gateway, StopsCleanlyWhileItsInstrumentIsAbsent) {
    startGateway();
    expectCleanStop();
}

TEST(GatewayOptions, AreRefusedWhenUnknownOrOutOfRange) {
    for (const auto& lArguments :
         std::vector<std::vector<std::string>>{{"--port", "0"},
                                               {"--port", "65536"},
                                               {"--silence", "x"},
                                               {"--sync-interval", "-1"},
                                               {"--silence", "-18446744073709551615"},
                                               {"--silence", "-4294967295"},
                                               {"--baud", "x"},
                                               {"--parity", "mark"},
                                               {"-z"},
                                               {"stray"}}) {
        std::vector<std::string> lCommand{GATEWAY_PROGRAM, "--debug-port",
                                          std::to_string(test::freePort()), "-RedirectPort",
                                          std::to_string(test::freePort())};
        lCommand.insert(lCommand.end(), lArguments.begin(), lArguments.end());
        Program lGateway(lCommand);
        EXPECT_EQ(2, lGateway.wait()) << lArguments[0];
    }
}

TEST(InstrumentOptions, AreRefusedWhenOutOfRange) {
    for (const auto& lArguments :
         std::vector<std::vector<std::string>>{{"--port", "65536"},
                                               {"--interval", "0"},
                                               {"--baud", "0"},
                                               {"--serial", "0"},
                                               {"--sentences", "-18446744073709551615"},
                                               {"--sentences", "-4294967295"}}) {
        std::vector<std::string> lCommand{INSTRUMENT_PROGRAM, "--port", "0", "--sentences", "1"};
        lCommand.insert(lCommand.end(), lArguments.begin(), lArguments.end());
        Program lInstrument(lCommand);
        EXPECT_EQ(2, lInstrument.wait(std::chrono::seconds(20))) << lArguments[0];
    }
}

/// The last one counts, as for all options.
TEST_F(Gateway, OpensTheDebugPortThatItsOptionsNameInWhateverForm) {
    for (const std::string lForm : {"--debug-port=", "--debug="}) {
        const unsigned short lPort = test::freePort();
        startGateway({lForm + std::to_string(lPort)});
        EXPECT_TRUE(TcpPeer::connect(lPort).connected()) << lForm;
        EXPECT_FALSE(TcpPeer::connect(mDebugPort).connected()) << lForm;
        mGateway.reset();
    }
}
