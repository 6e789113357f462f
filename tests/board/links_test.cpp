// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The board's connections with the outside: the Ethernet in both directions and the UART.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <numeric>
#include <string>
#include <vector>

#include "commif/commif.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes countingBytes(std::size_t aSize) {
    Bytes lBytes(aSize);
    std::iota(lBytes.begin(), lBytes.end(), static_cast<unsigned char>(0));
    return lBytes;
}

/// The service on the other machine that sends back what it gets. The emulated processor may need
/// more than the library's limit for one connection when its own machine is busy.
void* connectToEchoService() {
    void* lSocket = nullptr;
    for (int lTry = 0; lTry < 50; ++lTry) {
        if (osxOpenSocket(lSocket, std::getenv("OSX_BOARD_HOST")) == 0) {
            return lSocket;
        }
        osxSleep(100);
    }
    return nullptr;
}

/// A port whose one client talks first; what it says is sent back to it.
class EchoPort {
public:
    EchoPort() {
        reactor()->startReactor();
        osxRegisterPort(mPort, std::strtoul(std::getenv("OSX_BOARD_PORT"), nullptr, 10), nullptr,
                        nullptr, newData, nullptr, this);
    }
    ~EchoPort() {
        osxUnregisterPort(mPort);
        reactor()->stopAndDeleteReactorThreads();
    }
    EchoPort(const EchoPort&) = delete;
    EchoPort& operator=(const EchoPort&) = delete;

    bool waitFor(const std::string& aText) {
        std::unique_lock<std::mutex> lLock(mMutex);
        return mArrived.wait_for(lLock, std::chrono::seconds(60),
                                 [&] { return mReceived.find(aText) != std::string::npos; });
    }

private:
    static OSX_Reactor* reactor() {
        return ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    }

    static void newData(void* aSocket, void*& aSelf, unsigned char* aData, unsigned long aLength) {
        auto* const lSelf = static_cast<EchoPort*>(aSelf);
        osxSocketSend(aSocket, aData, aLength);
        const std::lock_guard<std::mutex> lGuard(lSelf->mMutex);
        lSelf->mReceived.append(reinterpret_cast<const char*>(aData), aLength);
        lSelf->mArrived.notify_all();
    }

    std::mutex mMutex;
    std::condition_variable mArrived;
    std::string mReceived;
    void* mPort = nullptr;
};

int openUartToTheHost() {
    commIfDevParams_t lParams{};
    lParams.devType = eSERIAL;
    lParams.serial.portNr = 4;
    lParams.serial.readTimeout = 30000;
    lParams.serial.baudRate = 115200;
    lParams.serial.dataBits = 8;
    int lDesc = -1;
    EXPECT_EQ(COMMIF_OK, commIfOpen(&lDesc, &lParams, nullptr));
    return lDesc;
}

}  // namespace

TEST(Ethernet, CarriesDataToAnotherMachineAndBack) {
    const Bytes lSent = countingBytes(40000);
    Bytes lReceived(lSent.size());
    unsigned long lCount = 0;
    void* lSocket = connectToEchoService();
    ASSERT_NE(nullptr, lSocket);
    EXPECT_EQ(0U, osxSocketSend(lSocket, lSent.data(), lSent.size()));
    EXPECT_EQ(0U, osxSocketRecv(lSocket, lReceived.data(), lReceived.size(), lCount));
    EXPECT_EQ(lSent, lReceived);
    osxCloseSocketAndRelease(lSocket);
}

// The other machine says "hello" until it gets it back, and then "goodbye".
TEST(Ethernet, BringsAClientOfAnotherMachineToAPort) {
    EchoPort lPort;
    EXPECT_TRUE(lPort.waitFor("goodbye"));
}

TEST(Uart, CarriesEveryByteValueToAnotherMachineAndBack) {
    Bytes lSent = countingBytes(256);
    Bytes lReceived(lSent.size());
    unsigned long lCount = 0;
    const int lDesc = openUartToTheHost();
    EXPECT_EQ(COMMIF_OK, commIfWrite(lDesc, lSent.data(), lSent.size(), &lCount));
    EXPECT_EQ(lSent.size(), lCount);
    EXPECT_EQ(COMMIF_OK, commIfRead(lDesc, lReceived.data(), lReceived.size(), &lCount));
    EXPECT_EQ(lSent, lReceived);
    EXPECT_EQ(COMMIF_OK, commIfClose(lDesc));
}
