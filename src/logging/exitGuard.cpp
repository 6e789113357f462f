#include "logging/exitGuard.h"

#include <dirent.h>
#include <sys/types.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "ace/ACE.h"
#include "ace/Log_Msg.h"
#include "ace/Object_Manager.h"
#include "ace/Object_Manager_Base.h"

namespace osx {

namespace {

/// Together far longer than a thread stays in a line that goes nowhere, on a loaded machine too.
constexpr int kDrainRounds = 20;
constexpr std::chrono::milliseconds kDrainPause{5};

bool otherThreadsRun() {
    DIR* const lTasks = ::opendir("/proc/self/task");
    if (lTasks == nullptr) {
        return true;
    }
    int lThreads = 0;
    while (const dirent* lEntry = ::readdir(lTasks)) {
        lThreads += lEntry->d_name[0] == '.' ? 0 : 1;
    }
    ::closedir(lTasks);
    return lThreads > 1;
}

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
    for (int lRound = 0; lRound < kDrainRounds; ++lRound) {
        lLog->acquire();
        lLog->release();
        std::this_thread::sleep_for(kDrainPause);
    }
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
