// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The calls of ports. A port's handle points at an `osxListenHandler`, which counts its references:
// the handle is one of them.
#include <cerrno>
#include <memory>

#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"
#include "osx/osxListenHandler.h"
#include "osx/registerPort.h"

using osx::DiagnosticLine;

namespace {
constexpr auto kFailed = static_cast<unsigned long>(-1);
}  // namespace

unsigned long osx::registerPort(void*& aPort, unsigned long aPortnumber,
                                const osxPortCallbacks_t& aCallbacks) {
    const osx::NoCancellation lGuard;
    std::unique_ptr<osxListenHandler> lListener;
    if (OSX_Reactor::ofProcess() != nullptr) {
        lListener = osx::allocate<osxListenHandler>(aPortnumber, aCallbacks);
    }
    if (lListener == nullptr) {
        errno = ENOMEM;
        DiagnosticLine(osx::kOsxModule)
            .failure(LM_DEBUG, "%t osxRegisterPort: losxListenHandler == 0 \n");
        return kFailed;
    }
    aPort = lListener.release();
    return 0;
}

unsigned long osxRegisterPort(void*& aPort, unsigned long aPortnumber,
                              osxNewConnectionFnc_t aNewConnectionFnc,
                              osxDataAvailFnc_t aDataAvailFnc, osxNewDataFnc_t aNewDataFnc,
                              osxClosedConnectionFnc_t aClosedConnectionFnc, void* aUserData) {
    return osx::registerPort(
        aPort, aPortnumber,
        {aNewConnectionFnc, aDataAvailFnc, aNewDataFnc, aClosedConnectionFnc, aUserData});
}

unsigned long osxUnregisterPort(void*& aPort) {
    if (aPort == nullptr) {
        DiagnosticLine(osx::kOsxModule)
            .failure(LM_DEBUG, "%t osxUnregisterPort: losxListenHandler == 0 \n");
        return kFailed;
    }
    const osx::NoCancellation lGuard;
    auto* const lListener = static_cast<osxListenHandler*>(aPort);
    lListener->close();
    lListener->remove_reference();
    aPort = nullptr;
    return 0;
}
