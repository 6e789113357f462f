// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A program for the tests of what it writes to standard error and the system log.
///
/// Usage: loggingProgram system-log|to-network [logging options]. It ends with status 7.

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include "ace/Log_Msg.h"
#include "logging/Logging.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace {

constexpr int kExitStatus = 7;

int runSystemLog() {
    ACE_DEBUG((LM_DEBUG, "%t debug %C\n", std::getenv("OSX_TEST_MARK")));
    ACE_ERROR((LM_ERROR, "%t error %C\nof two lines\n", std::getenv("OSX_TEST_MARK")));
    osxAcquireMutex(nullptr, OSX_WAIT_INFINITE, 0);
    return kExitStatus;
}

/// Lines that show clients that they are known, until the end of the input. Then four megabytes,
/// and the end of the process right behind them.
int runToNetwork() {
    ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->startReactor();
    std::atomic<bool> lInputEnded{false};
    std::thread lInput([&] {
        char lByte = 0;
        while (::read(STDIN_FILENO, &lByte, 1) > 0) {
        }
        lInputEnded = true;
    });
    while (!lInputEnded) {
        ACE_DEBUG((LM_DEBUG, "a line\n"));
        osxSleep(5);
    }
    lInput.join();
    const std::string lText(1000, 'x');
    for (int lLine = 0; lLine < 3900; ++lLine) {
        ACE_DEBUG((LM_DEBUG, "%C\n", lText.c_str()));
    }
    ACE_DEBUG((LM_DEBUG, "the last line\n"));
    return kExitStatus;
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (const char* const lPort = std::getenv("OSX_TEST_DEBUG_PORT")) {
        setDebugLevelPortNumber(std::atol(lPort));
    }
    LogInit(aCount, aArguments, std::getenv("OSX_TEST_DEBUG_PORT") != nullptr);
    const std::string lCommand = aCount > 1 ? aArguments[1] : "";
    if (lCommand == "to-network") {
        return runToNetwork();
    }
    return lCommand == "system-log" ? runSystemLog() : EXIT_FAILURE;
}
