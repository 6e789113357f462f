// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The steps of the tutorial do what its page says, and stand on it as they are compiled.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <sstream>

#include "nmea/Sentence.h"
#include "quotes.h"
#include "support/Program.h"
#include "support/TcpPeer.h"
#include "support/waitUntil.h"

namespace {

using test::Program;
using test::TcpPeer;

/// @return how many whole sentences a text has.
int sentencesIn(const std::string& aText) {
    std::istringstream lLines(aText.substr(0, aText.rfind('\n') + 1));
    int lCount = 0;
    for (std::string lLine; std::getline(lLines, lLine);) {
        if (!lLine.empty() && lLine.back() == '\r') {
            lLine.pop_back();
        }
        lCount += nmea::isValid(lLine) ? 1 : 0;
    }
    return lCount;
}

/// An instrument on a line that each step finds as its serial port.
class Tutorial : public testing::Test {
protected:
    Tutorial() {
        std::string lTemplate = testing::TempDir() + "osx-tutorial-XXXXXX";
        mFolder = ::mkdtemp(lTemplate.data());
        ::setenv("OSX_TEST_TERMINAL", (mFolder + "/terminal").c_str(), 1);
    }
    ~Tutorial() override { std::filesystem::remove_all(mFolder); }

    void startInstrument(int aIntervalMs = 20) {
        mInstrument = std::make_unique<Program>(std::vector<std::string>{
            INSTRUMENT_PROGRAM, "--pty", "--port", "0", "--interval", std::to_string(aIntervalMs)});
        ASSERT_TRUE(mInstrument->waitForOutput("pty ") && mInstrument->waitForOutput("\n"));
        const std::string lSaid = mInstrument->output();
        const std::size_t lName = lSaid.find("/dev/");
        std::filesystem::remove(mFolder + "/terminal");
        std::filesystem::create_symlink(lSaid.substr(lName, lSaid.find('\n') - lName),
                                        mFolder + "/terminal");
    }

    /// The line is hung up.
    void stopInstrument() const {
        mInstrument->signal(SIGKILL);
        mInstrument->wait();
    }

    void start(const std::string& aStep, const std::vector<std::string>& aArguments = {}) {
        std::vector<std::string> lCommand{STEPS_FOLDER + ("/" + aStep + "_here"), "1"};
        lCommand.insert(lCommand.end(), aArguments.begin(), aArguments.end());
        mStep = std::make_unique<Program>(lCommand);
    }

    void startWithDiagnostics(const std::string& aStep) {
        start(aStep, {std::to_string(mPort), std::to_string(mLevelPort), "-RedirectPort",
                      std::to_string(mRedirectPort)});
    }

    bool printsSentences() {
        return test::waitUntil([this] { return sentencesIn(mStep->output()) >= 5; });
    }

    /// @return whether a client gets some more.
    static bool getsSentences(TcpPeer& aClient) {
        std::string lText;
        while (sentencesIn(lText) < 5) {
            const std::string lMore = aClient.receiveUntil("\n");
            if (lMore.empty()) {
                return false;
            }
            lText += lMore;
        }
        return true;
    }

    unsigned short mPort = test::freePort();
    unsigned short mLevelPort = test::freePort();
    unsigned short mRedirectPort = test::freePort();
    std::string mFolder;
    std::unique_ptr<Program> mInstrument;
    std::unique_ptr<Program> mStep;
};

}  // namespace

TEST_F(Tutorial, QuotesItsStepsAsTheyAreCompiled) {
    int lCount = 0;
    for (const test::Quote& lQuote : test::quotesOn(SOURCE_FOLDER "/docs/tutorial.md")) {
        ASSERT_FALSE(lQuote.file.empty()) << "nobody says where this stands:\n" << lQuote.text;
        const std::string lSource =
            test::programIn(SOURCE_FOLDER "/examples/tutorial/" + lQuote.file);
        EXPECT_NE(std::string::npos, lSource.find(lQuote.text)) << "not in " << lQuote.file << ":\n"
                                                                << lQuote.text;
        ++lCount;
    }
    EXPECT_GT(lCount, 9);
}

TEST_F(Tutorial, Step1PrintsWhatTheInstrumentSaysUntilTheLineIsLost) {
    startInstrument();
    start("step1");
    EXPECT_TRUE(printsSentences()) << mStep->output();
    stopInstrument();
    EXPECT_EQ(0, mStep->wait());
}

TEST_F(Tutorial, Step1FailsWithoutAPort) {
    start("step1");
    EXPECT_EQ(1, mStep->wait());
    EXPECT_FALSE(mStep->output().empty()) << "a line says why";
}

TEST_F(Tutorial, Step2PrintsItByAnotherTask) {
    startInstrument();
    start("step2");
    EXPECT_TRUE(printsSentences()) << mStep->output();
    stopInstrument();
    EXPECT_EQ(0, mStep->wait());
}

TEST_F(Tutorial, Step3ServesItToClients) {
    startInstrument();
    start("step3", {std::to_string(mPort)});
    TcpPeer lFirst = TcpPeer::connectOnceItListens(mPort);
    TcpPeer lSecond = TcpPeer::connect(mPort);
    EXPECT_TRUE(getsSentences(lFirst));
    EXPECT_TRUE(getsSentences(lSecond));
    stopInstrument();
    EXPECT_EQ(0, mStep->wait());
}

TEST_F(Tutorial, Step4IsWatchedAndSteered) {
    startInstrument();
    startWithDiagnostics("step4");
    TcpPeer lClient = TcpPeer::connectOnceItListens(mPort);
    EXPECT_TRUE(getsSentences(lClient));
    TcpPeer lWatcher = TcpPeer::connect(mRedirectPort);
    TcpPeer lControl = TcpPeer::connect(mLevelPort);
    lControl.send("3");
    const std::string lSaid = lWatcher.receiveUntil("] for 1 clients");
    EXPECT_NE(std::string::npos, lSaid.find("station: [$GP")) << lSaid;
    stopInstrument();
    EXPECT_EQ(0, mStep->wait());
}

TEST_F(Tutorial, Step5StopsWhenItIsTold) {
    startInstrument();
    startWithDiagnostics("step5");
    TcpPeer lClient = TcpPeer::connectOnceItListens(mPort);
    EXPECT_TRUE(getsSentences(lClient));
    mStep->signal(SIGTERM);
    EXPECT_EQ(0, mStep->wait());
    EXPECT_TRUE(lClient.waitForClose());
}

TEST_F(Tutorial, Step5FailsWhenTheLineIsLost) {
    startInstrument();
    startWithDiagnostics("step5");
    TcpPeer lClient = TcpPeer::connectOnceItListens(mPort);
    EXPECT_TRUE(getsSentences(lClient));
    stopInstrument();
    EXPECT_EQ(1, mStep->wait());
}

TEST_F(Tutorial, Step6KeepsItsClientsWhileTheInstrumentIsAway) {
    startWithDiagnostics("station");
    TcpPeer lClient = TcpPeer::connectOnceItListens(mPort);
    startInstrument(5);
    // The instrument's time is that since its start.
    EXPECT_NE(std::string::npos, lClient.receiveUntil(",000010.").find(",000010."));
    stopInstrument();
    startInstrument(200);
    EXPECT_NE(std::string::npos, lClient.receiveUntil(",00000").find(",00000"));
    EXPECT_TRUE(getsSentences(lClient));
    mStep->signal(SIGTERM);
    EXPECT_EQ(0, mStep->wait());
}
