// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The calls of mutexes. A mutex's handle points at an `ACE_Thread_Mutex`.
#include <pthread.h>

#include <cerrno>
#include <memory>

#include "ace/OS_NS_Thread.h"
#include "ace/Thread_Mutex.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/milliseconds.h"
#include "base/moduleNames.h"
#include "osx/osx.h"

using osx::DiagnosticLine;

namespace {

/// A try-lock: the system takes the limit for a time of day, which is long past. It is a function
/// of its own so that the common case does not pay for its variables.
[[gnu::noinline]] unsigned int acquireBy(ACE_Thread_Mutex& aMutex, unsigned long aTimeOutMs) {
    if (ACE_OS::mutex_lock(&aMutex.lock(), osx::toTimeValue(aTimeOutMs)) == 0) {
        return OSX_OK;
    }
    return errno == ETIME ? OSX_ERR_TIMEOUT : OSX_ERR_MUTEX_ACQUIRE;
}

/// By the C library's own call: through ACE's, locking and unlocking cost a quarter more.
unsigned int acquire(ACE_Thread_Mutex& aMutex) {
    const int lError = ::pthread_mutex_lock(&aMutex.lock());
    if (lError == 0) {
        return OSX_OK;
    }
    errno = lError;
    return OSX_ERR_MUTEX_ACQUIRE;
}

}  // namespace

unsigned int osxCreateMutex(void** aHandle, const char* aName) {
    std::unique_ptr<ACE_Thread_Mutex> lMutex = osx::allocate<ACE_Thread_Mutex>(aName);
    if (lMutex == nullptr) {
        return OSX_ERR_CREATE_FAILED;
    }
    *aHandle = lMutex.release();
    return OSX_OK;
}

unsigned int osxAcquireMutex(void* aHandle, osxWaitFlag_t aFlag, unsigned long aTimeOutMs) {
    if (aHandle == nullptr) {
        DiagnosticLine(osx::kOsxModule).failure(LM_DEBUG, "%t osxAcquireMutex: lMutex == 0 \n");
        return OSX_ERR_MUTEX_INVALID;
    }
    auto& lMutex = *static_cast<ACE_Thread_Mutex*>(aHandle);
    const bool lHasNoLimit = aFlag == OSX_WAIT_INFINITE || osx::isNoLimit(aTimeOutMs);
    return lHasNoLimit ? acquire(lMutex) : acquireBy(lMutex, aTimeOutMs);
}

unsigned int osxReleaseMutex(void* aHandle) {
    if (aHandle == nullptr) {
        DiagnosticLine(osx::kOsxModule).failure(LM_DEBUG, "%t osxReleaseMutex: lMutex == 0 \n");
        return OSX_ERR_MUTEX_INVALID;
    }
    ::pthread_mutex_unlock(&static_cast<ACE_Thread_Mutex*>(aHandle)->lock());
    return OSX_OK;
}

unsigned int osxDeleteMutex(void* aHandle) {
    if (aHandle == nullptr) {
        DiagnosticLine(osx::kOsxModule).failure(LM_DEBUG, "%t osxDeleteMutex: lMutex == 0 \n");
    }
    delete static_cast<ACE_Thread_Mutex*>(aHandle);
    return OSX_OK;
}
