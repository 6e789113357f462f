#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"
#include "osx/osxListenHandler.h"

using osx::DiagnosticLine;

namespace {
constexpr auto kFailed = static_cast<unsigned long>(-1);
}  // namespace

unsigned long osxRegisterPort(void*& aPort, unsigned long aPortnumber,
                              osxNewConnectionFnc_t aNewConnectionFnc,
                              osxDataAvailFnc_t aDataAvailFnc, osxNewDataFnc_t aNewDataFnc,
                              osxClosedConnectionFnc_t aClosedConnectionFnc, void* aUserData) {
    const osx::NoCancellation lGuard;
    osxListenHandler* lListener = nullptr;
    if (OSX_Reactor::ofProcess() != nullptr) {
        lListener = osx::allocate<osxListenHandler>(aPortnumber, aNewConnectionFnc, aDataAvailFnc,
                                                    aNewDataFnc, aClosedConnectionFnc, aUserData)
                        .release();
    }
    if (lListener == nullptr) {
        errno = ENOMEM;
        DiagnosticLine(osx::kOsxModule)
            .failure(LM_DEBUG, "%t osxRegisterPort: losxListenHandler == 0 \n");
        return kFailed;
    }
    aPort = lListener;
    return 0;
}

unsigned long osxUnregisterPort(void*& aPort) {
    auto* const lListener =
        DiagnosticLine(osx::kOsxModule)
            .object<osxListenHandler>(aPort, LM_DEBUG,
                                      "%t osxUnregisterPort: losxListenHandler == 0 \n");
    if (lListener == nullptr) {
        return kFailed;
    }
    const osx::NoCancellation lGuard;
    lListener->close();
    lListener->remove_reference();
    aPort = nullptr;
    return 0;
}
