#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "support/Program.h"
#include "support/TcpPeer.h"

namespace {

std::string contents(const std::string& aFile) {
    std::ostringstream lText;
    lText << std::ifstream(SOURCE_FOLDER + ("/" + aFile)).rdbuf();
    return lText.str();
}

test::TcpPeer connectWithin30Seconds(unsigned short aPort) {
    for (int lTry = 0; lTry < 3000; ++lTry) {
        test::TcpPeer lPeer = test::TcpPeer::connect(aPort);
        if (lPeer.connected()) {
            return lPeer;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return test::TcpPeer();
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
    test::TcpPeer lClient = connectWithin30Seconds(lPort);
    ASSERT_TRUE(lClient.connected());
    EXPECT_EQ("hello\n", lClient.receive(6));
    lClient.send("and again");
    EXPECT_EQ("and again", lClient.receive(9));
}
