// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The programs of the page for those who come from elsewhere: before and after do the same, and
// stand on the page as they are compiled.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "commif/SerialLine.h"
#include "quotes.h"
#include "support/Program.h"
#include "support/TcpPeer.h"

namespace {

using test::Program;
using test::TcpPeer;

class Coming : public testing::TestWithParam<const char*> {
protected:
    static std::string program(const std::string& aWork) {
        return COMING_FOLDER "/" + aWork + "_" + GetParam();
    }

    /// The same, led to a terminal.
    static std::string programHere(const std::string& aWork) {
        return HERE_FOLDER "/" + aWork + "_" + GetParam() + "_here";
    }
};

using SerialProgram = Coming;
using QueueProgram = Coming;
using EchoProgram = Coming;

}  // namespace

INSTANTIATE_TEST_SUITE_P(ComingFrom, SerialProgram, testing::Values("posix", "osx"));
INSTANTIATE_TEST_SUITE_P(ComingFrom, QueueProgram, testing::Values("posix", "osx"));
INSTANTIATE_TEST_SUITE_P(ComingFrom, EchoProgram, testing::Values("ace", "osx"));

TEST(ComingPage, QuotesItsProgramsAsTheyAreCompiled) {
    int lCount = 0;
    for (const test::Quote& lQuote :
         test::quotesOn(SOURCE_FOLDER "/docs/coming-from-elsewhere.md")) {
        ASSERT_FALSE(lQuote.file.empty()) << "nobody says where this stands:\n" << lQuote.text;
        const std::string lSource =
            test::programIn(SOURCE_FOLDER "/examples/coming/" + lQuote.file);
        EXPECT_NE(std::string::npos, lSource.find(lQuote.text)) << "not in " << lQuote.file << ":\n"
                                                                << lQuote.text;
        ++lCount;
    }
    EXPECT_EQ(6, lCount);
}

TEST_P(SerialProgram, AsksAndPrintsTheAnswer) {
    const test::SerialLine lLine;
    ::setenv("OSX_TEST_TERMINAL", lLine.terminal().c_str(), 1);
    const std::string lName = GetParam();
    const std::string lPort = lName == "posix" ? lLine.terminal() : "1";
    Program lProgram({programHere("serial"), lPort, "ID?"});
    EXPECT_EQ("ID?\r\n", lLine.receive(5));
    lLine.send("ACME 7\r\n");
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_NE(std::string::npos, lProgram.output().find("ACME 7\r\n")) << lProgram.output();
}

TEST_P(SerialProgram, FailsWithoutAPort) {
    ::setenv("OSX_TEST_TERMINAL", "/dev/no-terminal", 1);
    const std::string lName = GetParam();
    Program lProgram({programHere("serial"), lName == "posix" ? "/dev/no-terminal" : "1", "ID?"});
    EXPECT_EQ(1, lProgram.wait());
}

TEST_P(QueueProgram, PassesTextsInOrder) {
    Program lProgram({program("queue"), "one", "two", "three"});
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_EQ("one\ntwo\nthree\n", lProgram.output());
}

TEST_P(QueueProgram, PassesMoreThanItHolds) {
    std::vector<std::string> lCommand{program("queue")};
    std::string lExpected;
    for (int lText = 0; lText < 40; ++lText) {
        lCommand.push_back(std::string(500, static_cast<char>('A' + lText % 26)));
        lExpected += lCommand.back() + "\n";
    }
    Program lProgram(lCommand);
    EXPECT_EQ(0, lProgram.wait());
    EXPECT_EQ(lExpected, lProgram.output());
}

TEST_P(EchoProgram, SendsBackWhatComes) {
    const unsigned short lPort = test::freePort();
    const Program lProgram({program("echo"), std::to_string(lPort)});
    TcpPeer lFirst = TcpPeer::connectOnceItListens(lPort);
    TcpPeer lSecond = TcpPeer::connect(lPort);
    EXPECT_TRUE(lFirst.isEchoed("first"));
    EXPECT_TRUE(lSecond.isEchoed("second"));
    lFirst.reset();
    EXPECT_TRUE(lSecond.isEchoed("and again"));
}
