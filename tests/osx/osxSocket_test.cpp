#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "osx/osx.h"
#include "support/LogCapture.h"
#include "support/TcpPeer.h"

namespace {
constexpr auto kFailed = static_cast<unsigned long>(-1);
}

TEST(Socket, SendsAndReceives) {
    test::TcpListener lListener;
    void* lSocket = nullptr;
    ASSERT_EQ(0UL, osxOpenSocket(lSocket, lListener.address().c_str()));
    test::TcpPeer lPeer = lListener.accept();
    EXPECT_EQ(0UL, osxSocketSend(lSocket, "hello", 5UL));
    EXPECT_EQ("hello", lPeer.receive(5));
    lPeer.send("abc");
    char lBuffer[3] = {};
    unsigned long lReceived = 0;
    EXPECT_EQ(0UL, osxSocketRecv(lSocket, lBuffer, 3, lReceived));
    EXPECT_EQ(3UL, lReceived);
    EXPECT_EQ("abc", std::string(lBuffer, 3));
    EXPECT_EQ(0UL, osxCloseSocketAndRelease(lSocket));
    EXPECT_EQ(nullptr, lSocket);
}
