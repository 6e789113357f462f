// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "Play.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <map>
#include <thread>

#include "ace/Reactor.h"
#include "ace/SOCK_Stream.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace schedules {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int kActors = 2;
constexpr unsigned int kActions = 8;
constexpr unsigned int kMostWaiting = 4;  ///< Connections; the ports have room for some more.
constexpr std::chrono::seconds kLimit(60);
/// A timer's destruction that took longer has given up waiting for its callback.
constexpr std::chrono::milliseconds kSurelyWaited(200);

Play* gCurrent = nullptr;

OSX_Reactor& reactor() {
    return *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
}

template <class Condition>
void await(Condition aCondition, const char* aWhat) {
    const auto lEnd = Clock::now() + kLimit;
    while (!aCondition()) {
        require(Clock::now() < lEnd, aWhat);
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
}

int descriptorOf(const void* aSocket) {
    return static_cast<const ACE_SOCK_Stream*>(aSocket)->get_handle();
}

/// In a callback of a connection: no other one of it runs, and none after its end.
class Inside {
public:
    explicit Inside(Session& aSession) : mSession(aSession) {
        require(mSession.inside++ == 0, "two callbacks of a connection overlap");
        require(!mSession.closed, "a callback comes after the end of its connection");
    }
    ~Inside() { --mSession.inside; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

private:
    Session& mSession;
};

void onNew(void* aSocket, void*& aUserData) {
    aUserData = &Play::current().opened(aSocket);
}

void onData(void*, void*& aUserData, unsigned char* aData, unsigned long aLength) {
    Session& lSession = *static_cast<Session*>(aUserData);
    const Inside lInside(lSession);
    lSession.received.append(reinterpret_cast<const char*>(aData), aLength);
}

long onAvailable(void* aSocket, void*& aUserData) {
    std::array<unsigned char, 1000> lData;
    const ssize_t lCame = ::recv(descriptorOf(aSocket), lData.data(), lData.size(), MSG_DONTWAIT);
    if (lCame <= 0) {
        return lCame == -1 && errno == EWOULDBLOCK ? 0 : -1;
    }
    onData(aSocket, aUserData, lData.data(), static_cast<unsigned long>(lCame));
    return 0;
}

void onClosed(void*, void*& aUserData) {
    Session& lSession = *static_cast<Session*>(aUserData);
    const Inside lInside(lSession);
    lSession.closed = true;
    Play::current().closed(lSession);
}

/// @return a port that was free a moment ago, below those that the kernel gives to clients.
unsigned short freePort() {
    static unsigned int lNext = static_cast<unsigned int>(::getpid()) * 61U;
    for (;;) {
        sockaddr_in lAddress{};
        lAddress.sin_family = AF_INET;
        lAddress.sin_port = htons(static_cast<std::uint16_t>(10000U + lNext++ % 20000U));
        const int lSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int lBound =
            ::bind(lSocket, reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress);
        ::close(lSocket);
        if (lBound == 0) {
            return ntohs(lAddress.sin_port);
        }
    }
}

/// A connection to a port of this process.
int connectTo(unsigned short aPort) {
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_port = htons(aPort);
    lAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int lSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(::connect(lSocket, reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress) == 0,
            "a port does not listen");
    return lSocket;
}

void sendAll(int aSocket, const std::string& aText) {
    std::size_t lSent = 0;
    while (lSent < aText.size()) {
        const ssize_t lTaken =
            ::send(aSocket, aText.data() + lSent, aText.size() - lSent, MSG_NOSIGNAL);
        if (lTaken <= 0) {
            return;  // the application has ended the connection
        }
        lSent += static_cast<std::size_t>(lTaken);
    }
}

void resetAtClose(int aSocket) {
    const linger lNone{1, 0};
    ::setsockopt(aSocket, SOL_SOCKET, SO_LINGER, &lNone, sizeof lNone);
}

/// The calls of one timer.
struct Calls {
    std::atomic<int> begun{0};
    std::atomic<int> inside{0};
    std::atomic<bool> destroyed{false};
};

void onTimer(const void* aCalls) {
    auto& lCalls = *static_cast<Calls*>(const_cast<void*>(aCalls));
    require(!lCalls.destroyed, "a timer's callback begins after the timer was destroyed");
    ++lCalls.inside;
    ++lCalls.begun;
    --lCalls.inside;
}

/// A handler of the application's own, counted, as its threads and the loop's share it.
class PipeHandler : public ACE_Event_Handler {
public:
    PipeHandler() {
        reference_counting_policy().value(ACE_Event_Handler::Reference_Counting_Policy::ENABLED);
        require(::pipe2(mPipe.data(), O_CLOEXEC | O_NONBLOCK) == 0, "no pipe");
    }
    ~PipeHandler() override {
        ::close(mPipe[0]);
        ::close(mPipe[1]);
    }
    PipeHandler(const PipeHandler&) = delete;
    PipeHandler& operator=(const PipeHandler&) = delete;

    Reference_Count add_reference() override { return ++mReferences; }
    Reference_Count remove_reference() override {
        const Reference_Count lLeft = --mReferences;
        if (lLeft == 0) {
            delete this;
        }
        return lLeft;
    }
    ACE_HANDLE get_handle() const override { return mPipe[0]; }
    int handle_input(ACE_HANDLE) override {
        require(mInside++ == 0, "two calls of a handler overlap");
        char lByte = 0;
        require(::read(mPipe[0], &lByte, 1) == 1, "a handler is called without input");
        --mInside;
        ++mCalls;
        return 0;
    }
    int handle_exception(ACE_HANDLE) override {
        ++mNotified;
        return 0;
    }
    void give() const { require(::write(mPipe[1], "x", 1) == 1, "a pipe takes nothing"); }
    int calls() const { return mCalls; }
    int notified() const { return mNotified; }

private:
    std::array<int, 2> mPipe{};
    std::atomic<int> mInside{0};
    std::atomic<int> mCalls{0};
    std::atomic<int> mNotified{0};
    std::atomic<Reference_Count> mReferences{1};
};

}  // namespace

Ports Ports::open() {
    Ports lPorts{freePort(), 0};
    void* lPort = nullptr;  // they stay open
    osxRegisterPort(lPort, lPorts.reading, &onNew, nullptr, &onData, &onClosed, nullptr);
    lPorts.telling = freePort();
    osxRegisterPort(lPort, lPorts.telling, &onNew, &onAvailable, nullptr, &onClosed, nullptr);
    return lPorts;
}

Play::Play(std::uint32_t aSeed) : mSeed(aSeed) {
    gCurrent = this;
}

Play::~Play() = default;

Play& Play::current() {
    return *gCurrent;
}

void Play::run(const Ports& aPorts) {
    startLoop();
    std::vector<std::thread> lActors;
    for (unsigned int lActor = 0; lActor < kActors; ++lActor) {
        lActors.emplace_back([this, lActor, &aPorts] { act(lActor, aPorts); });
    }
    for (std::thread& lActor : lActors) {
        lActor.join();
    }
    settle();
    reactor().stopAndDeleteReactorThreads();
    compare();
}

/// One to three loop threads.
void Play::startLoop() {
    reactor().startReactor();
    for (std::uint32_t lExtra = 0; lExtra < mSeed % 3; ++lExtra) {
        reactor().startExtraReactorThread();
    }
}

void Play::restartLoop() {
    reactor().stopAndDeleteReactorThreads();
    startLoop();
}

/// The first actor alone starts and stops loop threads.
void Play::act(unsigned int aThread, const Ports& aPorts) {
    Random lRandom(mSeed * kActors + aThread + 1);
    for (unsigned int lAction = 0; lAction < kActions; ++lAction) {
        switch (lRandom() % 10) {
            case 0:
            case 1:
                connect(lRandom, aPorts.reading);
                break;
            case 2:
            case 3:
                connect(lRandom, aPorts.telling);
                break;
            case 4:
                endAny(lRandom);
                break;
            case 5:
                suspendAny(lRandom);
                break;
            case 6:
            case 7:
                useTimer(lRandom);
                break;
            case 8:
                useOwnHandler(lRandom);
                break;
            default:
                if (aThread == 0) {
                    restartLoop();
                }
        }
    }
}

// --- connections ---

Session& Play::opened(void* aSocket) {
    const std::lock_guard<std::mutex> lLock(mMutex);
    mSessions.emplace_back();
    mSessions.back().socket = aSocket;
    mLive.push_back(&mSessions.back());
    ++mOpened;
    return mSessions.back();
}

void Play::closed(Session& aSession) {
    const std::lock_guard<std::mutex> lLock(mMutex);
    mLive.erase(std::find(mLive.begin(), mLive.end(), &aSession));
    ++mClosed;
}

/// A client that says its name and more, in a few pieces, and leaves.
void Play::connect(Random& aRandom, unsigned short aPort) {
    await([this] { return mConnected - mOpened < kMostWaiting; }, "a connection is not accepted");
    Sent lSent{"<" + std::to_string(++mConnected) + ">", aRandom() % 4 == 0};
    const int lSocket = connectTo(aPort);
    sendAll(lSocket, lSent.text);
    for (unsigned int lPiece = aRandom() % 3; lPiece > 0; --lPiece) {
        const std::string lText(aRandom() % 5000 + 1, static_cast<char>('A' + aRandom() % 26));
        sendAll(lSocket, lText);
        lSent.text += lText;
    }
    if (lSent.wasReset) {
        resetAtClose(lSocket);
    }
    ::close(lSocket);
    const std::lock_guard<std::mutex> lLock(mMutex);
    mSent.push_back(lSent);
}

Session* Play::any(Random& aRandom) {
    return mLive.empty() ? nullptr : mLive[aRandom() % mLive.size()];
}

bool Play::isLive(const Session* aSession) const {
    return std::find(mLive.begin(), mLive.end(), aSession) != mLive.end();
}

void Play::endAny(Random& aRandom) {
    const std::lock_guard<std::mutex> lLock(mMutex);
    if (Session* const lSession = any(aRandom)) {
        lSession->endedHere = true;
        osxCloseSocket(lSession->socket);
    }
}

void Play::suspendAny(Random& aRandom) {
    const Session* lSession = nullptr;
    {
        const std::lock_guard<std::mutex> lLock(mMutex);
        lSession = any(aRandom);
        if (lSession == nullptr) {
            return;
        }
        ACE_Reactor::instance()->suspend_handler(descriptorOf(lSession->socket));
    }
    std::this_thread::yield();
    const std::lock_guard<std::mutex> lLock(mMutex);
    if (isLive(lSession)) {
        ACE_Reactor::instance()->resume_handler(descriptorOf(lSession->socket));
    }
}

// --- timers and handlers ---

/// A timer that fires, or is destroyed at any moment before or after.
void Play::useTimer(Random& aRandom) {
    auto* const lCalls = new Calls;  // a late callback would still find it
    const bool lIsPeriodic = aRandom() % 2 == 0;
    const bool lIsAwaited = aRandom() % 2 == 0;
    void* lTimer =
        osxCreateTimer(&onTimer, lCalls, static_cast<long>(aRandom() % 2 + 1), lIsPeriodic ? 1 : 0);
    if (lIsAwaited) {
        await([&] { return lCalls->begun >= (lIsPeriodic ? 2 : 1); }, "a timer does not fire");
    }
    if (aRandom() % 3 == 0) {
        osxCancelTimer(lTimer);
    }
    const auto lStart = Clock::now();
    osxDestroyTimer(lTimer);
    if (Clock::now() - lStart < kSurelyWaited) {
        lCalls->destroyed = true;
        require(lCalls->inside == 0, "a timer's callback runs when the timer has been destroyed");
        require(lIsPeriodic || lCalls->begun <= 1, "a timer fires twice");
    }
}

/// One that is called for each byte, told once, and removed.
void Play::useOwnHandler(Random& aRandom) {
    auto* const lHandler = new PipeHandler;
    const ACE_Event_Handler_var lOwner(lHandler);
    ACE_Reactor& lReactor = *ACE_Reactor::instance();
    require(lReactor.register_handler(lHandler, ACE_Event_Handler::READ_MASK) == 0,
            "a handler is not registered");
    const int lBytes = static_cast<int>(aRandom() % 3);
    for (int lByte = 1; lByte <= lBytes; ++lByte) {
        lHandler->give();
        await([&] { return lHandler->calls() >= lByte; }, "a handler is not called");
    }
    require(lReactor.remove_handler(
                lHandler, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL) == 0,
            "a handler is not removed");
    require(lReactor.notify(lHandler, ACE_Event_Handler::EXCEPT_MASK) == 0, "no notification");
    await([&] { return lHandler->notified() == 1; }, "a notification is lost");
}

// --- the end ---

void Play::settle() {
    await([this] { return mOpened == mConnected; }, "a connection is lost");
    await([this] { return mClosed == mOpened; }, "the end of a connection is lost");
}

/// What an orderly client has sent has come, and of another's the beginning.
void Play::compare() const {
    std::map<std::string, const Sent*> lByName;
    for (const Sent& lSent : mSent) {
        lByName[lSent.text.substr(0, lSent.text.find('>') + 1)] = &lSent;
    }
    for (const Session& lSession : mSessions) {
        const auto lFound =
            lByName.find(lSession.received.substr(0, lSession.received.find('>') + 1));
        if (lFound == lByName.end()) {
            require(lSession.received.empty(), "data comes that nobody has sent");
            continue;
        }
        const Sent& lSent = *lFound->second;
        require(lSent.text.compare(0, lSession.received.size(), lSession.received) == 0,
                "data is mixed up");
        require(lSent.wasReset || lSession.endedHere || lSession.received == lSent.text,
                "data is lost");
    }
}

}  // namespace schedules
