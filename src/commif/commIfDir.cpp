#include <dirent.h>
#include <fcntl.h>

#include <cstring>

#include "ace/Log_Category.h"
#include "ace/OS_NS_unistd.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/closeKeepingErrno.h"
#include "base/diagnosticLine.h"
#include "base/standardDescriptors.h"
#include "commif/channels.h"

namespace {

using osx::DiagnosticLine;
using osx::kChannelModule;

/// In place of ACE's own, whose descriptor cannot be had.
class Directory {
public:
    explicit Directory(const char* aName);
    ~Directory();
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    const dirent* read() { return mStream == nullptr ? nullptr : ::readdir(mStream); }

private:
    DIR* mStream = nullptr;
};

Directory::Directory(const char* aName) {
    const int lDescriptor =
        osx::makeDescriptor([aName] {
            return ::open(aName, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
        }).release();
    if (lDescriptor != -1) {
        mStream = ::fdopendir(lDescriptor);
    }
    if (mStream != nullptr) {
        return;
    }
    if (lDescriptor != -1) {
        osx::closeKeepingErrno(lDescriptor);
    }
    ACELIB_ERROR((LM_ERROR, "%p\n", "ACE_Dirent::ACE_Dirent"));
}

Directory::~Directory() {
    const osx::NoCancellation lGuard;
    if (mStream != nullptr) {
        ::closedir(mStream);
    }
}

int nextName(Directory& aDirectory, char* aName) {
    const dirent* lEntry = aDirectory.read();
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
    auto* lDirent =
        aHandle == nullptr
            ? nullptr
            : osx::allocate<Directory>(aDirectory == nullptr ? "/" : aDirectory).release();
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
            .object<Directory>(aHandle, LM_DEBUG, "%t commIfDirEntryGet: lDirent == 0 \n");
    return lDirent == nullptr ? COMMIF_ERR_FILE_IO : nextName(*lDirent, aName);
}

void commIfDirClose(void* aHandle) {
    delete DiagnosticLine(kChannelModule)
        .object<Directory>(aHandle, LM_DEBUG, "%t commIfDirClose: lDirent == 0 \n");
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
