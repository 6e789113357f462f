#include "logging/Watchers.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <new>

#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "base/standardDescriptors.h"
#include "process/atFork.h"

namespace osx {

namespace {

using std::chrono::milliseconds;

/// How long the serving thread sleeps before it asks to be woken: lines mostly come in bursts, and
/// waking it costs the thread that logs more than anything else.
constexpr int kPauseMs = 1;

/// How often it is looked how far the clients have come, and how often at the end.
constexpr milliseconds kLookInterval{1000};
constexpr milliseconds kLookIntervalAtEnd{200};

constexpr std::size_t kEventsAtOnce = 64;

/// How long the writing of one line may take at the end of the process.
constexpr milliseconds kLineLimit{1000};
constexpr milliseconds kLineLook{20};

constexpr auto kNever = Watchers::Clock::time_point::max();

/// Guards the clients of all services, of which a program has one.
std::mutex gMutex;
const process::AtFork gAtFork(process::ForkOrder::kLeaf, process::kKeepAcrossFork<gMutex>);

void addToPoll(int aPoll, int aDescriptor, std::uint32_t aEvents) {
    epoll_event lEvent{};
    lEvent.events = aEvents | EPOLLET;
    lEvent.data.fd = aDescriptor;
    ::epoll_ctl(aPoll, EPOLL_CTL_ADD, aDescriptor, &lEvent);
}

void closeAndForget(int& aDescriptor) {
    if (aDescriptor != -1) {
        ::close(aDescriptor);
        aDescriptor = -1;
    }
}

int untilMs(Watchers::Clock::time_point aTime, Watchers::Clock::time_point aNow) {
    if (aTime == kNever) {
        return -1;
    }
    const auto lTime = std::chrono::duration_cast<milliseconds>(aTime - aNow) + milliseconds(1);
    return static_cast<int>(std::max<milliseconds::rep>(0, lTime.count()));
}

}  // namespace

/// What the serving thread found when it went round all clients.
struct Watchers::Round {
    Clock::time_point mNow = Clock::now();
    LineRing::Number mEnd = 0;     ///< Of the lines.
    LineRing::Number mNeeded = 0;  ///< The first line that somebody has not got.
    bool mGave = false;            ///< Somebody was given something,
    bool mMore = false;            ///< or could be, at once.
    bool mTakers = false;          ///< Somebody could take the next line.
    bool mOwing = false;
    bool mIsEnding = false;
    bool mIsOverdue = false;
    bool mUnfinished = false;  ///< Somebody has not got all that is still sent.

    bool isLast() const { return mIsOverdue || (mIsEnding && !mUnfinished); }
    void note(const Watcher& aWatcher, LineRing::Number aTarget) {
        mNeeded = std::min(mNeeded, aWatcher.next());
        mTakers = mTakers || aWatcher.mayTake();
        mMore = mMore || (aWatcher.mayTake() && aWatcher.isBehind(mEnd));
        mOwing = mOwing || aWatcher.owes();
        mUnfinished = mUnfinished || aWatcher.isBehind(aTarget);
    }
};

Watchers::Watchers() : mGeneration(process::generation()) {}

Watchers::~Watchers() {
    removeAll();
    closeDescriptors();
}

// --- clients ---

void Watchers::add(const void* aSocket, int aDescriptor) {
    auto* const lWatcher = allocate<Watcher>(aSocket, aDescriptor).release();
    if (lWatcher == nullptr) {
        ::shutdown(aDescriptor, SHUT_RDWR);
        return;
    }
    const std::lock_guard<std::mutex> lGuard(gMutex);
    if (*find(aSocket) != nullptr) {
        delete lWatcher;
        return;
    }
    append(lWatcher);
    if (isServedHere()) {
        lWatcher->begin(mRing->end());
        enter(*lWatcher);
        wake();  // while nobody can take anything the serving thread asks for no lines
    }
}

void Watchers::remove(const void* aSocket, int aDescriptor) {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    Watcher** const lLink = find(aSocket);
    if (*lLink == nullptr) {
        return;
    }
    if (mGeneration == process::generation() && mPoll != -1 &&
        (*lLink)->descriptor() == aDescriptor) {
        ::epoll_ctl(mPoll, EPOLL_CTL_DEL, aDescriptor, nullptr);
    }
    if (isServedHere()) {
        (*lLink)->mGone = true;
    } else {
        takeOut(lLink);
    }
}

void Watchers::removeAll() {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    while (mFirst != nullptr) {
        takeOut(&mFirst);
    }
}

/// @return the link to the client of a socket; if there is none, the last link, which holds null.
Watcher** Watchers::find(const void* aSocket) {
    Watcher** lLink = &mFirst;
    while (*lLink != nullptr && ((*lLink)->mGone || (*lLink)->socket() != aSocket)) {
        lLink = &(*lLink)->mNextWatcher;
    }
    return lLink;
}

void Watchers::append(Watcher* aWatcher) {
    Watcher** lLink = &mFirst;
    while (*lLink != nullptr) {
        lLink = &(*lLink)->mNextWatcher;
    }
    *lLink = aWatcher;
}

/// One that cannot be entered is tried again with each look.
void Watchers::enter(const Watcher& aWatcher) const {
    addToPoll(mPoll, aWatcher.descriptor(), EPOLLOUT);
}

void Watchers::takeOut(Watcher** aLink) {
    const Watcher* const lWatcher = *aLink;
    *aLink = lWatcher->mNextWatcher;
    delete lWatcher;
}

void Watchers::dropGone() {
    for (Watcher** lLink = &mFirst; *lLink != nullptr;) {
        if ((*lLink)->mGone) {
            takeOut(lLink);
        } else {
            lLink = &(*lLink)->mNextWatcher;
        }
    }
}

// --- the beginning and the end ---

bool Watchers::begin(LineRing& aRing) {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    if (!makeDescriptors()) {
        return false;
    }
    dropGone();
    mRing = &aRing;
    mIsServed = true;
    mIsEnding = false;
    mTarget = 0;
    mNextLook = kNever;
    for (Watcher* lWatcher = mFirst; lWatcher != nullptr; lWatcher = lWatcher->mNextWatcher) {
        lWatcher->begin(aRing.end());
        enter(*lWatcher);
    }
    return true;
}

void Watchers::abandon() {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    dropGone();
    mIsServed = false;
    mEnded.notify_all();
}

/// A child's are copies of its parent's, and what is done with the poll by one is done for both.
bool Watchers::makeDescriptors() {
    if (mGeneration != process::generation()) {
        closeDescriptors();
        new (&mEnded) std::condition_variable;
        mWritesLine = false;
        mGeneration = process::generation();
    }
    if (mWake != -1) {
        return true;
    }
    mPoll = makeDescriptor([] { return ::epoll_create1(EPOLL_CLOEXEC); }).release();
    mWake = makeDescriptor([] { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }).release();
    if (mPoll == -1 || mWake == -1) {
        closeDescriptors();
        return false;
    }
    addToPoll(mPoll, mWake, EPOLLIN);
    return true;
}

void Watchers::closeDescriptors() {
    closeAndForget(mPoll);
    closeAndForget(mWake);
}

/// The former process may have been forked while its thread served.
bool Watchers::isServedHere() const {
    return mIsServed && mGeneration == process::generation();
}

void Watchers::wake() const {
    ::eventfd_write(mWake, 1);
}

void Watchers::end(const ServingGrace& aGrace) {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    if (!isServedHere()) {
        return;
    }
    mIsEnding = true;
    mGrace = aGrace;
    mDeadline = Clock::now() + aGrace.mLimit;
    mTarget = mRing->end();
    wake();
}

void Watchers::waitForEnd(milliseconds aLimit) {
    const Clock::time_point lEnd = Clock::now() + aLimit;
    milliseconds lInLine{0};
    std::unique_lock<std::mutex> lLock(gMutex);
    while (mIsServed && lInLine < kLineLimit && Clock::now() < lEnd) {
        mEnded.wait_for(lLock, kLineLook);
        lInLine = mWritesLine ? lInLine + kLineLook : milliseconds(0);
    }
}

// --- serving ---

void Watchers::serve() {
    Round lRound = turn();
    while (!lRound.isLast()) {
        wait(timeout(lRound));
        lRound = turn();
    }
    giveUpUnfinished();
    abandon();
}

/// Gives each client that can take something a chunk at most.
Watchers::Round Watchers::turn() {
    Round lRound;
    if (lRound.mNow >= mNextLook) {
        look(lRound.mNow);
    }
    lRound.mEnd = lRound.mNeeded = mRing->end();
    std::unique_lock<std::mutex> lLock(gMutex);
    dropGone();
    lRound.mIsEnding = mIsEnding;
    lRound.mIsOverdue = mIsEnding && lRound.mNow >= mDeadline;
    for (Watcher* lWatcher = mFirst; lWatcher != nullptr; lWatcher = lWatcher->mNextWatcher) {
        if (!lWatcher->mGone && lWatcher->mayTake() && lWatcher->isBehind(lRound.mEnd)) {
            give(*lWatcher, lRound, lLock);
        }
        if (!lWatcher->mGone && !lWatcher->isOver()) {
            lRound.note(*lWatcher, mTarget);
        }
    }
    return lRound;
}

/// Who closes a connection waits for one send at most.
void Watchers::give(Watcher& aWatcher, Round& aRound, std::unique_lock<std::mutex>& aLock) {
    const std::size_t lFailed = aWatcher.give(*mRing, mChunk, aRound.mNow);
    aRound.mGave = true;
    aLock.unlock();
    if (lFailed != 0) {
        reportFailed(lFailed);
    }
    aLock.lock();
}

/// The line that a failed send of sockets has.
void Watchers::reportFailed(std::size_t aBytes) {
    mWritesLine = true;
    DiagnosticLine(kOsxModule)
        .failure(LM_DEBUG, "%t osxSocketSend: lNrOfBytesSend[%d] != aLen[%d] \n", -1,
                 static_cast<int>(aBytes));
    mWritesLine = false;
}

/// Looks how far the clients have come, and gives those up that take nothing.
void Watchers::look(Clock::time_point aNow) {
    const LineRing::Number lEnd = mRing->end();
    const std::lock_guard<std::mutex> lGuard(gMutex);
    for (Watcher* lWatcher = mFirst; lWatcher != nullptr; lWatcher = lWatcher->mNextWatcher) {
        if (lWatcher->mGone || !lWatcher->owes()) {
            continue;
        }
        const milliseconds lPatience =
            mIsEnding ? std::min(mGrace.mPatience, lWatcher->patience()) : lWatcher->patience();
        if (lWatcher->look(lEnd, aNow) >= lPatience) {
            giveUp(*lWatcher);
        }
    }
    mNextLook = kNever;
}

void Watchers::giveUp(Watcher& aWatcher) const {
    if (mIsEnding && !mGrace.mCuts) {
        aWatcher.leave();
    } else {
        aWatcher.cut();
    }
}

/// Those that the end of the time has left with a line that is begun, too.
void Watchers::giveUpUnfinished() {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    for (Watcher* lWatcher = mFirst; lWatcher != nullptr; lWatcher = lWatcher->mNextWatcher) {
        if (!lWatcher->mGone && !lWatcher->isOver() && lWatcher->isBehind(mTarget)) {
            giveUp(*lWatcher);
        }
    }
}

/// @return how long to wait for room at a client, or for the next line.
int Watchers::timeout(const Round& aRound) {
    if (aRound.mIsEnding) {
        mNextLook = std::min(mNextLook, aRound.mNow + kLookIntervalAtEnd);
    } else if (aRound.mOwing) {
        mNextLook = std::min(mNextLook, aRound.mNow + kLookInterval);
    }
    if (aRound.mMore) {
        return 0;
    }
    mRing->release(aRound.mNeeded);
    if (aRound.mGave) {
        return kPauseMs;
    }
    const bool lMayRest = !aRound.mTakers || mRing->restAt(aRound.mEnd);
    return lMayRest ? untilMs(mNextLook, Clock::now()) : 0;
}

void Watchers::wait(int aTimeoutMs) {
    std::array<epoll_event, kEventsAtOnce> lEvents;
    const int lCount = ::epoll_wait(mPoll, lEvents.data(), kEventsAtOnce, aTimeoutMs);
    for (int lEvent = 0; lEvent < lCount; ++lEvent) {
        noteRoomAt(lEvents[static_cast<std::size_t>(lEvent)].data.fd);
    }
}

/// Should the descriptor be another client's by now, that one is tried in vain at worst.
void Watchers::noteRoomAt(int aDescriptor) {
    const std::lock_guard<std::mutex> lGuard(gMutex);
    for (Watcher* lWatcher = mFirst; lWatcher != nullptr; lWatcher = lWatcher->mNextWatcher) {
        if (lWatcher->descriptor() == aDescriptor && !lWatcher->mGone) {
            lWatcher->roomMade();
        }
    }
}

}  // namespace osx
