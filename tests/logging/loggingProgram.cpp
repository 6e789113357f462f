/// @file
/// A program for the tests of what only a process of its own shows: how it ends, and what it writes
/// to standard error and the system log.
///
/// Usage: loggingProgram COMMAND [logging options]. It prints "ready" once it logs, waits for its
/// standard input to end, and ends with status 7.

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>

#include "ace/Log_Msg.h"
#include "ace/Object_Manager.h"
#include "logging/Logging.h"
#include "logging/RedirectService.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace {

constexpr int kExitStatus = 7;

OSX_Reactor& reactor() {
    return *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
}

[[noreturn]] void logWithoutEnd() {
    for (;;) {
        ACE_DEBUG((LM_DEBUG, "%t a line of the application\n"));
        osxReleaseMutex(nullptr);
    }
}

/// Called when ACE frees what its logging stands on.
void onTearDown(void*, void*) {
    constexpr char kText[] = "ACE torn down\n";
    [[maybe_unused]] const ssize_t lIgnored = ::write(STDERR_FILENO, kText, sizeof kText - 1);
}

/// Threads that ACE knows of, and others, which know nothing of the end of the process.
void startBusyThreads() {
    static int lObject = 0;
    ACE_Object_Manager::at_exit(&lObject, onTearDown, nullptr);
    reactor().startReactor();
    reactor().startExtraReactorThread();
    void* lTask = nullptr;
    osxBeginTask([](void*) { logWithoutEnd(); }, 0, 0, nullptr, &lTask, "busy");
    std::thread(logWithoutEnd).detach();
}

void waitForEndOfInput() {
    std::cout << "ready" << std::endl;
    char lByte = 0;
    while (::read(STDIN_FILENO, &lByte, 1) > 0) {
    }
}

/// Every thread ends before the process does.
int runOrderly() {
    reactor().startReactor();
    ACE_DEBUG((LM_DEBUG, "%t a line of the application\n"));
    waitForEndOfInput();
    if (ACE_Log_Msg::msg_backend() == getRedirectService()) {
        LogDeinit();
    }
    reactor().stopReactor();
    reactor().stopAndDeleteReactorThreads();
    return kExitStatus;
}

int runBusy() {
    startBusyThreads();
    waitForEndOfInput();
    return kExitStatus;
}

int runHelp() {
    startBusyThreads();
    waitForEndOfInput();
    std::string lProgram = "program";
    std::string lHelp = "-help";
    char* lArguments[] = {lProgram.data(), lHelp.data(), nullptr};
    int lNumber = 2;
    LogInit(lNumber, lArguments, false);
    return kExitStatus;
}

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
    if (lCommand == "orderly") {
        return runOrderly();
    }
    if (lCommand == "busy") {
        return runBusy();
    }
    if (lCommand == "help") {
        return runHelp();
    }
    return lCommand == "system-log" ? runSystemLog() : EXIT_FAILURE;
}
