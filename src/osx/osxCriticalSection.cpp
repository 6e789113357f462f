// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The calls of critical sections. The application's structure points at the lock. One that was not
// initialised holds null, which each call reports.
#include <pthread.h>

#include <memory>

#include "ace/Recursive_Thread_Mutex.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "osx/osx.h"

using osx::DiagnosticLine;

unsigned int osxInitializeCriticalSection(osxCriticalSection_t* aSection) {
    std::unique_ptr<ACE_Recursive_Thread_Mutex> lMutex =
        osx::allocate<ACE_Recursive_Thread_Mutex>();
    if (lMutex == nullptr) {
        return OSX_ERR_CREATE_FAILED;
    }
    aSection->mMutex = lMutex.release();
    return OSX_OK;
}

// Enter and leave use the C library's own calls. Through ACE's they cost half as much again.

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
    if (aSection->mMutex == nullptr) {
        DiagnosticLine(osx::kOsxModule)
            .failure(LM_DEBUG, "%t osxDeleteCriticalSection: lMutex == 0  \n");
    }
    delete aSection->mMutex;
}
