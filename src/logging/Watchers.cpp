// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The serving thread goes round all clients, giving each at most a chunk of lines, until nobody can
// take more; then it waits. Threads that log do not wake it while it is busy or pauses: it asks to
// be woken only before a longer sleep. See docs/redirect-service.md for the decisions.
#include "logging/Watchers.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "base/standardDescriptors.h"

namespace osx {

namespace {

using std::chrono::milliseconds;

constexpr char kModule[] = "Watchers.cpp";

/// How long the serving thread pauses before it asks to be woken. Lines come in bursts, and for the
/// thread that logs nothing costs as much as waking another one.
constexpr int kPauseMs = 1;

/// How often the serving thread looks how much the clients have acknowledged.
constexpr milliseconds kLookInterval{1000};
constexpr milliseconds kLookIntervalAtEnd{200};

constexpr std::size_t kEventsAtOnce = 64;

/// At the end of the process: how long the serving thread may be seen writing a line, without a
/// break, until it counts as hanging in it; and how often it is looked at.
constexpr milliseconds kLineLimit{1000};
constexpr milliseconds kLineLook{20};

constexpr auto kNever = Watchers::Clock::time_point::max();

void addToPoll(int aPoll, int aDescriptor, std::uint32_t aEvents) {
    epoll_event lEvent{};
    lEvent.events = aEvents | EPOLLET;
    lEvent.data.fd = aDescriptor;
    ::epoll_ctl(aPoll, EPOLL_CTL_ADD, aDescriptor, &lEvent);
}

/// @return the time-out of a poll until then, rounded up.
int millisecondsUntil(Watchers::Clock::time_point aTime, Watchers::Clock::time_point aNow) {
    if (aTime == kNever) {
        return -1;
    }
    const auto lTime = std::chrono::duration_cast<milliseconds>(aTime - aNow) + milliseconds(1);
    return static_cast<int>(std::max<milliseconds::rep>(0, lTime.count()));
}

}  // namespace

Mutex Watchers::mMutex;
const process::AtFork Watchers::kAtFork(process::ForkOrder::kLeaf,
                                        process::kKeepAcrossFork<mMutex>);

/// What the serving thread found when it went round all clients.
struct Watchers::Round {
    Clock::time_point mNow = Clock::now();
    LineRing::Number mEnd = 0;     ///< The number of the next line, when the round began.
    LineRing::Number mNeeded = 0;  ///< The first line that a client still needs.
    bool mGave = false;            ///< Some client was sent something.
    bool mMore = false;            ///< Some client can be sent more at once.
    bool mTakers = false;          ///< Some client's kernel has room for a next line.
    bool mOwing = false;           ///< Some client has not acknowledged all.
    bool mIsEnding = false;        ///< The end has been asked for,
    bool mIsOverdue = false;       ///< and the time for it is up.
    bool mUnfinished = false;      ///< Some client has not been sent all that is still sent.

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
}

// --- clients ---

void Watchers::add(const void* aSocket, int aDescriptor) {
    Link lWatcher = allocate<Watcher>(aSocket, aDescriptor);
    if (lWatcher == nullptr) {
        DiagnosticLine(kModule).failure(
            LM_ERROR, "%t RedirectService: no memory for a client, its connection is ended\n");
        ::shutdown(aDescriptor, SHUT_RDWR);
        return;
    }
    const MutexLock lLock(mMutex);
    Link& lLink = linkTo(aSocket);
    if (lLink != nullptr) {
        return;
    }
    lLink = std::move(lWatcher);
    if (isServedHere()) {
        startServing(*lLink);
        wake();  // with no client that can take anything the serving thread sleeps through lines
    }
}

void Watchers::remove(const void* aSocket, int aDescriptor) {
    const MutexLock lLock(mMutex);
    Link& lLink = linkTo(aSocket);
    if (lLink == nullptr) {
        return;
    }
    const bool lPollIsOwn = mPoll && mGeneration == process::generation();
    if (lPollIsOwn && lLink->descriptor() == aDescriptor) {
        ::epoll_ctl(mPoll.get(), EPOLL_CTL_DEL, aDescriptor, nullptr);
    }
    if (isServedHere()) {
        lLink->mGone = true;
    } else {
        takeOut(lLink);
    }
}

void Watchers::removeAll() {
    const MutexLock lLock(mMutex);
    while (mFirst != nullptr) {
        takeOut(mFirst);
    }
}

/// @return the link to the client of a socket; the last link, which is null, if there is none.
Watchers::Link& Watchers::linkTo(const void* aSocket) {
    Link* lLink = &mFirst;
    while (*lLink != nullptr && ((*lLink)->mGone || (*lLink)->socket() != aSocket)) {
        lLink = &(*lLink)->mNextWatcher;
    }
    return *lLink;
}

/// A client that cannot be entered into the poll is tried again after each look.
void Watchers::startServing(Watcher& aWatcher) {
    aWatcher.begin(mRing->end());
    addToPoll(mPoll.get(), aWatcher.descriptor(), EPOLLOUT);
}

void Watchers::takeOut(Link& aLink) {
    aLink = std::move(aLink->mNextWatcher);
}

void Watchers::destroyGone() {
    for (Link* lLink = &mFirst; *lLink != nullptr;) {
        if ((*lLink)->mGone) {
            takeOut(*lLink);
        } else {
            lLink = &(*lLink)->mNextWatcher;
        }
    }
}

// --- the beginning and the end ---

bool Watchers::begin(LineRing& aRing) {
    const MutexLock lLock(mMutex);
    if (mGeneration != process::generation()) {
        forgetParent();
    }
    if (!mWake && !makeDescriptors()) {
        return false;
    }
    destroyGone();
    mRing = &aRing;
    mIsServed = true;
    mIsEnding = false;
    mTarget = 0;
    mNextLook = kNever;
    for (Watcher* lWatcher = mFirst.get(); lWatcher != nullptr;
         lWatcher = lWatcher->mNextWatcher.get()) {
        startServing(*lWatcher);
    }
    return true;
}

void Watchers::abandon() {
    const MutexLock lLock(mMutex);
    destroyGone();
    mIsServed = false;
    mEnded.wakeAll();
}

/// A child shares the parent's poll: what one of them changed there would be changed for both. A
/// thread of the parent's may have been waiting for the end, or writing a line.
void Watchers::forgetParent() {
    closeDescriptors();
    new (&mEnded) Condition;
    mWritesLine = false;
    mGeneration = process::generation();
}

bool Watchers::makeDescriptors() {
    mPoll = makeDescriptor([] { return ::epoll_create1(EPOLL_CLOEXEC); });
    mWake = makeDescriptor([] { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); });
    if (!mPoll || !mWake) {
        closeDescriptors();
        return false;
    }
    addToPoll(mPoll.get(), mWake.get(), EPOLLIN);
    return true;
}

void Watchers::closeDescriptors() {
    mPoll.reset();
    mWake.reset();
}

/// A child has the flag from its parent, but not the serving thread.
bool Watchers::isServedHere() const {
    return mIsServed && mGeneration == process::generation();
}

void Watchers::wake() const {
    ::eventfd_write(mWake.get(), 1);
}

void Watchers::end(const ServingGrace& aGrace) {
    const MutexLock lLock(mMutex);
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
    const MutexLock lLock(mMutex);
    while (mIsServed && lInLine < kLineLimit && Clock::now() < lEnd) {
        mEnded.waitFor(mMutex, kLineLook);
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

/// Goes round all clients once. A thread that closes a connection waits for one send at most, so
/// the lock is given up after each.
Watchers::Round Watchers::turn() {
    Round lRound;
    if (lRound.mNow >= mNextLook) {
        look(lRound.mNow);
    }
    lRound.mEnd = lRound.mNeeded = mRing->end();
    ReleasableMutexLock lLock(mMutex);
    destroyGone();
    lRound.mIsEnding = mIsEnding;
    lRound.mIsOverdue = mIsEnding && lRound.mNow >= mDeadline;
    for (Watcher* lWatcher = mFirst.get(); lWatcher != nullptr;
         lWatcher = lWatcher->mNextWatcher.get()) {
        if (!lWatcher->mGone && lWatcher->mayTake() && lWatcher->isBehind(lRound.mEnd)) {
            const std::size_t lFailed = lWatcher->give(*mRing, mChunk, lRound.mNow);
            lRound.mGave = true;
            lLock.unlock();
            if (lFailed != 0) {
                reportFailed(lFailed);
            }
            lLock.lock();
        }
        if (!lWatcher->mGone && !lWatcher->isOver()) {
            lRound.note(*lWatcher, mTarget);
        }
    }
    return lRound;
}

/// The line that `osxSocketSend` would write.
void Watchers::reportFailed(std::size_t aBytes) {
    mWritesLine = true;
    DiagnosticLine(kOsxModule)
        .failure(LM_DEBUG, "%t osxSocketSend: lNrOfBytesSend[%d] != aLen[%d] \n", -1,
                 static_cast<int>(aBytes));
    mWritesLine = false;
}

/// Looks how much the clients have acknowledged, and gives up those that take nothing.
void Watchers::look(Clock::time_point aNow) {
    const LineRing::Number lEnd = mRing->end();
    const MutexLock lLock(mMutex);
    for (Watcher* lWatcher = mFirst.get(); lWatcher != nullptr;
         lWatcher = lWatcher->mNextWatcher.get()) {
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

/// The time was up before these had all lines.
void Watchers::giveUpUnfinished() {
    const MutexLock lLock(mMutex);
    for (Watcher* lWatcher = mFirst.get(); lWatcher != nullptr;
         lWatcher = lWatcher->mNextWatcher.get()) {
        if (!lWatcher->mGone && !lWatcher->isOver() && lWatcher->isBehind(mTarget)) {
            giveUp(*lWatcher);
        }
    }
}

/// @return how long to wait for room at a client or for the next line, in milliseconds; -1 for no
///         limit.
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
    // Without a client that can take a line, lines need not wake the thread.
    const bool lMaySleep = !aRound.mTakers || mRing->askForWake(aRound.mEnd);
    return lMaySleep ? millisecondsUntil(mNextLook, Clock::now()) : 0;
}

void Watchers::wait(int aTimeoutMs) {
    std::array<epoll_event, kEventsAtOnce> lEvents;
    const int lCount = ::epoll_wait(mPoll.get(), lEvents.data(), kEventsAtOnce, aTimeoutMs);
    for (int lEvent = 0; lEvent < lCount; ++lEvent) {
        noteRoomAt(lEvents[static_cast<std::size_t>(lEvent)].data.fd);
    }
}

/// If the descriptor has become another client's meanwhile, a send to that one is tried in vain.
void Watchers::noteRoomAt(int aDescriptor) {
    const MutexLock lLock(mMutex);
    for (Watcher* lWatcher = mFirst.get(); lWatcher != nullptr;
         lWatcher = lWatcher->mNextWatcher.get()) {
        if (lWatcher->descriptor() == aDescriptor && !lWatcher->mGone) {
            lWatcher->roomMade();
        }
    }
}

}  // namespace osx
