// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The calls of timers. A timer's handle points at an `osxTimeoutHandler`.
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "osx/osx.h"
#include "osx/osxTimeoutHandler.h"

void* osxCreateTimer(void (*aFunction)(const void*), void* aArgument, long aDelayMs,
                     long aIntervalMs) {
    return osx::allocate<osxTimeoutHandler>(aFunction, aArgument, aDelayMs, aIntervalMs).release();
}

int osxCancelTimer(void* aHandle) {
    if (aHandle == nullptr) {
        osx::DiagnosticLine(osx::kOsxModule)
            .failure(LM_ERROR, "%t osxCancelTimer: lTimeoutHandler==0. \n");
        return -1;
    }
    return static_cast<osxTimeoutHandler*>(aHandle)->cancel();
}

void osxDestroyTimer(void*& aHandle) {
    if (aHandle == nullptr) {
        osx::DiagnosticLine(osx::kOsxModule)
            .failure(LM_ERROR, "%t osxDestroyTimer: lTimeoutHandler==0. \n");
    }
    delete static_cast<osxTimeoutHandler*>(aHandle);
    aHandle = nullptr;
}
