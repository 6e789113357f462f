// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What ACE itself does not survive: a shortage of memory when its singletons or its threads are
// made, and the end of the process while other threads use it.
#include "process/aceState.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "ace/ACE.h"
#include "ace/Framework_Component.h"
#include "ace/Malloc_Base.h"
#include "ace/Object_Manager.h"
#include "ace/Object_Manager_Base.h"
#include "ace/Thread_Exit.h"
#include "base/NoCancellation.h"
#include "base/aceLog.h"
#include "base/allocate.h"
#include "process/aceAccess.h"
#include "process/atFork.h"

namespace osx::process {

namespace {

/// ACE's managers free, at the end, what its logging, its threads and its reactors stand on. A
/// manager that has been shut down already frees nothing, so each is made to believe that it has.
class ManagerAccess : public ACE_Object_Manager_Base {
public:
    template <class Manager>
    static void keep(Manager* aManager) noexcept {
        // The manager itself is freed all the same. A copy keeps its pointers reachable, so that
        // leak checkers do not report them.
        static unsigned char lKept[sizeof(Manager)];
        std::memcpy(lKept, static_cast<const void*>(aManager), sizeof lKept);
        aManager->*(&ManagerAccess::object_manager_state_) = OBJ_MAN_SHUT_DOWN;
    }
};

/// One more than the `generation` in which ACE has begun the calling thread; 0 if it has not. The
/// child of a fork has another generation: there the thread is the main one.
thread_local unsigned int gBegunIn = 0;

/// ACE's log of the calling thread, with the room for a line that it can do without only as long as
/// nobody writes one.
bool hasLog() {
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    if (lLog != nullptr && lLog->msg() == nullptr) {
        lLog->~ACE_Log_Msg();
        new (lLog) ACE_Log_Msg;
    }
    return lLog != nullptr && lLog->msg() != nullptr;
}

/// A new thread of ACE's makes a log and an exit hook for itself, and uses them without a look. A
/// thread for which there is no memory yet begins when there is. It never does once ACE is gone.
void awaitMemory(ACE_OS_Thread_Descriptor* aDescriptor, ACE_OS_Log_Msg_Attributes& aAttributes) {
    const NoCancellation lGuard;  // nothing knows of the thread yet
    constexpr timespec kPause{0, 10000000};
    while (isAceGone() || !hasLog() || ACE_Thread_Exit::instance() == nullptr) {
        ::nanosleep(&kPause, nullptr);
    }
    ACE_Log_Msg::inherit_hook(aDescriptor, aAttributes);
    gBegunIn = generation() + 1;
}

/// ACE sets its own again where the last thread that had a log has ended. It is written only then,
/// as each new thread reads it, on another processor.
void makeThreadsAwaitMemory() {
    if (__atomic_load_n(&firstStepOfThreads(), __ATOMIC_RELAXED) != &awaitMemory) {
        __atomic_store_n(&firstStepOfThreads(), &awaitMemory, __ATOMIC_RELAXED);
    }
}

/// Else the first task, thread or reactor would make them, and crash in ACE if memory is short by
/// then. The category of ACE's own lines, which needs none, is made before there are threads that
/// fork: it registers a handler with the C library, whose lock a child would have for ever.
[[gnu::constructor]] void makeSingletons() {
    ACE_Thread_Manager::instance();
    ACE_Allocator::instance();
    ACE_Framework_Repository::instance();
    ACE_Log_Msg::instance();
    ACE_Log_Category::ace_lib();
    makeThreadsAwaitMemory();
}

}  // namespace

/// ACE takes the descriptor of a thread from its store. It makes more before it comes to the last
/// one, and does not look whether it had the memory.
bool reserveThread() noexcept {
    makeThreadsAwaitMemory();
    constexpr std::size_t kSpare = 4;
    auto& lFree = spareThreadDescriptors();
    // The analyzer does not see that ACE's list owns what is added to it.
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
    while (lFree.size() < kSpare) {
        std::unique_ptr<ACE_Thread_Descriptor> lDescriptor = allocate<ACE_Thread_Descriptor>();
        if (lDescriptor == nullptr || !isWhole(*lDescriptor)) {
            errno = ENOMEM;
            return false;
        }
        lFree.add(lDescriptor.release());
    }
    return true;
}

bool isBegunByAce() noexcept {
    return gBegunIn == generation() + 1;
}

bool isAceGone() noexcept {
    return ACE_Object_Manager::shutting_down() != 0;
}

void hideAceTraces() noexcept {
    ACE::debug(false);
}

void silenceAceLogging() noexcept {
    if (ACE_Log_Msg* const lLog = ACE_Log_Msg::instance()) {
        lLog->priority_mask(0, ACE_Log_Msg::PROCESS);
    }
    __atomic_fetch_or(&logFlags(), u_long{ACE_Log_Msg::SILENT}, __ATOMIC_RELAXED);
}

/// There are two managers: that of ACE, and that of its layer above the system. Each frees its own
/// objects at the end.
void keepAce() noexcept {
    ManagerAccess::keep(ACE_Object_Manager::instance());
    ManagerAccess::keep(ACE_OS_Object_Manager::instance());
}

}  // namespace osx::process
