/// @file
/// Forks: what a child gets of a process with several threads.
///
/// A child has a copy of everything but the other threads. What these held locked at that moment
/// would stay locked. So the thread that forks first takes the locks, in the order of `ForkOrder`,
/// which makes sure that what they guard is whole; afterwards it gives them back in both processes.
/// A lock that knows its owner by the system's thread id, which in the child is another, is made
/// anew there, and so is what other threads wait in.
///
/// Nothing here is told apart by a process id: a child's child has one of its own, and ids are used
/// again.
#ifndef OSX_PROCESS_ATFORK_H
#define OSX_PROCESS_ATFORK_H

#include "base/threadAnnotations.h"

namespace osx::process {

/// Who holds a lock of one kind may take one of the kinds below it. Code of the application's runs
/// with the first two, and may ask the library for anything there that takes none above.
enum class ForkOrder {
    kToken,  ///< The reactor's token, with which ACE closes handlers; the loop threads'.
    kLog,    ///< ACE's, of its threads and its logging, under which the back ends run.
    kPorts,  ///< The ports', under which they enter the loop and leave it.
    kLoop,   ///< The reactor's others.
    kLeaf    ///< Those that are held for some instructions.
};

/// What is done in the process before it forks, in it afterwards, and in the child. The child must
/// not wait for anything. Null for nothing.
struct ForkSteps {
    void (*prepare)();
    void (*parent)();
    void (*child)();
};

/// Registers steps. A static object beside the lock; it has no destructor to run.
class AtFork {
public:
    AtFork(ForkOrder aOrder, const ForkSteps& aSteps) noexcept;
    AtFork(const AtFork&) = delete;
    AtFork& operator=(const AtFork&) = delete;

    const ForkSteps& steps() const { return mSteps; }
    /// @return the one of the same kind that was registered before; null if there is none.
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

/// The steps for a static mutex that is no more than locked and unlocked.
template <auto& aMutex>
constexpr ForkSteps kKeepAcrossFork{lockForFork<aMutex>, unlockAfterFork<aMutex>,
                                    unlockAfterFork<aMutex>};

/// @return how many forks lie between this process and the one that loaded the library.
unsigned int generation() noexcept;

}  // namespace osx::process

#endif
