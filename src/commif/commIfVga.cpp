// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The console channel: writing goes to the process's standard output, and nothing else is done. It
// has no object, and looks at no descriptor.
#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "commif/channels.h"
#include "commif/commIfConsole.h"

namespace osx {

void* takeVgaObject(commIfDesc_t&) noexcept {
    return nullptr;
}

int closeVgaObject(int, void*) noexcept {
    return COMMIF_OK;
}

}  // namespace osx

int commIfVgaOpen(int, commIfVgaParams_t*) {
    return COMMIF_OK;
}

int commIfVgaRead(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    osx::DiagnosticLine(osx::kVgaModule)
        .failure(LM_DEBUG,
                 "%t commIfVgaRead: Not implemented! fd[%d] bbuf[0x%x] Count[%d] retCount[0x%x] \n",
                 aDesc, aBuf, aCount, aRetCount);
    return COMMIF_ERR_NOT_IMPLEMENTED;
}

int commIfVgaWrite(int, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    osx::storeCount(aRetCount, osx::writeToConsole(aBuf, aCount));
    return COMMIF_OK;
}

int commIfVgaIoctl(int aDesc, unsigned long aCmd, void* aData) {
    osx::DiagnosticLine(osx::kVgaModule)
        .failure(LM_DEBUG, "%t commIfVgaIoctl: Not implemented! fd[%d] cmd[%d] data[0x%x] \n",
                 aDesc, aCmd, aData);
    return COMMIF_ERR_NOT_IMPLEMENTED;
}

int commIfVgaClose(int aDesc) {
    return osx::closeVgaObject(aDesc, nullptr);
}
