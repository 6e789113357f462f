// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Forks: what a child gets of a process with several threads.
///
/// A child has a copy of everything but the other threads. A lock that one of them held at that
/// moment would stay locked. So the thread that forks first takes the locks, in the order of
/// `ForkOrder`: then what they guard is whole. Afterwards it gives them back in both processes. A
/// lock that knows its owner by the system's thread id, which in the child is another, is made anew
/// there, and so are condition variables.
///
/// A child is not recognised by its process id, because ids are used again: see `generation`.
#ifndef OSX_PROCESS_ATFORK_H
#define OSX_PROCESS_ATFORK_H

#include "base/threadAnnotations.h"

namespace osx::process {

/// The kinds of locks. A thread that holds a lock of one kind may take locks of the kinds below it,
/// and none of a kind above. Two kinds of callbacks of the application run with locks of the first
/// two kinds: handlers that ACE closes, and log back ends. They may ask the library for whatever
/// takes no lock of a kind above. Callbacks of timers and ports run with no lock of the library.
enum class ForkOrder {
    kToken,  ///< The reactor's token, with which ACE closes handlers; the lock of the loop threads.
    kLog,    ///< ACE's locks of its threads and of its logging, under which log back ends run.
    kPorts,  ///< The ports' locks, under which they enter the loop and leave it.
    kLoop,   ///< The reactor's other locks.
    kLeaf    ///< Locks that are held for some instructions.
};

/// What is done in the process before it forks, afterwards in the same process, and in the child,
/// which must not wait for anything. Null for nothing.
struct ForkSteps {
    void (*prepare)();
    void (*parent)();
    void (*child)();
};

/// Registers steps. To be a static object beside the lock. It has no destructor, and so is there
/// until the very end of the process.
class AtFork {
public:
    AtFork(ForkOrder aOrder, const ForkSteps& aSteps) noexcept;
    AtFork(const AtFork&) = delete;
    AtFork& operator=(const AtFork&) = delete;

    const ForkSteps& steps() const { return mSteps; }
    /// @return the steps of the same kind that were registered before; null if there are none.
    const AtFork* former() const { return mFormer; }

private:
    const ForkSteps mSteps;
    const AtFork* const mFormer;
};

/// Clang cannot follow a lock that one function takes and another one gives back.
template <auto& aMutex>
void lockForFork() OSX_NO_THREAD_SAFETY_ANALYSIS {
    aMutex.lock();
}
template <auto& aMutex>
void unlockAfterFork() OSX_NO_THREAD_SAFETY_ANALYSIS {
    aMutex.unlock();
}

/// The steps of a static mutex that has only to be locked and unlocked.
template <auto& aMutex>
constexpr ForkSteps kKeepAcrossFork{lockForFork<aMutex>, unlockAfterFork<aMutex>,
                                    unlockAfterFork<aMutex>};

/// @return how many forks lie between this process and the one that loaded the library.
unsigned int generation() noexcept;

}  // namespace osx::process

#endif
