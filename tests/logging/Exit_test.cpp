#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "logging/Program.h"
#include "support/TcpPeer.h"

using test::Program;
using test::TcpPeer;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int kExitStatus = 7;
constexpr int kRounds = 3;
/// Written when ACE frees what other threads may be using.
constexpr char kTornDown[] = "ACE torn down\n";

/// Runs a command of the logging program, with its lines going nowhere but, with network logging,
/// to the network.
class ProgramEnd : public testing::Test {
protected:
    static void useNetwork(unsigned short aDebugPort) {
        ::setenv("OSX_TEST_DEBUG_PORT", std::to_string(aDebugPort).c_str(), 1);
    }

    static std::vector<std::string> command(const std::string& aName,
                                            std::vector<std::string> aOptions) {
        aOptions.insert(aOptions.begin(), {Program::beside("logging_program"), aName});
        return aOptions;
    }
};

}  // namespace

TEST_F(ProgramEnd, IsSilentAndHasItsOwnStatus) {
    Program lProgram(command("orderly", {"-LogFile", "/dev/null"}));
    ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
    lProgram.endInput();
    EXPECT_EQ(kExitStatus, lProgram.wait());
    EXPECT_EQ("ready\n", lProgram.output());
}

TEST_F(ProgramEnd, WritesNothingToStandardErrorWhereItsLinesGo) {
    Program lProgram(command("orderly", {}));
    ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
    lProgram.waitForOutput("a line of the application\n");
    const std::size_t lBefore = lProgram.output().size();
    lProgram.endInput();
    EXPECT_EQ(kExitStatus, lProgram.wait());
    EXPECT_EQ("", lProgram.output().substr(lBefore));
}

TEST_F(ProgramEnd, IsSilentAfterNetworkLogging) {
    useNetwork(test::freePort());
    Program lProgram(command("orderly", {"-RedirectPort", std::to_string(test::freePort())}));
    ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
    lProgram.endInput();
    EXPECT_EQ(kExitStatus, lProgram.wait());
    EXPECT_EQ("ready\n", lProgram.output());
}

TEST_F(ProgramEnd, WhileThreadsLogIsSafe) {
    for (int lRound = 0; lRound < kRounds; ++lRound) {
        Program lProgram(command("busy", {"-LogFile", "/dev/null"}));
        ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
        lProgram.endInput();
        EXPECT_EQ(kExitStatus, lProgram.wait());
        EXPECT_EQ("ready\n", lProgram.output());
    }
}

TEST_F(ProgramEnd, WhileThreadsLogToStandardErrorIsSafe) {
    for (int lRound = 0; lRound < kRounds; ++lRound) {
        Program lProgram(command("busy", {}));
        ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
        lProgram.endInput();
        EXPECT_EQ(kExitStatus, lProgram.wait());
        EXPECT_THAT(lProgram.output(), Not(HasSubstr("Sanitizer")));
        EXPECT_THAT(lProgram.output(), Not(HasSubstr(kTornDown)));
    }
}

TEST_F(ProgramEnd, WhileThreadsLogToClientsIsSafe) {
    for (int lRound = 0; lRound < kRounds; ++lRound) {
        const unsigned short lPort = test::freePort();
        useNetwork(test::freePort());
        Program lProgram(command("busy", {"-RedirectPort", std::to_string(lPort)}));
        ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
        TcpPeer lReading = TcpPeer::connect(lPort);
        EXPECT_THAT(lReading.receiveUntil("a line of the application"), HasSubstr("application"));
        const TcpPeer lStalled = TcpPeer::connect(lPort);
        lProgram.endInput();
        EXPECT_EQ(kExitStatus, lProgram.wait());
        EXPECT_EQ("ready\n", lProgram.output());
    }
}

TEST_F(ProgramEnd, ByHelpWhileThreadsLogIsSafe) {
    for (int lRound = 0; lRound < kRounds; ++lRound) {
        Program lProgram(command("help", {"-LogFile", "/dev/null"}));
        ASSERT_TRUE(lProgram.waitForOutput("ready\n"));
        lProgram.endInput();
        EXPECT_EQ(0, lProgram.wait());
        EXPECT_THAT(lProgram.output(), Not(HasSubstr(kTornDown)));
        EXPECT_THAT(lProgram.output(), HasSubstr("commandline options"));
    }
}
