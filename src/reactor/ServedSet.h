// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The library's own handlers and their descriptors, in the kernel's event poll. Internal.
#ifndef OSX_REACTOR_SERVEDSET_H
#define OSX_REACTOR_SERVEDSET_H

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "ace/Event_Handler.h"
#include "base/Descriptor.h"
#include "base/Mutex.h"

namespace osx {

class Served;

/// Descriptors, each with a handler, that any number of threads serve.
///
/// A descriptor has a slot, which is never freed, with one word: the generation of what is
/// registered there, and its state. An event carries descriptor and generation, so that an event
/// that comes late, for a handler that has been taken out, is known by its generation. The thread
/// that takes an event changes the word from idle to being served. If another event comes while
/// the handler is being served, that is noted in the word, and the serving thread goes round again.
///
///     absent --add--> idle --event--> being served --nothing more--> idle
///        ^              |                  |  ^------ event: again ---+
///        +---remove-----+------remove------+
///
/// Adding, taking out, suspending and resuming happen under a lock; serving takes none. If a
/// handler is taken out while it is being served, the serving thread gets the set's reference to
/// it, and closes it if that was asked for.
///
/// The kernel reports an event once. The work is done in portions; after some of them the thread
/// asks the kernel to report the event again, so that the others have their turn first.
class ServedSet {
public:
    /// Descriptors from this one on cannot be held.
    static constexpr std::size_t kDescriptors = std::size_t{1024} * 1024;

    /// What an event has for data when it is not of a handler.
    enum Tag : std::uint64_t { kTimer = 1, kWake, kNotify, kAces, kTags };

    ServedSet();
    ~ServedSet();
    ServedSet(const ServedSet&) = delete;
    ServedSet& operator=(const ServedSet&) = delete;

    /// @return whether there is a poll, and memory for as many descriptors as most processes have:
    ///         adding one of these never fails because memory is short.
    bool usable() const;

    /// @return the event poll's descriptor; -1 when there is none.
    int descriptor() const { return mPoll.get(); }

    /// Adds a descriptor that is no handler's.
    /// @param aEvents event bits of epoll_ctl.
    /// @return 0, or -1 on failure.
    int addTagged(int aDescriptor, Tag aTag, std::uint32_t aEvents) const;

    /// Re-arms a descriptor that was added with EPOLLONESHOT.
    void tellAgainTagged(int aDescriptor, Tag aTag, std::uint32_t aEvents) const;

    /// Adds a handler, with a reference. A handler that the set still has for the descriptor, which
    /// somebody must have closed silently, is closed.
    /// @return 0; -1 (`errno`) when the descriptor is bad or cannot be held, memory is short or the
    ///         set is closed.
    int add(ACE_HANDLE aHandle, Served& aHandler);

    /// Takes out the handler of a descriptor.
    /// @param aClose whether the handler is to be closed: at once, or by the thread that serves it.
    /// @return whether there was one.
    bool remove(ACE_HANDLE aHandle, bool aClose);

    /// Takes out a handler, and leaves alone the one that has its descriptor now.
    /// @return whether it had been in this set.
    bool remove(const Served& aHandler);

    /// Makes the kernel check this handler's descriptor again.
    void rouse(const Served& aHandler);

    /// @return the handler of a descriptor, with a reference for the caller; null if there is none.
    Served* find(ACE_HANDLE aHandle);
    bool has(ACE_HANDLE aHandle) const;

    /// @return whether there was one.
    bool suspend(ACE_HANDLE aHandle, bool aSuspend);
    bool isSuspended(ACE_HANDLE aHandle) const;
    void suspendAll(bool aSuspend);

    /// @name The fork of the process
    /// The child gets an event poll of its own, which reports nothing until `enrolAll`: what it
    /// takes out does not go from its parent's.
    /// @{
    Mutex& mutex() OSX_RETURN_CAPABILITY(mMutex) { return mMutex; }
    /// What other threads were serving is idle; what the calling one is serving, because its
    /// callback has forked, is served by nobody else until that returns.
    void renewInChild() OSX_REQUIRES(mMutex);
    void enrolAll() OSX_EXCLUDES(mMutex);
    /// @}

    /// Closes all handlers, and takes no more.
    void close();

    /// @return whether there is a handler whose descriptor others may read. No event may be taken
    ///         in advance then: the descriptor has to be ready still when the handler is served.
    bool wantsFreshLook() const { return mFreshLooks.load(std::memory_order_relaxed) != 0; }

    /// @return how many events there can be at once. Handlers may come and go meanwhile.
    int mostEvents() const {
        return mHandlers.load(std::memory_order_relaxed) + static_cast<int>(kTags);
    }

    /// Has the kernel report a handler's event again.
    void giveBack(const epoll_event& aEvent);

    /// Serves a handler's event.
    /// @return whether there was anything to do.
    bool serve(const epoll_event& aEvent);

private:
    using Word = std::uint64_t;
    /// Any thread that serves reads and changes the word; a handler is added, suspended or taken
    /// out with the lock. The handler is written with the lock, before the word that shows it, and
    /// stays for as long as the word has the same generation.
    struct Slot {
        std::atomic<Word> word;
        std::atomic<Served*> handler;
    };
    static constexpr std::size_t kChunk = 4096;
    /// In pages of the system's, which are zero, and take no memory before they are used.
    struct Chunk {
        std::array<Slot, kChunk> slots;
    };
    /// What is left to do after a portion.
    enum Rest {
        kDone,
        kGoOn,       ///< The next portion.
        kTellAgain,  ///< More, when the others have had their turn.
        kTakenOut    ///< To close the handler, if that was asked for, and to let it go.
    };
    class Serving;

    Slot* slot(ACE_HANDLE aHandle) const;
    Slot* makeSlot(ACE_HANDLE aHandle) OSX_REQUIRES(mMutex);
    int enter(ACE_HANDLE aHandle, Slot& aSlot, Served& aHandler) OSX_REQUIRES(mMutex);
    void count(const Served& aHandler, int aChange) OSX_REQUIRES(mMutex);
    template <class Function>
    void forEachPresent(Function aFunction);
    int tell(int aOperation, ACE_HANDLE aHandle, Word aWord, const Served& aHandler) const;
    void tellAgain(ACE_HANDLE aHandle, std::uint32_t aGeneration);
    bool takeOut(ACE_HANDLE aHandle, const Served* aOnly, int aLeft);
    static bool begin(Slot& aSlot, std::uint32_t aGeneration, std::uint32_t aEvents,
                      Served*& aHandler);
    static Rest end(Slot& aSlot, std::uint32_t aGeneration, bool aBusy, bool aMayGoOn);
    static void finish(Served& aHandler, ACE_HANDLE aHandle);

    Descriptor mPoll;
    Mutex mMutex;
    /// The slots, by descriptor. Made with the lock when they are first needed, read by any thread,
    /// and never freed before the set.
    std::array<std::atomic<Chunk*>, kDescriptors / kChunk> mChunks{};
    /// How many handlers there are, and how many of them want a fresh look. Written with the lock,
    /// read by loop threads.
    std::atomic<int> mHandlers{0};
    std::atomic<int> mFreshLooks{0};
    bool mClosed OSX_GUARDED_BY(mMutex) = false;
};

}  // namespace osx

#endif
