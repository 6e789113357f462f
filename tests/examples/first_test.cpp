#include <gtest/gtest.h>

#include <string>

#include "support/Program.h"
#include "support/TcpPeer.h"
#include "support/files.h"

namespace {

std::string contents(const std::string& aFile) {
    return test::contentsOf(SOURCE_FOLDER + ("/" + aFile));
}

}  // namespace

TEST(FirstProgram, StandsInTheReadmeAsItIsCompiled) {
    const std::string lProgram = contents("examples/first/first.cpp");
    ASSERT_FALSE(lProgram.empty());
    EXPECT_NE(std::string::npos, contents("README.md").find("```cpp\n" + lProgram + "```"));
}

TEST(FirstProgram, GreetsAndEchoes) {
    const unsigned short lPort = test::freePort();
    const test::Program lProgram({FIRST_PROGRAM, std::to_string(lPort)});
    test::TcpPeer lClient = test::TcpPeer::connectOnceItListens(lPort);
    ASSERT_TRUE(lClient.connected());
    EXPECT_EQ("hello\n", lClient.receive(6));
    EXPECT_TRUE(lClient.isEchoed("and again"));
}
