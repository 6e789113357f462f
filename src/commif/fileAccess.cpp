// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Opening and sizing files.
#include "commif/fileAccess.h"

#include <fcntl.h>

#include "ace/FILE_Connector.h"
#include "base/diagnosticLine.h"
#include "commif/channels.h"
#include "commif/deviceHandle.h"

namespace osx {

bool openFile(ACE_FILE_IO& aFile, const char* aName, int aFlags) {
    constexpr int kPermissions = 0644;
    const ACE_FILE_Addr lAddress(aName == nullptr ? "" : aName);
    return ACE_FILE_Connector().connect(aFile, lAddress, nullptr, ACE_Addr::sap_any, 0,
                                        aFlags | O_CLOEXEC | O_NOCTTY, kPermissions) == 0 &&
           moveAboveStandard(aFile);
}

bool findFileSize(ACE_FILE_IO& aFile, ACE_OFF_T& aSize) {
    ACE_FILE_Info lInfo;
    if (aFile.get_info(lInfo) != 0) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t getFileSize: Unable to retrieve info from the file\n");
        return false;
    }
    aSize = lInfo.size_;
    return true;
}

}  // namespace osx
