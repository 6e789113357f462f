// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The calls of semaphores. A semaphore's handle points at an `ACE_Semaphore`.
#include <semaphore.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "ace/Semaphore.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/milliseconds.h"
#include "base/moduleNames.h"
#include "osx/osx.h"

using osx::DiagnosticLine;

namespace {

/// @return null when memory is short. The semaphore is unnamed in any case: a name would make it
///         the system's, shared with every other semaphore of that name and outliving the process.
std::unique_ptr<ACE_Semaphore> createSemaphore(int aStartCount, int aMaxCount) {
    auto lSem = osx::allocate<ACE_Semaphore>(static_cast<unsigned int>(std::max(aStartCount, 0)),
                                             USYNC_THREAD, nullptr, nullptr, aMaxCount);
    if (lSem != nullptr && lSem->lock().sema_ == nullptr) {
        lSem.reset();
    }
    return lSem;
}

sem_t* posixSemaphore(void* aHandle) {
    return static_cast<ACE_Semaphore*>(aHandle)->lock().sema_;
}

void registerName(void* aHandle, const char* aName) {
    if (osxNameTableRegister(aHandle, aName)) {
        DiagnosticLine(osx::kOsxModule).trace(1, "%t Semaphore name set to %s\n", aName);
    } else {
        DiagnosticLine(osx::kOsxModule).trace(1, "%t We could not set the semaphore name\n");
    }
}

/// @return 0; -1 with `errno`, as of the calls of the C library.
int waitFor(sem_t* aSemaphore, osxWaitFlag_t aFlag, unsigned long aTimeOutMs) {
    if (aFlag == OSX_WAIT_INFINITE || osx::isNoLimit(aTimeOutMs)) {
        return ::sem_wait(aSemaphore);
    }
    // The system takes this for a time of day, which is long past: a count of 0 expires at once.
    const timespec lDeadline = osx::toTimeValue(aTimeOutMs);
    const int lResult = ::sem_timedwait(aSemaphore, &lDeadline);
    if (lResult != 0 && errno == ETIMEDOUT) {
        errno = ETIME;
    }
    return lResult;
}

}  // namespace

unsigned int osxCreateSemaphore(int aStartCount, int aMaxCount, void** aHandle, const char* aName) {
    const osx::NoCancellation lGuard;
    const bool lNamed = aName != nullptr && *aName != '\0';
    std::unique_ptr<ACE_Semaphore> lSem = createSemaphore(aStartCount, aMaxCount);
    if (lSem == nullptr || aStartCount < 0) {
        errno = lSem == nullptr ? ENOMEM : EINVAL;
        DiagnosticLine(osx::kOsxModule)
            .failure(LM_DEBUG,
                     "%t osxCreateSemaphore: lSem == 0 iStartCount[%d] iMaxCount[%d] name[%s]\n",
                     aStartCount, aMaxCount, lNamed ? aName : "-");
        return OSX_ERR_SEMAPHORE;
    }
    *aHandle = lSem.release();
    if (lNamed) {
        registerName(*aHandle, aName);
    }
    return OSX_OK;
}

unsigned int osxAcquireSemaphore(void* aHandle, osxWaitFlag_t aFlag, unsigned long aTimeOutMs) {
    if (aHandle == nullptr) {
        return OSX_ERR_SEMAPHORE;
    }
    if (waitFor(posixSemaphore(aHandle), aFlag, aTimeOutMs) == 0) {
        return OSX_OK;
    }
    return errno == ETIME ? OSX_ERR_TIMEOUT : OSX_ERR_SEM_ACQUIRE;
}

unsigned int osxReleaseSemaphore(void* aHandle) {
    if (aHandle == nullptr) {
        return OSX_ERR_SEMAPHORE;
    }
    ::sem_post(posixSemaphore(aHandle));
    return OSX_OK;
}

unsigned int osxDeleteSemaphore(void* aHandle) {
    // First out of the table: a new object may get the same address as soon as this one is freed.
    osxNameTableUnRegister(aHandle);
    delete static_cast<ACE_Semaphore*>(aHandle);
    return OSX_OK;
}
