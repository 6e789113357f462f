#include "ace/OS_NS_Thread.h"
#include "ace/Thread_Mutex.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/milliseconds.h"
#include "osx/osx.h"

using osx::DiagnosticLine;

namespace {

constexpr char kModule[] = "osxACE.cpp";

int lock(ACE_Thread_Mutex& aMutex, osxWaitFlag_t aFlag, unsigned long aTimeOutMs) {
    if (aFlag == OSX_WAIT_INFINITE || osx::isNoLimit(aTimeOutMs)) {
        return ACE_OS::mutex_lock(&aMutex.lock());
    }
    // Taken for a time of day this is long past, which makes the call a try-lock.
    return ACE_OS::mutex_lock(&aMutex.lock(), osx::toTimeValue(aTimeOutMs));
}

}  // namespace

unsigned int osxCreateMutex(void** aHandle, const char* aName) {
    auto* const lMutex = osx::allocate<ACE_Thread_Mutex>(aName);
    if (lMutex == nullptr) {
        return OSX_ERR_CREATE_FAILED;
    }
    *aHandle = lMutex;
    return OSX_OK;
}

unsigned int osxAcquireMutex(void* aHandle, osxWaitFlag_t aFlag, unsigned long aTimeOutMs) {
    auto* const lMutex = DiagnosticLine(kModule).object<ACE_Thread_Mutex>(
        aHandle, LM_DEBUG, "%t osxAcquireMutex: lMutex == 0 \n");
    if (lMutex == nullptr) {
        return OSX_ERR_MUTEX_INVALID;
    }
    if (lock(*lMutex, aFlag, aTimeOutMs) == 0) {
        return OSX_OK;
    }
    return errno == ETIME ? OSX_ERR_TIMEOUT : OSX_ERR_MUTEX_ACQUIRE;
}

unsigned int osxReleaseMutex(void* aHandle) {
    auto* const lMutex = DiagnosticLine(kModule).object<ACE_Thread_Mutex>(
        aHandle, LM_DEBUG, "%t osxReleaseMutex: lMutex == 0 \n");
    if (lMutex == nullptr) {
        return OSX_ERR_MUTEX_INVALID;
    }
    ACE_OS::mutex_unlock(&lMutex->lock());
    return OSX_OK;
}

unsigned int osxDeleteMutex(void* aHandle) {
    delete DiagnosticLine(kModule).object<ACE_Thread_Mutex>(aHandle, LM_DEBUG,
                                                            "%t osxDeleteMutex: lMutex == 0 \n");
    return OSX_OK;
}
