// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "exits/ways.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <thread>

#include "ace/Event_Handler.h"
#include "ace/Log_Msg.h"
#include "ace/Log_Msg_Backend.h"
#include "ace/Log_Msg_Callback.h"
#include "ace/Method_Request.h"
#include "ace/Reactor.h"
#include "logging/Logging.h"
#include "osx/ActiveObject.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace exits {

// No function makes an object with a destructor at its first call. The C library notes such an
// object under its lock of `exit`, and a child that is forked meanwhile could not exit.

namespace {

void* gStop = nullptr;

/// A signal handler may call this function of the library, and no other.
void askToStop(int) {
    osxReleaseSemaphore(gStop);
}

/// Says when the end begins, by the clock that the caller reads, too.
void sayThatItEnds() {
    gChildMayExit = false;
    timespec lNow{};
    ::clock_gettime(CLOCK_MONOTONIC, &lNow);
    print("ending at " + std::to_string(lNow.tv_sec) + " " + std::to_string(lNow.tv_nsec) + "\n");
}

[[noreturn]] void end() {
    sayThatItEnds();
    std::exit(kStatus);
}

[[noreturn]] void stay() {
    for (;;) {
        ::pause();
    }
}

OSX_Reactor& reactor() {
    return *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
}

// --- of the main thread -------------------------------------------------------------------------

int returnFromMain(const Ports&) {
    sayThatItEnds();
    return kStatus;
}

int callExit(const Ports&) {
    end();
}

int callUnderscoreExit(const Ports&) {
    sayThatItEnds();
    ::_exit(kStatus);
}

int callQuickExit(const Ports&) {
    sayThatItEnds();
    std::quick_exit(kStatus);
}

int askForHelp(const Ports&) {
    std::string lProgram = "exits";
    std::string lHelp = "-help";
    char* lArguments[] = {lProgram.data(), lHelp.data(), nullptr};
    int lNumber = 2;
    sayThatItEnds();
    LogInit(lNumber, lArguments, false);
    return 1;
}

// --- after a stop
// ---------------------------------------------------------------------------------

int stopAndExit(const Ports&) {
    sayThatItEnds();
    reactor().stopReactor();
    std::exit(kStatus);
}

int stopThreadsAndReturn(const Ports&) {
    sayThatItEnds();
    reactor().stopReactor();
    reactor().stopAndDeleteReactorThreads();
    LogDeinit();
    return kStatus;
}

/// As a service does: the handler of SIGTERM wakes the main thread, which stops everything.
int obeySigterm(const Ports& aPorts) {
    ::kill(::getpid(), SIGTERM);
    while (osxAcquireSemaphore(gStop, OSX_WAIT_INFINITE, 0) == OSX_ERR_SEM_ACQUIRE) {
        // A signal ended the wait; the one that matters left its mark in the count.
    }
    return stopThreadsAndReturn(aPorts);
}

/// The main thread runs the loop, too; another one obeys the signal.
int endOwnLoop(const Ports&) {
    std::thread([] {
        ::kill(::getpid(), SIGTERM);
        osxAcquireSemaphore(gStop, OSX_WAIT_INFINITE, 0);
        sayThatItEnds();
        osxStopReactor();
    }).detach();
    osxRunReactor();
    return kStatus;
}

// --- of other threads
// -----------------------------------------------------------------------------

int exitOnAnotherThread(const Ports&) {
    std::thread(end).detach();
    stay();
}

/// The process goes on without its main thread, until another one ends it.
int leaveTheMainThread(const Ports&) {
    static const pthread_t lMain = ::pthread_self();
    std::thread([] {
        ::pthread_join(lMain, nullptr);
        end();
    }).detach();
    ::pthread_exit(nullptr);
}

int exitInTask(const Ports&) {
    void* lTask = nullptr;
    osxBeginTask([](void*) { end(); }, 0, 0, nullptr, &lTask, "ending");
    stay();
}

class EndingRequest : public ACE_Method_Request {
    int call() override { end(); }
};
ActiveObject gObject;

int exitInRequest(const Ports&) {
    gChildMayExit = false;
    gObject.init();
    gObject.insert(std::make_unique<EndingRequest>().release());
    stay();
}

// --- in callbacks
// ---------------------------------------------------------------------------------

int exitInTimer(const Ports&) {
    osxCreateTimer([](const void*) { end(); }, nullptr, 1, 0);
    stay();
}

/// A client connects, sends a byte and closes.
[[noreturn]] void visit(unsigned short aPort) {
    void* lSocket = nullptr;
    while (osxOpenSocket(lSocket, ("127.0.0.1:" + std::to_string(aPort)).c_str()) != 0) {
    }
    osxSocketSend(lSocket, "x", 1);
    osxCloseSocketAndRelease(lSocket);
    stay();
}

[[noreturn]] void exitInPort(const Ports& aPorts, osxNewConnectionFnc_t aOpened,
                             osxDataAvailFnc_t aAvailable, osxNewDataFnc_t aData,
                             osxClosedConnectionFnc_t aClosed) {
    void* lPort = nullptr;
    osxRegisterPort(lPort, aPorts.ending, aOpened, aAvailable, aData, aClosed, nullptr);
    visit(aPorts.ending);
}

int exitInNewConnection(const Ports& aPorts) {
    exitInPort(aPorts, [](void*, void*&) { end(); }, nullptr, nullptr, nullptr);
}

int exitInDataAvailable(const Ports& aPorts) {
    exitInPort(aPorts, nullptr, [](void*, void*&) -> long { end(); }, nullptr, nullptr);
}

int exitInNewData(const Ports& aPorts) {
    exitInPort(
        aPorts, nullptr, nullptr, [](void*, void*&, unsigned char*, unsigned long) { end(); },
        nullptr);
}

int exitInClosedConnection(const Ports& aPorts) {
    exitInPort(aPorts, nullptr, nullptr, nullptr, [](void*, void*&) { end(); });
}

class EndingHandler : public ACE_Event_Handler {
public:
    int handle_input(ACE_HANDLE) override { end(); }
};
EndingHandler gHandler;

/// A handler of the application's own, which ACE calls.
int exitInHandler(const Ports&) {
    ACE_Reactor::instance()->notify(&gHandler, ACE_Event_Handler::READ_MASK);
    stay();
}

// --- in logging
// -----------------------------------------------------------------------------------

/// Whether it is the thread whose next line ends the process.
thread_local bool gEndsByLine = false;

class EndingCallback : public ACE_Log_Msg_Callback {
    void log(ACE_Log_Record&) override { end(); }
};
EndingCallback gCallback;

/// ACE calls it before it takes its log lock.
int exitInMessageCallback(const Ports&) {
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    ACE_Log_Msg::instance()->msg_callback(&gCallback);
    ACE_DEBUG((LM_DEBUG, "the last line\n"));
    return 1;
}

class EndingBackend : public ACE_Log_Msg_Backend {
    int open(const ACE_TCHAR*) override { return 0; }
    int reset() override { return 0; }
    int close() override { return 0; }
    ssize_t log(ACE_Log_Record&) override {
        if (gEndsByLine) {
            end();
        }
        return 0;
    }
};
EndingBackend gBackend;

/// ACE calls it with its log lock held.
int exitInBackend(const Ports&) {
    ACE_Log_Msg::msg_backend(&gBackend);
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::CUSTOM);
    gEndsByLine = true;
    ACE_DEBUG((LM_DEBUG, "the last line\n"));
    return 1;
}

const std::map<std::string, Way> kWays{{"return", returnFromMain},
                                       {"exit", callExit},
                                       {"_exit", callUnderscoreExit},
                                       {"quick_exit", callQuickExit},
                                       {"help", askForHelp},
                                       {"stop-exit", stopAndExit},
                                       {"stop-return", stopThreadsAndReturn},
                                       {"sigterm", obeySigterm},
                                       {"own-loop", endOwnLoop},
                                       {"thread", exitOnAnotherThread},
                                       {"pthread_exit", leaveTheMainThread},
                                       {"task", exitInTask},
                                       {"request", exitInRequest},
                                       {"timer", exitInTimer},
                                       {"new-connection", exitInNewConnection},
                                       {"data-available", exitInDataAvailable},
                                       {"new-data", exitInNewData},
                                       {"closed-connection", exitInClosedConnection},
                                       {"handler", exitInHandler},
                                       {"message-callback", exitInMessageCallback},
                                       {"backend", exitInBackend}};

}  // namespace

Way wayOf(const std::string& aName) {
    const auto lWay = kWays.find(aName);
    return lWay == kWays.end() ? nullptr : lWay->second;
}

void catchSigterm() {
    osxCreateSemaphore(0, 1, &gStop, "stop");
    struct sigaction lAction{};
    lAction.sa_handler = askToStop;
    ::sigaction(SIGTERM, &lAction, nullptr);
}

}  // namespace exits
