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
    auto* const lTimeoutHandler =
        osx::DiagnosticLine(osx::kOsxModule)
            .object<osxTimeoutHandler>(aHandle, LM_ERROR,
                                       "%t osxCancelTimer: lTimeoutHandler==0. \n");
    return lTimeoutHandler == nullptr ? -1 : lTimeoutHandler->cancel();
}

void osxDestroyTimer(void*& aHandle) {
    auto* const lTimeoutHandler =
        osx::DiagnosticLine(osx::kOsxModule)
            .object<osxTimeoutHandler>(aHandle, LM_ERROR,
                                       "%t osxDestroyTimer: lTimeoutHandler==0. \n");
    delete lTimeoutHandler;
    aHandle = nullptr;
}
