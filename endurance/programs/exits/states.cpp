// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "exits/states.h"

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "ace/Log_Msg.h"
#include "ace/SOCK_Stream.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace exits {

namespace {

constexpr int kChildStatus = 3;

/// Counts the threads that have come to where they are to be.
class Arrivals {
public:
    void arrive() {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        ++mArrived;
        mChanged.notify_all();
    }
    void waitFor(int aNumber) {
        std::unique_lock<std::mutex> lLock(mMutex);
        mChanged.wait(lLock, [&] { return mArrived >= aNumber; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    int mArrived = 0;
};

/// Never destroyed: the threads go on while the process ends.
Arrivals& arrivals() {
    static auto& lArrivals = *new Arrivals;
    return lArrivals;
}

/// Announces the thread at its first call. Not for callbacks, which share their threads.
void announce() {
    static thread_local bool lAnnounced = false;
    if (!lAnnounced) {
        lAnnounced = true;
        arrivals().arrive();
    }
}

/// Announces a kind of callback at its first call.
void announceCallback(std::atomic<bool>& aAnnounced) {
    if (!aAnnounced.exchange(true)) {
        arrivals().arrive();
    }
}

void beginTask(void (*aFunction)(void*), void* aArgument = nullptr) {
    void* lTask = nullptr;
    osxBeginTask(aFunction, 0, 0, aArgument, &lTask, "busy");
}

// --- loop threads inside callbacks -------------------------------------------------------------

void compute(std::chrono::microseconds aTime) {
    const auto lEnd = std::chrono::steady_clock::now() + aTime;
    while (std::chrono::steady_clock::now() < lEnd) {
    }
}

/// Several at once, so that mostly some loop thread is inside a callback; not so many that nothing
/// else is served.
int busyCallbacks(const Ports&) {
    static std::atomic<bool> lAnnounced{false};
    for (int lTimer = 0; lTimer < 4; ++lTimer) {
        osxCreateTimer(
            [](const void*) {
                compute(std::chrono::milliseconds(3));
                ACE_DEBUG((LM_DEBUG, "%t a line of a callback\n"));
                announceCallback(lAnnounced);
            },
            nullptr, 15, 1);
    }
    return 1;
}

// --- threads that log ---------------------------------------------------------------------------

[[noreturn]] void log(void*) {
    for (;;) {
        ACE_DEBUG((LM_DEBUG, "%t a line of the application\n"));
        osxReleaseMutex(nullptr);
        announce();
    }
}

/// Two that ACE knows, and one that it does not.
int logging(const Ports&) {
    beginTask(log);
    beginTask(log);
    std::thread(log, nullptr).detach();
    return 3;
}

// --- threads that wait without limit
// --------------------------------------------------------------

void receive(void* aQueue) {
    std::array<char, 8> lBuffer{};
    unsigned long lReceived = 0;
    arrivals().arrive();
    osxMsgRecv(aQueue, lBuffer.data(), lBuffer.size(), &lReceived, OSX_INFINITE_TIMEOUT);
}

void send(void* aQueue) {
    arrivals().arrive();
    for (;;) {
        char lByte = 0;
        osxMsgSend(aQueue, &lByte, 1, nullptr);
    }
}

void acquireSemaphore(void* aSemaphore) {
    arrivals().arrive();
    osxAcquireSemaphore(aSemaphore, OSX_WAIT_INFINITE, 0);
}

void acquireMutex(void* aMutex) {
    arrivals().arrive();
    osxAcquireMutex(aMutex, OSX_WAIT_INFINITE, 0);
}

int waiting(const Ports&) {
    static std::array<void*, 4> lObjects{};
    osxMsgQueueInit(16, 0, &lObjects[0], "empty");
    osxMsgQueueInit(16, 0, &lObjects[1], "full");
    osxCreateSemaphore(0, 1, &lObjects[2], "closed");
    osxCreateMutex(&lObjects[3], "held");
    osxAcquireMutex(lObjects[3], OSX_WAIT_INFINITE, 0);
    beginTask(receive, lObjects[0]);
    beginTask(send, lObjects[1]);
    beginTask(acquireSemaphore, lObjects[2]);
    beginTask(acquireMutex, lObjects[3]);
    return 4;
}

// --- timers that come, fire and go
// ----------------------------------------------------------------

[[noreturn]] void changeTimers(void*) {
    for (;;) {
        void* lTimer = osxCreateTimer([](const void*) {}, nullptr, 0, 0);
        void* lOther = osxCreateTimer([](const void*) {}, nullptr, 1000, 1);
        osxDestroyTimer(lOther);
        osxSleep(1);
        osxDestroyTimer(lTimer);
        announce();
    }
}

int firingTimers(const Ports&) {
    static std::atomic<bool> lAnnounced{false};
    for (int lTimer = 0; lTimer < 200; ++lTimer) {
        osxCreateTimer([](const void*) { announceCallback(lAnnounced); }, nullptr, 20 + lTimer % 10,
                       1);
    }
    beginTask(changeTimers);
    return 2;
}

// --- connections that come, talk and go
// -----------------------------------------------------------

std::string addressOf(unsigned short aPort) {
    return "127.0.0.1:" + std::to_string(aPort);
}

/// Resets instead of an orderly end, lest the many of them use up the machine's ports.
void reset(void*& aSocket) {
    const linger lReset{1, 0};
    ::setsockopt(static_cast<ACE_SOCK_Stream*>(aSocket)->get_handle(), SOL_SOCKET, SO_LINGER,
                 &lReset, sizeof lReset);
    osxCloseSocketAndRelease(aSocket);
}

void exchangeByte(unsigned short aPort) {
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, addressOf(aPort).c_str()) != 0) {
        return;
    }
    char lByte = 'x';
    unsigned long lReceived = 0;
    if (osxSocketSend(lSocket, &lByte, 1) == 0) {
        osxSocketRecv(lSocket, &lByte, 1, lReceived);
    }
    reset(lSocket);
}

[[noreturn]] void connectAgainAndAgain(void* aPorts) {
    for (;;) {
        exchangeByte(static_cast<const Ports*>(aPorts)->busy);
        announce();
    }
}

/// Stays in its receive for ever.
void receiveNothing(void* aPorts) {
    void* lSocket = nullptr;
    while (osxOpenSocket(lSocket, addressOf(static_cast<Ports*>(aPorts)->busy).c_str()) != 0) {
    }
    char lByte = 0;
    unsigned long lReceived = 0;
    arrivals().arrive();
    osxSocketRecv(lSocket, &lByte, 1, lReceived);
}

void echo(void* aSocket, void*&, unsigned char* aData, unsigned long aLength) {
    osxSocketSend(aSocket, aData, aLength);
}

void openPort(const Ports& aPorts) {
    static void* lPort = nullptr;
    if (lPort == nullptr) {
        osxRegisterPort(lPort, aPorts.busy, nullptr, nullptr, echo, nullptr, nullptr);
    }
}

int connections(const Ports& aPorts) {
    static Ports lPorts = aPorts;
    openPort(aPorts);
    beginTask(connectAgainAndAgain, &lPorts);
    beginTask(connectAgainAndAgain, &lPorts);
    beginTask(receiveNothing, &lPorts);
    return 3;
}

// --- children that log, connect and end
// -----------------------------------------------------------

/// Its parent may be gone by then, with the port.
[[noreturn]] void liveAsChild(unsigned short aPort) {
    ::alarm(60);
    ACE_DEBUG((LM_DEBUG, "%t a line of the child\n"));
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, addressOf(aPort).c_str()) == 0) {
        reset(lSocket);
    }
    if (gChildMayExit) {
        std::exit(kChildStatus);
    }
    ::_exit(kChildStatus);
}

void awaitChild(pid_t aChild) {
    int lStatus = 0;
    ::waitpid(aChild, &lStatus, 0);
    if (!WIFEXITED(lStatus) || WEXITSTATUS(lStatus) != kChildStatus) {
        print("a child ended with " + std::to_string(lStatus) + "\n");
    }
}

[[noreturn]] void makeChildren(void* aPorts) {
    for (;;) {
        const pid_t lChild = ::fork();
        if (lChild == 0) {
            liveAsChild(static_cast<const Ports*>(aPorts)->busy);
        }
        if (lChild > 0) {
            awaitChild(lChild);
        }
        announce();
    }
}

int children(const Ports& aPorts) {
    static Ports lPorts = aPorts;
    openPort(aPorts);
    beginTask(makeChildren, &lPorts);
    return 1;
}

const std::map<std::string, int (*)(const Ports&)> kStates{{"none", [](const Ports&) { return 0; }},
                                                           {"callbacks", busyCallbacks},
                                                           {"logging", logging},
                                                           {"waiting", waiting},
                                                           {"timers", firingTimers},
                                                           {"connections", connections},
                                                           {"children", children}};

}  // namespace

bool enter(const std::string& aState, const Ports& aPorts) {
    OSX_Reactor& lReactor = *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor.startReactor();
    lReactor.startExtraReactorThread();
    std::istringstream lNames(aState);
    int lThreads = 0;
    for (std::string lName; std::getline(lNames, lName, ',');) {
        const auto lState = kStates.find(lName);
        if (lState == kStates.end()) {
            return false;
        }
        lThreads += lState->second(aPorts);
    }
    arrivals().waitFor(lThreads);
    return true;
}

}  // namespace exits
