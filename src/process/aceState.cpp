#include "process/aceState.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "ace/ACE.h"
#include "ace/Base_Thread_Adapter.h"
#include "ace/Framework_Component.h"
#include "ace/Log_Msg.h"
#include "ace/Malloc_Base.h"
#include "ace/Object_Manager.h"
#include "ace/Object_Manager_Base.h"
#include "ace/Thread_Manager.h"
#include "base/NeverDestroyed.h"
#include "base/allocate.h"
#include "process/atFork.h"

namespace osx::process {

namespace {

/// ACE's managers free what its logging, its threads and its reactors stand on. They do nothing if
/// they have been shut down already, so each is made to believe that.
class ManagerAccess : public ACE_Object_Manager_Base {
public:
    template <class Manager>
    static void keep(Manager* aManager) noexcept {
        // The manager itself is freed all the same: keep what only it points at in sight of leak
        // checkers.
        static unsigned char lKept[sizeof(Manager)];
        std::memcpy(lKept, static_cast<const void*>(aManager), sizeof lKept);
        aManager->*(&ManagerAccess::object_manager_state_) = OBJ_MAN_SHUT_DOWN;
    }
};

class ThreadManagerAccess : public ACE_Thread_Manager {
public:
    static ACE_Thread_Mutex& lock() {
        return ACE_Thread_Manager::instance()->*(&ThreadManagerAccess::lock_);
    }
    static auto& freeDescriptors() {
        return ACE_Thread_Manager::instance()->*(&ThreadManagerAccess::thread_desc_freelist_);
    }
};

/// An explicit instantiation may name what is private.
template <class Member, Member aMember>
struct DescriptorAccess {
    friend bool isWhole(const ACE_Thread_Descriptor& aDescriptor) {
        return aDescriptor.*aMember != nullptr;
    }
};
bool isWhole(const ACE_Thread_Descriptor& aDescriptor);
template struct DescriptorAccess<ACE_DEFAULT_THREAD_MANAGER_LOCK * ACE_Thread_Descriptor::*,
                                 &ACE_Thread_Descriptor::sync_>;

/// ACE sets its flags under its log lock, which another thread may hold for ever: one whose output
/// is stalled. An explicit instantiation may name what is private.
u_long& logFlags();
template <u_long& aFlags>
struct FlagsAccess {
    friend u_long& logFlags() { return aFlags; }
};
template struct FlagsAccess<ACE_Log_Msg::flags_>;

/// What ACE's logging forgets when it is closed: of the process, and of the thread.
struct LogSettings {
    u_long mFlags;
    ACE_Log_Msg_Backend* mBackend;
};
LogSettings gLogSettings{};

/// ACE closes and frees its logging by way of the thread's object, unless that has a thread
/// descriptor; then it leaves the object to that.
void closeLogging(ACE_Log_Msg& aLog) {
    static const NeverDestroyed<ACE_Thread_Descriptor> lKeeper;
    ACE_Thread_Descriptor* const lDescriptor = aLog.thr_desc();
    aLog.thr_desc(lKeeper.get());
    ACE_Base_Thread_Adapter::close_log_msg();
    aLog.thr_desc(lDescriptor);
}

/// The destructor of ACE's system log has closed that.
void reopenSystemLog(ACE_Log_Msg& aLog) {
    if ((gLogSettings.mFlags & ACE_Log_Msg::SYSLOG) != 0) {
        const std::string lName = ACE_Log_Msg::program_name();
        aLog.open(lName.c_str(), ACE_Log_Msg::SYSLOG, lName.c_str());
        logFlags() = gLogSettings.mFlags;
    }
}

/// ACE's log lock knows its owner by the system's thread id, so in the child it can be neither
/// given back nor taken. ACE makes a new one once its logging has been closed.
void renewLogging() {
    ACE_Log_Msg* const lFormer = ACE_Log_Msg::instance();
    if (lFormer == nullptr) {
        return;
    }
    closeLogging(*lFormer);
    if (ACE_Log_Msg* const lLog = ACE_Log_Msg::instance()) {
        lLog->thr_desc(lFormer->thr_desc());
        lLog->msg_ostream(lFormer->msg_ostream());
        lLog->msg_callback(lFormer->msg_callback());
        lLog->priority_mask(lFormer->priority_mask());
        ACE_Log_Msg::msg_backend(gLogSettings.mBackend);
        reopenSystemLog(*lLog);
    }
}

/// A back end that starts threads, or waits for the reactor's token, while another thread forks is
/// not reckoned with.
void takeLocks() {
    if (isAceGone()) {
        return;
    }
    ThreadManagerAccess::lock().acquire();
    ACE_Log_Msg::instance()->acquire();
    gLogSettings = {logFlags(), ACE_Log_Msg::msg_backend()};
}

void releaseLocks() {
    if (!isAceGone()) {
        ACE_Log_Msg::instance()->release();
        ThreadManagerAccess::lock().release();
    }
}

void renewLocks() {
    if (!isAceGone()) {
        // Refused, as said above; but who analyses locks learns that this thread has it no more.
        ACE_Log_Msg::instance()->release();
        ThreadManagerAccess::lock().release();
        renewLogging();
    }
}

const AtFork gAtFork(ForkOrder::kLog, {takeLocks, releaseLocks, renewLocks});

/// The first task, thread or reactor would make them, and crash in ACE when memory is short by
/// then.
[[gnu::constructor]] void makeSingletons() {
    ACE_Thread_Manager::instance();
    ACE_Allocator::instance();
    ACE_Framework_Repository::instance();
}

}  // namespace

/// ACE takes the descriptor of a thread from those that are free. It makes more before it comes to
/// the last one, and does not look whether it had the memory.
bool reserveThread() noexcept {
    constexpr std::size_t kSpare = 4;
    auto& lFree = ThreadManagerAccess::freeDescriptors();
    // The analyzer does not see that ACE's list owns what is added to it.
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
    while (lFree.size() < kSpare) {
        std::unique_ptr<ACE_Thread_Descriptor> lDescriptor(
            allocate<ACE_Thread_Descriptor>().release());
        if (lDescriptor == nullptr || !isWhole(*lDescriptor)) {
            errno = ENOMEM;
            return false;
        }
        lFree.add(lDescriptor.release());
    }
    return true;
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

void keepAce() noexcept {
    ManagerAccess::keep(ACE_Object_Manager::instance());
    ManagerAccess::keep(ACE_OS_Object_Manager::instance());
}

}  // namespace osx::process
