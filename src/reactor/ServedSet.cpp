// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The fast path of the loop, from an event to the handler's `serve`: one atomic exchange before it
// and one after it, and no lock. All else takes the lock of the set.
#include "reactor/ServedSet.h"

#include <sys/mman.h>

#include <cerrno>
#include <utility>

#include "base/NoCancellation.h"
#include "reactor/Served.h"
#include "reactor/replaceDescriptor.h"

namespace osx {

namespace {

constexpr std::uint64_t kPresent = 1;
constexpr std::uint64_t kServing = 2;
constexpr std::uint64_t kAgain = 4;  ///< An event came while it was being served.
/// The other side has ended, or has sent urgent data, in front of which a read stops: from then on
/// a read that comes short may leave something.
constexpr std::uint64_t kToTheEnd = 8;
constexpr std::uint64_t kSuspended = 16;
constexpr unsigned int kGenerationShift = 32;

/// Portions of a handler's work before it is the others' turn.
constexpr int kPortions = 16;

std::uint32_t generationOf(std::uint64_t aWord) {
    return static_cast<std::uint32_t>(aWord >> kGenerationShift);
}

std::uint64_t withGeneration(std::uint32_t aGeneration) {
    return static_cast<std::uint64_t>(aGeneration) << kGenerationShift;
}

ACE_HANDLE handleOf(const epoll_event& aEvent) {
    return static_cast<ACE_HANDLE>(aEvent.data.u64 & 0xFFFFFFFFU);
}

bool is(std::uint64_t aWord, std::uint64_t aState) {
    return (aWord & aState) != 0;
}

}  // namespace

ServedSet::ServedSet() : mPoll(::epoll_create1(EPOLL_CLOEXEC)) {
    const MutexLock lLock(mMutex);
    makeSlot(0);
}

ServedSet::~ServedSet() {
    close();
    for (std::atomic<Chunk*>& lChunk : mChunks) {
        if (lChunk.load() != nullptr) {
            ::munmap(lChunk.load(), sizeof(Chunk));
        }
    }
}

bool ServedSet::usable() const {
    return mPoll && slot(0) != nullptr;
}

int ServedSet::addTagged(int aDescriptor, Tag aTag, std::uint32_t aEvents) const {
    epoll_event lEvent{};
    lEvent.events = aEvents;
    lEvent.data.u64 = aTag;
    return ::epoll_ctl(mPoll.get(), EPOLL_CTL_ADD, aDescriptor, &lEvent);
}

void ServedSet::tellAgainTagged(int aDescriptor, Tag aTag, std::uint32_t aEvents) const {
    epoll_event lEvent{};
    lEvent.events = aEvents;
    lEvent.data.u64 = aTag;
    ::epoll_ctl(mPoll.get(), EPOLL_CTL_MOD, aDescriptor, &lEvent);
}

ServedSet::Slot* ServedSet::slot(ACE_HANDLE aHandle) const {
    const auto lIndex = static_cast<std::size_t>(aHandle);
    if (aHandle < 0 || lIndex >= kDescriptors) {
        return nullptr;
    }
    Chunk* const lChunk = mChunks[lIndex / kChunk].load(std::memory_order_acquire);
    return lChunk == nullptr ? nullptr : &lChunk->slots[lIndex % kChunk];
}

/// @return null (`errno`, as `add` promises it) if there can be none.
ServedSet::Slot* ServedSet::makeSlot(ACE_HANDLE aHandle) {
    const auto lIndex = static_cast<std::size_t>(aHandle);
    if (aHandle < 0 || lIndex >= kDescriptors) {
        errno = aHandle < 0 ? EBADF : EMFILE;
        return nullptr;
    }
    std::atomic<Chunk*>& lChunk = mChunks[lIndex / kChunk];
    if (lChunk.load(std::memory_order_relaxed) == nullptr) {
        void* const lPages = ::mmap(nullptr, sizeof(Chunk), PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        lChunk.store(lPages == MAP_FAILED ? nullptr : static_cast<Chunk*>(lPages),
                     std::memory_order_release);
    }
    return slot(aHandle);
}

template <class Function>
void ServedSet::forEachPresent(Function aFunction) {
    for (std::size_t lIndex = 0; lIndex < kDescriptors; ++lIndex) {
        if (mChunks[lIndex / kChunk].load(std::memory_order_acquire) == nullptr) {
            lIndex += kChunk - 1;
            continue;
        }
        const auto lHandle = static_cast<ACE_HANDLE>(lIndex);
        if (has(lHandle)) {
            aFunction(lHandle);
        }
    }
}

/// A suspended descriptor still gets hang-up events; they are ignored.
int ServedSet::tell(int aOperation, ACE_HANDLE aHandle, Word aWord, const Served& aHandler) const {
    epoll_event lEvent{};
    lEvent.data.u64 = withGeneration(generationOf(aWord)) | static_cast<std::uint32_t>(aHandle);
    // Urgent data stays ready after it was reported: a handler that wants a fresh look would be
    // told of it again and again, and need not be told.
    constexpr std::uint32_t kFreshLook = EPOLLONESHOT;
    constexpr std::uint32_t kChanges = EPOLLET | EPOLLPRI;
    lEvent.events = aHandler.wantsFreshLook() ? kFreshLook : kChanges;
    if (!is(aWord, kSuspended)) {
        lEvent.events |= EPOLLIN | EPOLLRDHUP;
    }
    return ::epoll_ctl(mPoll.get(), aOperation, aHandle, &lEvent);
}

int ServedSet::add(ACE_HANDLE aHandle, Served& aHandler) {
    while (takeOut(aHandle, nullptr, Served::kToCloseWithoutDescriptor)) {
    }
    const MutexLock lLock(mMutex);
    Slot* const lSlot = makeSlot(aHandle);
    if (lSlot == nullptr || mClosed) {
        errno = mClosed ? ESHUTDOWN : errno;
        return -1;
    }
    return enter(aHandle, *lSlot, aHandler);
}

void ServedSet::count(const Served& aHandler, int aChange) {
    mHandlers.store(mHandlers.load(std::memory_order_relaxed) + aChange, std::memory_order_relaxed);
    mFreshLooks += aHandler.wantsFreshLook() ? aChange : 0;
}

/// The slot is ready before the kernel knows of it: an event may come at once, on another thread.
int ServedSet::enter(ACE_HANDLE aHandle, Slot& aSlot, Served& aHandler) {
    const std::uint32_t lGeneration = generationOf(aSlot.word.load()) + 1;
    aHandler.add_reference();
    aHandler.mHandle = aHandle;
    aHandler.mGeneration = lGeneration;
    aHandler.mLeft = Served::kNothing;
    aHandler.mSet = this;
    count(aHandler, 1);
    aSlot.handler.store(&aHandler, std::memory_order_release);
    const Word lWord = withGeneration(lGeneration) | kPresent;
    aSlot.word.store(lWord, std::memory_order_release);
    if (tell(EPOLL_CTL_ADD, aHandle, lWord, aHandler) == 0) {
        return 0;
    }
    aSlot.word.store(withGeneration(lGeneration), std::memory_order_release);
    count(aHandler, -1);
    aHandler.mSet = nullptr;
    aHandler.remove_reference();
    return -1;
}

/// @param aOnly if given, the handler that is to be taken out, and no other.
/// @param aLeft what is left to the thread that serves it; if none does, it is done here.
/// @return whether a handler was taken out.
bool ServedSet::takeOut(ACE_HANDLE aHandle, const Served* aOnly, int aLeft) {
    Served* lHandler = nullptr;
    {
        const MutexLock lLock(mMutex);
        Slot* const lSlot = slot(aHandle);
        if (lSlot == nullptr || !is(lSlot->word.load(), kPresent)) {
            return false;
        }
        lHandler = lSlot->handler.load();
        if (aOnly != nullptr && lHandler != aOnly) {
            return false;
        }
        ::epoll_ctl(mPoll.get(), EPOLL_CTL_DEL, aHandle, nullptr);
        count(*lHandler, -1);
        lHandler->mLeft = aLeft;
        lHandler->mSet = nullptr;
        const Word lFormer =
            lSlot->word.exchange(withGeneration(generationOf(lSlot->word.load()) + 1));
        if (is(lFormer, kServing)) {
            return true;
        }
    }
    finish(*lHandler, aHandle);
    return true;
}

bool ServedSet::remove(ACE_HANDLE aHandle, bool aClose) {
    return takeOut(aHandle, nullptr, aClose ? Served::kToClose : Served::kNothing);
}

bool ServedSet::remove(const Served& aHandler) {
    return takeOut(aHandler.mHandle, &aHandler, Served::kNothing);
}

void ServedSet::rouse(const Served& aHandler) {
    tellAgain(aHandler.mHandle, aHandler.mGeneration);
}

Served* ServedSet::find(ACE_HANDLE aHandle) {
    const MutexLock lLock(mMutex);
    if (!has(aHandle)) {
        return nullptr;
    }
    Served* const lHandler = slot(aHandle)->handler.load();
    lHandler->add_reference();
    return lHandler;
}

bool ServedSet::has(ACE_HANDLE aHandle) const {
    const Slot* const lSlot = slot(aHandle);
    return lSlot != nullptr && is(lSlot->word.load(), kPresent);
}

bool ServedSet::suspend(ACE_HANDLE aHandle, bool aSuspend) {
    const MutexLock lLock(mMutex);
    if (!has(aHandle)) {
        return false;
    }
    Slot& lSlot = *slot(aHandle);
    const Word lWord = aSuspend ? (lSlot.word.fetch_or(kSuspended) | kSuspended)
                                : (lSlot.word.fetch_and(~kSuspended) & ~kSuspended);
    tell(EPOLL_CTL_MOD, aHandle, lWord, *lSlot.handler.load());
    return true;
}

bool ServedSet::isSuspended(ACE_HANDLE aHandle) const {
    const Slot* const lSlot = slot(aHandle);
    return lSlot != nullptr && is(lSlot->word.load(), kPresent) &&
           is(lSlot->word.load(), kSuspended);
}

void ServedSet::suspendAll(bool aSuspend) {
    forEachPresent([this, aSuspend](ACE_HANDLE aHandle) { suspend(aHandle, aSuspend); });
}

void ServedSet::enrolAll() {
    forEachPresent([this](ACE_HANDLE aHandle) {
        const MutexLock lLock(mMutex);
        if (has(aHandle)) {
            const Slot& lSlot = *slot(aHandle);
            tell(EPOLL_CTL_ADD, aHandle, lSlot.word.load(), *lSlot.handler.load());
        }
    });
}

void ServedSet::close() {
    {
        const MutexLock lLock(mMutex);
        mClosed = true;
    }
    forEachPresent([this](ACE_HANDLE aHandle) { remove(aHandle, true); });
}

// --- serving ---

/// What a thread is serving, from the event on. Servings nest where a callback runs the loop.
class ServedSet::Serving {
public:
    Serving(ServedSet& aSet, Slot& aSlot, ACE_HANDLE aHandle, std::uint32_t aGeneration,
            Served& aHandler)
        : mSet(aSet),
          mSlot(aSlot),
          mHandle(aHandle),
          mGeneration(aGeneration),
          mHandler(aHandler),
          mWantsFreshLook(aHandler.wantsFreshLook()),
          mOuter(std::exchange(mInnermost, this)) {}
    /// A callback may end its thread; other threads serve the handler then.
    ~Serving() {
        mInnermost = mOuter;
        if (!mEnded) {
            const NoCancellation lGuard;
            settle(end(mSlot, mGeneration, true, false));
        }
    }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;

    void run();
    static bool isCallers(const Slot& aSlot);

private:
    void settle(Rest aRest);

    ServedSet& mSet;
    Slot& mSlot;
    const ACE_HANDLE mHandle;
    const std::uint32_t mGeneration;
    Served& mHandler;
    const bool mWantsFreshLook;
    const Serving* const mOuter;
    bool mEnded = false;

    static thread_local const Serving* mInnermost;
};

thread_local const ServedSet::Serving* ServedSet::Serving::mInnermost = nullptr;

/// A handler that wants a fresh look never goes on by itself: the kernel looks whether it is ready.
void ServedSet::Serving::run() {
    Rest lRest = kGoOn;
    for (int lPortion = 1; lRest == kGoOn; ++lPortion) {
        const bool lToTheEnd = is(mSlot.word.load(std::memory_order_acquire), kToTheEnd);
        const bool lBusy = mHandler.serve(lToTheEnd) == Served::kBusy;
        lRest = end(mSlot, mGeneration, lBusy, !mWantsFreshLook && lPortion < kPortions);
    }
    mEnded = true;
    settle(lRest);
}

void ServedSet::Serving::settle(Rest aRest) {
    if (aRest == kTakenOut) {
        finish(mHandler, mHandle);
    } else if (aRest == kTellAgain || mWantsFreshLook) {
        mSet.tellAgain(mHandle, mGeneration);
    }
}

/// @return whether it is the calling thread that serves what is in a slot.
bool ServedSet::Serving::isCallers(const Slot& aSlot) {
    const Serving* lServing = mInnermost;
    while (lServing != nullptr && &lServing->mSlot != &aSlot) {
        lServing = lServing->mOuter;
    }
    return lServing != nullptr;
}

void ServedSet::giveBack(const epoll_event& aEvent) {
    tellAgain(handleOf(aEvent), generationOf(aEvent.data.u64));
}

bool ServedSet::serve(const epoll_event& aEvent) {
    const ACE_HANDLE lHandle = handleOf(aEvent);
    const std::uint32_t lGeneration = generationOf(aEvent.data.u64);
    Slot& lSlot = *slot(lHandle);
    Served* lHandler = nullptr;
    if (!begin(lSlot, lGeneration, aEvent.events, lHandler)) {
        return false;
    }
    Serving(*this, lSlot, lHandle, lGeneration, *lHandler).run();
    return true;
}

void ServedSet::renewInChild() {
    replaceDescriptor(mPoll, Descriptor(::epoll_create1(EPOLL_CLOEXEC)));
    forEachPresent([this](ACE_HANDLE aHandle) {
        Slot& lSlot = *slot(aHandle);
        if (!Serving::isCallers(lSlot)) {
            lSlot.word.fetch_and(~(kServing | kAgain));
        }
    });
}

/// Makes a thread the one that serves, or notes the event for the one that does.
///
/// The handler is read before the word is changed: if the word, with its generation, was still the
/// same then, the handler is the one of this generation.
/// @return whether the caller serves.
bool ServedSet::begin(Slot& aSlot, std::uint32_t aGeneration, std::uint32_t aEvents,
                      Served*& aHandler) {
    constexpr std::uint32_t kToTheEndEvents = EPOLLRDHUP | EPOLLHUP | EPOLLERR | EPOLLPRI;
    const Word lEnd = (aEvents & kToTheEndEvents) != 0 ? kToTheEnd : 0;
    Word lWord = aSlot.word.load(std::memory_order_acquire);
    for (;;) {
        if (generationOf(lWord) != aGeneration || !is(lWord, kPresent) || is(lWord, kSuspended)) {
            return false;
        }
        aHandler = aSlot.handler.load(std::memory_order_acquire);
        const Word lNew = lWord | lEnd | (is(lWord, kServing) ? kAgain : kServing);
        if (aSlot.word.compare_exchange_weak(lWord, lNew)) {
            return !is(lWord, kServing);
        }
    }
}

/// Ends the serving, unless it is to go on. Once it has ended another thread may serve the handler.
/// An event that came meanwhile (`kAgain`) counts as more to do. Another generation in the word
/// says that the handler was taken out meanwhile.
ServedSet::Rest ServedSet::end(Slot& aSlot, std::uint32_t aGeneration, bool aBusy, bool aMayGoOn) {
    Word lWord = aSlot.word.load(std::memory_order_acquire);
    while (generationOf(lWord) == aGeneration) {
        const bool lHasMore = (aBusy || is(lWord, kAgain)) && !is(lWord, kSuspended);
        const bool lGoOn = lHasMore && aMayGoOn;
        const Word lNew = lWord & ~(lGoOn ? kAgain : kAgain | kServing);
        if (aSlot.word.compare_exchange_weak(lWord, lNew)) {
            return lGoOn ? kGoOn : lHasMore ? kTellAgain : kDone;
        }
    }
    return kTakenOut;
}

/// Does what was asked for when the handler was taken out, and gives up the set's reference.
void ServedSet::finish(Served& aHandler, ACE_HANDLE aHandle) {
    if (aHandler.mLeft != Served::kNothing) {
        aHandler.handle_close(aHandle, ACE_Event_Handler::READ_MASK);
    }
    aHandler.remove_reference();
}

void ServedSet::tellAgain(ACE_HANDLE aHandle, std::uint32_t aGeneration) {
    const MutexLock lLock(mMutex);
    Slot* const lSlot = slot(aHandle);
    const Word lWord = lSlot->word.load();
    if (generationOf(lWord) == aGeneration && is(lWord, kPresent)) {
        tell(EPOLL_CTL_MOD, aHandle, lWord, *lSlot->handler.load());
    }
}

}  // namespace osx
