// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdint>
#include <string>

#include "fuzz/Bytes.h"
#include "fuzz/level.h"
#include "fuzz/loop.h"
#include "logging/Logging.h"
#include "osx/osx.h"
#include "support/TcpPeer.h"

namespace {

/// What the port has got so far.
std::size_t gReceived = 0;

void onData(void* aSocket, void*& aUserData, unsigned char* aData, unsigned long aLength) {
    const std::string lChunk(reinterpret_cast<const char*>(aData), aLength);
    const unsigned int lExpected = expectedLevel(lChunk, getLogLevel());
    NewLogLevelData(aSocket, aUserData, aData, aLength);
    require(getLogLevel() == lExpected);
    gReceived += aLength;
}

unsigned short openPort() {
    quietReactor();
    static void* gPort = nullptr;
    const unsigned short lNumber = test::freePort();
    osxRegisterPort(gPort, lNumber, nullptr, nullptr, &onData, nullptr, nullptr);
    return lNumber;
}

}  // namespace

// Chunks that a client of the debug-level port sends, one after another or several at once: each
// one that the port reads sets the level to the number at its front.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    static const unsigned short gPort = openPort();
    static test::TcpPeer gClient = test::TcpPeer::connect(gPort);
    require(gClient.connected());
    Bytes lBytes(aData, aSize);
    gReceived = 0;
    std::size_t lSent = 0;
    while (!lBytes.empty()) {
        const bool lAtOnce = lBytes.flag();
        const std::string lChunk = lBytes.text();
        require(gClient.send(lChunk));
        lSent += lChunk.size();
        if (!lAtOnce) {
            serveUntil([lSent] { return gReceived == lSent; });
        }
    }
    serveUntil([lSent] { return gReceived == lSent; });
    setLogLevel(0);
    return 0;
}
