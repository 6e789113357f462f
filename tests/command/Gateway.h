// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A real gateway, whose instrument is not there unless a test starts one.
#ifndef OSX_TESTS_COMMAND_GATEWAY_H
#define OSX_TESTS_COMMAND_GATEWAY_H

#include <memory>
#include <string>

#include "support/Program.h"
#include "support/TcpPeer.h"

namespace test {

class Gateway {
public:
    Gateway()
        : mProgram({GATEWAY_PROGRAM, "--source", "127.0.0.1:" + std::to_string(mInstrumentPort),
                    "--port", std::to_string(mPort), "--frame-port", std::to_string(mFramePort),
                    "--debug-port", std::to_string(mLevelPort), "-RedirectPort",
                    std::to_string(mRedirectPort), "--system-interval", "100"}) {}

    bool isReady() { return mProgram.waitForOutput("clients on port"); }

    void startInstrument() {
        mInstrument = std::make_unique<Program>(std::vector<std::string>{
            INSTRUMENT_PROGRAM, "--port", std::to_string(mInstrumentPort), "--interval", "20"});
    }

    std::string clients() const { return addressOf(mPort); }
    std::string frames() const { return addressOf(mFramePort); }
    std::string redirect() const { return addressOf(mRedirectPort); }
    std::string levelPort() const { return std::to_string(mLevelPort); }

private:
    static std::string addressOf(unsigned short aPort) {
        return "127.0.0.1:" + std::to_string(aPort);
    }

    unsigned short mInstrumentPort = freePort();
    unsigned short mPort = freePort();
    unsigned short mFramePort = freePort();
    unsigned short mLevelPort = freePort();
    unsigned short mRedirectPort = freePort();
    std::unique_ptr<Program> mInstrument;
    Program mProgram;
};

}  // namespace test

#endif
