/// @file
/// The process's reactor, running on threads of the library for the time of a test.
#ifndef OSX_TESTS_SUPPORT_RUNNINGREACTOR_H
#define OSX_TESTS_SUPPORT_RUNNINGREACTOR_H

#include "osx/OSX_Reactor.h"

namespace test {

class RunningReactor {
public:
    explicit RunningReactor(int aThreads = 1) {
        reactor().startReactor();
        for (int lThread = 1; lThread < aThreads; ++lThread) {
            reactor().startExtraReactorThread();
        }
    }
    ~RunningReactor() { reactor().stopAndDeleteReactorThreads(); }
    RunningReactor(const RunningReactor&) = delete;
    RunningReactor& operator=(const RunningReactor&) = delete;

    static OSX_Reactor& reactor() {
        return *ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    }
};

}  // namespace test

#endif
