#include <cstring>

#include "ace/Dirent.h"
#include "ace/OS_NS_unistd.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/standardDescriptors.h"
#include "commif/channels.h"

namespace {

using osx::DiagnosticLine;
using osx::kChannelModule;

int nextName(ACE_Dirent& aDirent, char* aName) {
    const ACE_DIRENT* lEntry = aDirent.read();
    if (lEntry == nullptr) {
        return COMMIF_ERR_NO_MORE_ENTRIES;
    }
    if (aName != nullptr) {
        std::memcpy(aName, lEntry->d_name, std::strlen(lEntry->d_name) + 1);
    }
    return COMMIF_OK;
}

}  // namespace

int commIfDirOpen(char* aDirectory, char* aFirstName, void** aHandle) {
    const osx::StandardDescriptorsTaken lTaken;
    auto* lDirent = aHandle == nullptr
                        ? nullptr
                        : osx::allocate<ACE_Dirent>(aDirectory == nullptr ? "/" : aDirectory);
    if (lDirent == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t commIfDirOpen: lDirent == 0 aDirectory [%s] \n", aDirectory);
        return COMMIF_ERR_FILE_IO;
    }
    *aHandle = lDirent;
    return nextName(*lDirent, aFirstName);
}

int commIfDirEntryGet(void* aHandle, char* aName) {
    auto* lDirent =
        DiagnosticLine(kChannelModule)
            .object<ACE_Dirent>(aHandle, LM_DEBUG, "%t commIfDirEntryGet: lDirent == 0 \n");
    return lDirent == nullptr ? COMMIF_ERR_FILE_IO : nextName(*lDirent, aName);
}

void commIfDirClose(void* aHandle) {
    delete DiagnosticLine(kChannelModule)
        .object<ACE_Dirent>(aHandle, LM_DEBUG, "%t commIfDirClose: lDirent == 0 \n");
}

int commIfDirDefaultSet(const char* aDirectory) {
    const char* lDirectory = aDirectory == nullptr ? "C:\\" : aDirectory;
    if (ACE_OS::chdir(lDirectory) != 0) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t commIfDirDefaultSet: Unable chdir to  [%s] \n", lDirectory);
        return COMMIF_ERR_FILE_IO;
    }
    return COMMIF_OK;
}
