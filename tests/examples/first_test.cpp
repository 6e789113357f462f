// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <string>

#include "support/Program.h"
#include "support/TcpPeer.h"
#include "support/files.h"

using test::TcpPeer;

namespace {

std::string contents(const std::string& aFile) {
    return test::contentsOf(SOURCE_FOLDER + ("/" + aFile));
}

}  // namespace

TEST(FirstProgram, StandsInTheReadmeAsItIsCompiled) {
    const std::string lProgram = test::programIn(SOURCE_FOLDER "/examples/first/first.cpp");
    ASSERT_FALSE(lProgram.empty());
    EXPECT_NE(std::string::npos, contents("README.md").find("```cpp\n" + lProgram + "```"));
}

TEST(FirstProgram, GreetsAndEchoes) {
    const unsigned short lPort = test::freePort();
    const test::Program lProgram({FIRST_PROGRAM, std::to_string(lPort)});
    TcpPeer lClient = TcpPeer::connectOnceItListens(lPort);
    ASSERT_TRUE(lClient.connected());
    EXPECT_EQ("hello\n", lClient.receive(6));
    EXPECT_TRUE(lClient.isEchoed("and again"));
}

TEST(FirstProgram, ServesOthersBesideAClientThatNeverReads) {
    const unsigned short lPort = test::freePort();
    const test::Program lProgram({FIRST_PROGRAM, std::to_string(lPort)});
    TcpPeer lOther = TcpPeer::connectOnceItListens(lPort);
    TcpPeer lGreedy = TcpPeer::connect(lPort);
    // More than all buffers on the way take. It ends with a wait, or because the program closes.
    EXPECT_FALSE(lGreedy.send(std::string(std::size_t{64} << 20U, 'x')));
    EXPECT_EQ("hello\n", lOther.receive(6));
    EXPECT_TRUE(lOther.isEchoed("and again"));
}
