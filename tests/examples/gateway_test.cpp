#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <sstream>

#include "nmea/Sentence.h"
#include "support/Program.h"
#include "support/TcpPeer.h"
#include "support/files.h"

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

/// A named pipe that holds as much as it can.
class FullPipe {
public:
    FullPipe() {
        std::string lTemplate = testing::TempDir() + "osx-pipe-XXXXXX";
        mName = std::string(::mkdtemp(lTemplate.data())) + "/pipe";
        ::mkfifo(mName.c_str(), 0600);
        mPipe = test::Descriptor(::open(mName.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
        while (::write(mPipe.get(), "x", 1) == 1) {
        }
    }
    ~FullPipe() { std::filesystem::remove_all(std::filesystem::path(mName).parent_path()); }
    FullPipe(const FullPipe&) = delete;
    FullPipe& operator=(const FullPipe&) = delete;
    const std::string& name() const { return mName; }

private:
    std::string mName;
    test::Descriptor mPipe;
};

}  // namespace

TEST_F(Gateway, ServesAndStopsThoughNobodyReadsItsOutput) {
    const FullPipe lPipe;
    startInstrument();
    std::vector<std::string> lCommand = gatewayCommand();
    lCommand.insert(lCommand.begin(), {"/bin/sh", "-c", "exec \"$@\" >" + lPipe.name(), "gateway"});
    mGateway = std::make_unique<Program>(lCommand);
    TcpPeer lClient = TcpPeer::connectOnceItListens(mPort);
    ASSERT_TRUE(lClient.connected());
    EXPECT_EQ(60, readSentences(lClient, 60));
    expectCleanStop();
}

TEST_F(Gateway, StopsCleanlyWhileItsInstrumentIsAbsent) {
    startGateway();
    expectCleanStop();
}

TEST(GatewayOptions, AreRefusedWhenUnknownOrOutOfRange) {
    for (const auto& lArguments : std::vector<std::vector<std::string>>{{"--port", "0"},
                                                                        {"--port", "65536"},
                                                                        {"--silence", "x"},
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
