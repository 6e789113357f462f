#include "logging/exitGuard.h"

#include <cstring>

#include "ace/ACE.h"
#include "ace/Log_Msg.h"
#include "ace/Object_Manager.h"
#include "ace/Object_Manager_Base.h"
#include "logging/settle.h"

namespace osx {

namespace {

/// ACE's managers free what its logging, its threads and its reactors stand on. They do nothing if
/// they have been shut down already, so each is made to believe that.
class ManagerAccess : public ACE_Object_Manager_Base {
public:
    template <class Manager>
    static void keep(Manager* aManager) noexcept {
        // The manager itself is freed all the same: keep what only it points at in sight of leak
        // checkers.
        static unsigned char gKept[sizeof(Manager)];
        std::memcpy(gKept, static_cast<const void*>(aManager), sizeof gKept);
        aManager->*(&ManagerAccess::object_manager_state_) = OBJ_MAN_SHUT_DOWN;
    }
};

/// Lets no further line into ACE's logging, and those that are in come out: at the very end ACE
/// frees its log lock in any case.
void silenceLogging() {
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    lLog->priority_mask(0, ACE_Log_Msg::PROCESS);
    lLog->set_flags(ACE_Log_Msg::SILENT);
    settleOtherThreads();
}

}  // namespace

void guardExit() noexcept {
    if (ACE_Object_Manager::shutting_down() != 0) {
        return;
    }
    ACE::debug(false);
    if (otherThreadsRun()) {
        silenceLogging();
        ManagerAccess::keep(ACE_Object_Manager::instance());
        ManagerAccess::keep(ACE_OS_Object_Manager::instance());
    }
}

}  // namespace osx
