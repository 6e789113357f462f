/// @file
/// A program for the tests of what it writes to standard error and the system log.
///
/// Usage: loggingProgram system-log [logging options]. It ends with status 7.

#include <cstdlib>
#include <string>

#include "ace/Log_Msg.h"
#include "logging/Logging.h"
#include "osx/osx.h"

namespace {

constexpr int kExitStatus = 7;

int runSystemLog() {
    ACE_DEBUG((LM_DEBUG, "%t debug %C\n", std::getenv("OSX_TEST_MARK")));
    ACE_ERROR((LM_ERROR, "%t error %C\nof two lines\n", std::getenv("OSX_TEST_MARK")));
    osxAcquireMutex(nullptr, OSX_WAIT_INFINITE, 0);
    return kExitStatus;
}

}  // namespace

int main(int aCount, char** aArguments) {
    if (const char* const lPort = std::getenv("OSX_TEST_DEBUG_PORT")) {
        setDebugLevelPortNumber(std::atol(lPort));
    }
    LogInit(aCount, aArguments, std::getenv("OSX_TEST_DEBUG_PORT") != nullptr);
    const std::string lCommand = aCount > 1 ? aArguments[1] : "";
    return lCommand == "system-log" ? runSystemLog() : EXIT_FAILURE;
}
