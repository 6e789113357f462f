// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The calls of tasks. A task's handle points at a `ThreadACE`.
#include <memory>

#include "ace/Thread_Manager.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "osx/ThreadACE.h"
#include "osx/osx.h"
#include "threads/ThreadName.h"
#include "threads/startThread.h"

using osx::DiagnosticLine;

namespace {

/// A task whose thread has the task's name.
class NamedTask final : public ThreadACE {
public:
    NamedTask(void (*aFunction)(void*), void* aArgument, const char* aName)
        : ThreadACE(aFunction, aArgument), mName(aName) {}

    int svc() override {
        mName.giveToCaller();
        return ThreadACE::svc();
    }

private:
    const osx::ThreadName mName;
};

/// Lest it have that of the thread that began it.
const char* nameOrDefault(const char* aName) {
    return aName == nullptr || *aName == '\0' ? "osx-task" : aName;
}

}  // namespace

unsigned int osxBeginTask(void (*aFunction)(void*), unsigned long, unsigned long, void* aArgument,
                          void** aHandle, const char* aName) {
    const osx::NoCancellation lGuard;
    std::unique_ptr<ThreadACE> lThread =
        osx::allocate<NamedTask>(aFunction, aArgument, nameOrDefault(aName));
    if (lThread == nullptr || osx::startThread(*lThread) != 0) {
        return OSX_OK;
    }
    *aHandle = lThread.release();
    osxNameTableRegister(*aHandle, aName);
    return OSX_OK;
}

int osxThreadWait(void* aHandle) {
    if (aHandle == nullptr) {
        DiagnosticLine(osx::kOsxModule).failure(LM_ERROR, "%t osxThreadWait: lThread == 0  \n");
        return -1;
    }
    return static_cast<ThreadACE*>(aHandle)->join();
}

unsigned int osxEndOtherTask(void* aHandle) {
    auto* const lThread = static_cast<ThreadACE*>(aHandle);
    if (lThread == nullptr) {
        return OSX_OK;
    }
    lThread->thr_mgr()->kill_task(lThread, 0);
    // A task that ends itself is still running: better lost than freed under it.
    if (lThread->join() == 0) {
        delete lThread;
    }
    return OSX_OK;
}

void osxBeginningOfTask() {}

void osxEndTask() {}
