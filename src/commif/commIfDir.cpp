// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Directory listings, which use no descriptor, and the working directory.
//
// A listing opens its directory itself: ACE's class does not tell the descriptor, so that it could
// be neither close-on-exec nor kept away from the numbers of standard input, output and error.
#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "ace/OS_NS_unistd.h"
#include "base/Descriptor.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/standardDescriptors.h"
#include "commif/channels.h"

namespace {

using osx::DiagnosticLine;
using osx::kChannelModule;

struct CloseStream {
    void operator()(DIR* aStream) const {
        const osx::NoCancellation lGuard;
        ::closedir(aStream);
    }
};
using Stream = std::unique_ptr<DIR, CloseStream>;

/// @return the stream of a directory; null, after a line as ACE's class writes it, if it cannot be
/// opened.
Stream openStream(const char* aName) {
    osx::Descriptor lDescriptor = osx::makeDescriptor(
        [aName] { return ::open(aName, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC); });
    Stream lStream(lDescriptor ? ::fdopendir(lDescriptor.get()) : nullptr);
    if (lStream != nullptr) {
        static_cast<void>(lDescriptor.release());  // the stream's from now on
        return lStream;
    }
    lDescriptor.reset();
    DiagnosticLine(kChannelModule)
        .failure(LM_ERROR, "%s: %s\n", "ACE_Dirent::ACE_Dirent", std::strerror(errno));
    return lStream;
}

/// What a listing's handle points at. A directory that cannot be opened has one, too, and no
/// entries.
class Directory {
public:
    explicit Directory(const char* aName) : mStream(openStream(aName)) {}

    const dirent* read() { return mStream == nullptr ? nullptr : ::readdir(mStream.get()); }

private:
    Stream mStream;
};

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
    auto lDirectory = aHandle == nullptr
                          ? nullptr
                          : osx::allocate<Directory>(aDirectory == nullptr ? "/" : aDirectory);
    if (lDirectory == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t commIfDirOpen: lDirent == 0 aDirectory [%s] \n", aDirectory);
        return COMMIF_ERR_FILE_IO;
    }
    const int lStatus = nextName(*lDirectory, aFirstName);
    *aHandle = lDirectory.release();
    return lStatus;
}

int commIfDirEntryGet(void* aHandle, char* aName) {
    if (aHandle == nullptr) {
        DiagnosticLine(kChannelModule).failure(LM_DEBUG, "%t commIfDirEntryGet: lDirent == 0 \n");
        return COMMIF_ERR_FILE_IO;
    }
    return nextName(*static_cast<Directory*>(aHandle), aName);
}

void commIfDirClose(void* aHandle) {
    if (aHandle == nullptr) {
        DiagnosticLine(kChannelModule).failure(LM_DEBUG, "%t commIfDirClose: lDirent == 0 \n");
    }
    delete static_cast<Directory*>(aHandle);
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
