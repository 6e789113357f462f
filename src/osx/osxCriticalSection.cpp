#include <pthread.h>

#include "ace/Recursive_Thread_Mutex.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "osx/osx.h"

using osx::DiagnosticLine;

unsigned int osxInitializeCriticalSection(osxCriticalSection_t* aSection) {
    auto* const lMutex = osx::allocate<ACE_Recursive_Thread_Mutex>().release();
    if (lMutex == nullptr) {
        return OSX_ERR_CREATE_FAILED;
    }
    aSection->mMutex = lMutex;
    return OSX_OK;
}

// The C library's own calls: the way through ACE's took half as long as they do.

void osxEnterCriticalSection(osxCriticalSection_t* aSection) {
    if (aSection->mMutex == nullptr) {
        DiagnosticLine(osx::kOsxModule)
            .failure(LM_DEBUG, "%t osxEnterCriticalSection: lMutex == 0  \n");
    } else {
        ::pthread_mutex_lock(&aSection->mMutex->lock());
    }
}

void osxLeaveCriticalSection(osxCriticalSection_t* aSection) {
    if (aSection->mMutex == nullptr) {
        DiagnosticLine(osx::kOsxModule)
            .failure(LM_DEBUG, "%t osxLeaveCriticalSection: lMutex == 0  \n");
    } else {
        ::pthread_mutex_unlock(&aSection->mMutex->lock());
    }
}

void osxDeleteCriticalSection(osxCriticalSection_t* aSection) {
    delete DiagnosticLine(osx::kOsxModule)
        .object<ACE_Recursive_Thread_Mutex>(aSection->mMutex, LM_DEBUG,
                                            "%t osxDeleteCriticalSection: lMutex == 0  \n");
}
