// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A program for the tests of how a process ends and forks.
///
/// Usage: processProgram COMMAND [logging options]. It prints "ready" once it is in the state that
/// its command names, waits for its standard input to end, and ends with status 7.

#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <iostream>
#include <map>
#include <string>
#include <thread>

#include "ace/Log_Msg.h"
#include "ace/Log_Msg_Backend.h"
#include "ace/Log_Msg_Callback.h"
#include "ace/Method_Request.h"
#include "ace/Object_Manager.h"
#include "ace/Reactor.h"
#include "ace/SOCK_Stream.h"
#include "ace/Singleton.h"
#include "ace/Thread_Mutex.h"
#include "logging/Logging.h"
#include "logging/RedirectService.h"
#include "osx/ActiveObject.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"
#include "support/longForm.h"
#include "types/ObjectID.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kExitStatus = 7;
constexpr unsigned int kChildLimitS = 60;

OSX_Reactor& reactor() {
    return *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
}

unsigned short portFrom(const char* aVariable) {
    const char* const lPort = std::getenv(aVariable);
    return static_cast<unsigned short>(lPort == nullptr ? 0 : std::atol(lPort));
}

void print(const char* aText) {
    [[maybe_unused]] const ssize_t lIgnored = ::write(STDOUT_FILENO, aText, std::strlen(aText));
}

[[noreturn]] void logWithoutEnd() {
    for (;;) {
        ACE_DEBUG((LM_DEBUG, "%t a line of the application\n"));
        osxReleaseMutex(nullptr);
    }
}

[[noreturn]] void nameWithoutEnd() {
    for (int lObject = 0;;) {
        osxNameTableRegister(&lObject, "an object");
        osxNameTableUnRegister(&lObject);
    }
}

[[noreturn]] void makeTimersWithoutEnd() {
    for (;;) {
        void* lTimer = osxCreateTimer([](const void*) {}, nullptr, 1000, 0);
        osxDestroyTimer(lTimer);
    }
}

Clock::time_point gExitStart;

/// Called when ACE is torn down, as what is registered with it is destroyed.
void onTearDown(void*, void*) {
    print("ACE torn down\n");
    if (Clock::now() - gExitStart < std::chrono::milliseconds(50)) {
        print("in time\n");
    }
}

void watchTearDown() {
    static int lObject = 0;
    ACE_Object_Manager::at_exit(&lObject, onTearDown, nullptr);
}

/// Threads that ACE knows of, and others, which know nothing of the end of the process.
void startBusyThreads() {
    watchTearDown();
    reactor().startReactor();
    reactor().startExtraReactorThread();
    void* lTask = nullptr;
    osxBeginTask([](void*) { logWithoutEnd(); }, 0, 0, nullptr, &lTask, "busy");
    std::thread(logWithoutEnd).detach();
}

void waitForEndOfInput() {
    print("ready\n");
    char lByte = 0;
    while (::read(STDIN_FILENO, &lByte, 1) > 0) {
    }
    gExitStart = Clock::now();
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

/// Two loop threads, which have been seen to serve.
void startIdleLoops() {
    static std::atomic<int> lServing{0};
    reactor().startReactor();
    reactor().startExtraReactorThread();
    const auto lServe = [](const void*) {
        for (++lServing; lServing < 2;) {
            std::this_thread::yield();
        }
    };
    std::array<void*, 2> lTimers{osxCreateTimer(lServe, nullptr, 1, 0),
                                 osxCreateTimer(lServe, nullptr, 1, 0)};
    while (lServing < 2) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (void*& lTimer : lTimers) {
        osxDestroyTimer(lTimer);
    }
}

int runIdle() {
    watchTearDown();
    startIdleLoops();
    waitForEndOfInput();
    return kExitStatus;
}

/// A loop on a thread of the program's own.
int runOwnLoop() {
    watchTearDown();
    reactor().initReactor();
    std::promise<void> lServing;
    void* lTimer = osxCreateTimer(
        [](const void* aServing) {
            static_cast<std::promise<void>*>(const_cast<void*>(aServing))->set_value();
        },
        &lServing, 1, 0);
    std::thread([] { osxRunReactor(); }).detach();
    lServing.get_future().wait();
    osxDestroyTimer(lTimer);
    waitForEndOfInput();
    return kExitStatus;
}

int runBusy() {
    startBusyThreads();
    waitForEndOfInput();
    return kExitStatus;
}

/// The process file system cannot be read without a descriptor.
int runBlind() {
    startBusyThreads();
    waitForEndOfInput();
    const rlimit lNoDescriptors{0, 0};
    ::setrlimit(RLIMIT_NOFILE, &lNoDescriptors);
    std::cout << "not yet flushed\n";
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

/// Ends on a loop thread, inside a callback.
int runCallback() {
    startBusyThreads();
    waitForEndOfInput();
    osxCreateTimer([](const void*) { std::exit(kExitStatus); }, nullptr, 1, 0);
    for (;;) {
        ::pause();
    }
}

/// Ends in a callback of a port. The port's client connects, sends something and closes.
int endInPort(osxNewConnectionFnc_t aNewConnection, osxDataAvailFnc_t aDataAvail,
              osxNewDataFnc_t aNewData, osxClosedConnectionFnc_t aClosedConnection) {
    startBusyThreads();
    waitForEndOfInput();
    const unsigned short lNumber = portFrom("OSX_TEST_CHILD_PORT_1");
    void* lPort = nullptr;
    osxRegisterPort(lPort, lNumber, aNewConnection, aDataAvail, aNewData, aClosedConnection,
                    nullptr);
    void* lSocket = nullptr;
    osxOpenSocket(lSocket, ("127.0.0.1:" + std::to_string(lNumber)).c_str());
    osxSocketSend(lSocket, "x", 1);
    osxCloseSocketAndRelease(lSocket);
    for (;;) {
        ::pause();
    }
}

int runInNewConnection() {
    return endInPort([](void*, void*&) { std::exit(kExitStatus); }, nullptr, nullptr, nullptr);
}

int runInDataAvail() {
    return endInPort(
        nullptr, [](void*, void*&) -> long { std::exit(kExitStatus); }, nullptr, nullptr);
}

int runInNewData() {
    return endInPort(
        nullptr, nullptr,
        [](void*, void*&, unsigned char*, unsigned long) { std::exit(kExitStatus); }, nullptr);
}

int runInClosedConnection() {
    return endInPort(nullptr, nullptr, nullptr, [](void*, void*&) { std::exit(kExitStatus); });
}

int runInTask() {
    startBusyThreads();
    waitForEndOfInput();
    void* lTask = nullptr;
    osxBeginTask([](void*) { std::exit(kExitStatus); }, 0, 0, nullptr, &lTask, "ending");
    for (;;) {
        ::pause();
    }
}

class EndingRequest : public ACE_Method_Request {
    int call() override { std::exit(kExitStatus); }
};

int runInRequest() {
    startBusyThreads();
    waitForEndOfInput();
    static ActiveObject lObject;
    lObject.init();
    lObject.insert(new EndingRequest);
    for (;;) {
        ::pause();
    }
}

class EndingCallback : public ACE_Log_Msg_Callback {
    void log(ACE_Log_Record&) override { std::exit(kExitStatus); }
};

/// ACE calls it before it takes its log lock.
int runInMessageCallback() {
    startBusyThreads();
    waitForEndOfInput();
    static EndingCallback lCallback;
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    ACE_Log_Msg::instance()->msg_callback(&lCallback);
    ACE_DEBUG((LM_DEBUG, "the last line\n"));
    return 1;
}

int runOtherThread() {
    startBusyThreads();
    waitForEndOfInput();
    std::thread([] { std::exit(kExitStatus); }).join();
    return 1;
}

class Backend : public ACE_Log_Msg_Backend {
public:
    explicit Backend(std::function<void()> aFunction) : mFunction(std::move(aFunction)) {}
    int open(const ACE_TCHAR*) override { return 0; }
    int reset() override { return 0; }
    int close() override { return 0; }
    ssize_t log(ACE_Log_Record&) override {
        mFunction();
        return 0;
    }

private:
    std::function<void()> mFunction;
};

void install(Backend& aBackend) {
    ACE_Log_Msg::msg_backend(&aBackend);
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::CUSTOM);
}

/// Ends inside a log back end, which runs under ACE's log lock.
int runInBackend() {
    reactor().startReactor();
    waitForEndOfInput();
    static Backend lBackend([] { std::exit(kExitStatus); });
    install(lBackend);
    ACE_DEBUG((LM_DEBUG, "the last line\n"));
    return 1;
}

/// The same on a loop thread, which writes a line of the library's about a connection.
int runInBackendOfLoop() {
    static const pid_t lMain = ::gettid();
    static Backend lBackend([] {
        if (::gettid() != lMain) {
            std::exit(kExitStatus);
        }
    });
    reactor().startReactor();
    waitForEndOfInput();
    install(lBackend);
    const unsigned short lNumber = portFrom("OSX_TEST_CHILD_PORT_1");
    void* lPort = nullptr;
    osxRegisterPort(lPort, lNumber, nullptr, nullptr, nullptr, nullptr, nullptr);
    void* lSocket = nullptr;
    osxOpenSocket(lSocket, ("127.0.0.1:" + std::to_string(lNumber)).c_str());
    osxCloseSocketAndRelease(lSocket);
    for (;;) {
        ::pause();
    }
}

/// Another thread holds ACE's log lock for ever.
int runStalled() {
    reactor().startReactor();
    static std::promise<void> lStalled;
    static Backend lBackend([] {
        lStalled.set_value();
        for (;;) {
            ::pause();
        }
    });
    install(lBackend);
    std::thread([] { ACE_DEBUG((LM_DEBUG, "a line that does not end\n")); }).detach();
    lStalled.get_future().wait();
    waitForEndOfInput();
    return kExitStatus;
}

void logInit(bool aNetworkLogging) {
    std::string lProgram = "program";
    char* lArguments[] = {lProgram.data(), nullptr};
    int lNumber = 1;
    LogInit(lNumber, lArguments, aNetworkLogging);
}

/// @return the status of a child that runs a function and ends; if a signal ended it, as when it
///         hangs, the signal's number, negative.
template <class Function>
int inChild(Function aFunction) {
    const pid_t lChild = ::fork();
    if (lChild == 0) {
        ::alarm(kChildLimitS);
        std::exit(aFunction());
    }
    int lStatus = 0;
    ::waitpid(lChild, &lStatus, 0);
    return WIFEXITED(lStatus) ? WEXITSTATUS(lStatus) : -WTERMSIG(lStatus);
}

/// Each connection is reset, lest the many of them use up the machine's ports.
[[noreturn]] void connectWithoutEnd() {
    const std::string lAddress = "127.0.0.1:" + std::to_string(portFrom("OSX_TEST_PARENT_PORT"));
    for (;;) {
        void* lSocket = nullptr;
        if (osxOpenSocket(lSocket, lAddress.c_str()) == 0) {
            const linger lReset{1, 0};
            ::setsockopt(static_cast<ACE_SOCK_Stream*>(lSocket)->get_handle(), SOL_SOCKET,
                         SO_LINGER, &lReset, sizeof lReset);
            osxCloseSocketAndRelease(lSocket);
        }
    }
}

/// Whatever a thread can be in when another one forks.
void startThreadsOfAllKinds() {
    static void* lPort = nullptr;
    reactor().startReactor();
    reactor().startExtraReactorThread();
    osxRegisterPort(lPort, portFrom("OSX_TEST_PARENT_PORT"), nullptr, nullptr, nullptr, nullptr,
                    nullptr);
    for (void (*const lFunction)() :
         {static_cast<void (*)()>(logWithoutEnd), static_cast<void (*)()>(nameWithoutEnd),
          static_cast<void (*)()>(makeTimersWithoutEnd),
          static_cast<void (*)()>(connectWithoutEnd)}) {
        std::thread(lFunction).detach();
    }
}

/// Children of a busy process, one after another.
/// @return 7 if every one did what it had to, and ended with its status.
template <class Function>
int forkBusily(int aRounds, Function aInChild) {
    startThreadsOfAllKinds();
    waitForEndOfInput();
    for (int lRound = 0; lRound < test::rounds(aRounds); ++lRound) {
        const int lStatus = inChild(aInChild);
        if (lStatus != 3) {
            print(("child " + std::to_string(lRound) + " ended with " + std::to_string(lStatus) +
                   '\n')
                      .c_str());
            return 1;
        }
    }
    return kExitStatus;
}

int runForkAndExit() {
    return forkBusily(40, [] { return 3; });
}

int runForkAndQuit() {
    return forkBusily(40, [] {
        ::_exit(3);
        return 1;
    });
}

int runForkAndExecute() {
    return forkBusily(15, [] {
        ::execl("/bin/sh", "sh", "-c", "exit 3", nullptr);
        return 1;
    });
}

/// The child's child sets logging up once more, as a daemon would.
int runForkAndBecomeDaemon() {
    return forkBusily(10, [] {
        ::setsid();
        return inChild([] {
            logInit(portFrom("OSX_TEST_DEBUG_PORT") != 0);
            ACE_DEBUG((LM_DEBUG, "%t a line of the daemon\n"));
            reactor().startReactor();
            return 3;
        });
    });
}

int runForkAndUse() {
    return forkBusily(15, [] {
        ACE_DEBUG((LM_DEBUG, "%t a line of the child\n"));
        int lObject = 0;
        osxNameTableRegister(&lObject, "an object");
        osxNameTableUnRegister(&lObject);
        void* lTimer = osxCreateTimer([](const void*) {}, nullptr, 1000, 0);
        osxDestroyTimer(lTimer);
        return 3;
    });
}

int runForkAndDeinit() {
    return forkBusily(15, [] {
        LogDeinit();
        return 3;
    });
}

/// A child with ports of its own beside its parent.
int runForkAndInit() {
    return forkBusily(8, [] {
        getRedirectService()->setPortNumber(portFrom("OSX_TEST_CHILD_PORT_1"));
        setDebugLevelPortNumber(portFrom("OSX_TEST_CHILD_PORT_2"));
        logInit(true);
        void* lPort = nullptr;
        if (osxRegisterPort(lPort, portFrom("OSX_TEST_CHILD_PORT_3"), nullptr, nullptr, nullptr,
                            nullptr, nullptr) != 0) {
            return 1;
        }
        reactor().startReactor();
        osxUnregisterPort(lPort);
        LogDeinit();
        return 3;
    });
}

/// How long the quickest of some children takes to end.
int runForkTimed() {
    startIdleLoops();
    waitForEndOfInput();
    auto* const lStart = static_cast<Clock::time_point*>(::mmap(nullptr, sizeof(Clock::time_point),
                                                                PROT_READ | PROT_WRITE,
                                                                MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    auto lShortest = Clock::duration::max();
    for (int lRound = 0; lRound < 10; ++lRound) {
        inChild([lStart] {
            *lStart = Clock::now();
            return 3;
        });
        lShortest = std::min(lShortest, Clock::now() - *lStart);
    }
    return lShortest < std::chrono::milliseconds(50) ? kExitStatus : 1;
}

/// A child that wakes its reactor leaves nothing in its parent's.
int runForkAndWake() {
    reactor().initReactor();
    waitForEndOfInput();
    inChild([] {
        ACE_Reactor::instance()->notify();
        return 3;
    });
    ACE_Time_Value lNoWait(ACE_Time_Value::zero);
    return ACE_Reactor::instance()->handle_events(lNoWait) == 0 ? kExitStatus : 1;
}

/// Becomes a daemon after the set-up of logging: the child goes on where the process was.
int runDaemon() {
    if (::fork() != 0) {
        ::_exit(0);
    }
    reactor().startReactor();
    std::thread([] {
        for (;;) {
            ACE_DEBUG((LM_DEBUG, "%t a line of the daemon\n"));
            osxSleep(10);
        }
    }).detach();
    waitForEndOfInput();
    return kExitStatus;
}

/// As the daemon, but the child sets logging up once more.
int runDaemonAnew() {
    if (::fork() != 0) {
        ::_exit(0);
    }
    logInit(true);
    reactor().startReactor();
    std::thread([] {
        for (;;) {
            ACE_DEBUG((LM_DEBUG, "%t a line of the daemon\n"));
            osxSleep(10);
        }
    }).detach();
    waitForEndOfInput();
    return kExitStatus;
}

const std::map<std::string, int (*)()> kCommands{{"orderly", runOrderly},
                                                 {"idle", runIdle},
                                                 {"own-loop", runOwnLoop},
                                                 {"busy", runBusy},
                                                 {"blind", runBlind},
                                                 {"help", runHelp},
                                                 {"callback", runCallback},
                                                 {"in-new-connection", runInNewConnection},
                                                 {"in-data-avail", runInDataAvail},
                                                 {"in-new-data", runInNewData},
                                                 {"in-closed-connection", runInClosedConnection},
                                                 {"in-task", runInTask},
                                                 {"in-request", runInRequest},
                                                 {"in-message-callback", runInMessageCallback},
                                                 {"in-backend-of-loop", runInBackendOfLoop},
                                                 {"other-thread", runOtherThread},
                                                 {"in-backend", runInBackend},
                                                 {"stalled", runStalled},
                                                 {"fork-and-exit", runForkAndExit},
                                                 {"fork-and-quit", runForkAndQuit},
                                                 {"fork-and-execute", runForkAndExecute},
                                                 {"fork-and-become-daemon", runForkAndBecomeDaemon},
                                                 {"fork-and-use", runForkAndUse},
                                                 {"fork-and-deinit", runForkAndDeinit},
                                                 {"fork-and-init", runForkAndInit},
                                                 {"fork-timed", runForkTimed},
                                                 {"fork-and-wake", runForkAndWake},
                                                 {"daemon", runDaemon},
                                                 {"daemon-anew", runDaemonAnew}};

}  // namespace

int main(int aCount, char** aArguments) {
    if (const unsigned short lPort = portFrom("OSX_TEST_DEBUG_PORT")) {
        setDebugLevelPortNumber(lPort);
    }
    LogInit(aCount, aArguments, portFrom("OSX_TEST_DEBUG_PORT") != 0);
    const auto lCommand = kCommands.find(aCount > 1 ? aArguments[1] : "");
    return lCommand == kCommands.end() ? EXIT_FAILURE : lCommand->second();
}
