// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Utilities for files by name, which use no descriptor: size, rename, delete, copy.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

#include "ace/FILE_Connector.h"
#include "ace/FILE_IO.h"
#include "base/NoCancellation.h"
#include "base/diagnosticLine.h"
#include "base/writeSignals.h"
#include "commif/channels.h"
#include "commif/fileAccess.h"

namespace {

using osx::DiagnosticLine;
using osx::kChannelModule;

/// Closes its file in the end, which ACE's class does not do.
class OpenFile : public ACE_FILE_IO {
public:
    OpenFile() = default;
    ~OpenFile() {
        const osx::NoCancellation lGuard;
        close();
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
};

constexpr std::size_t kKernelsPiece = 65536;
/// Small, because it lies on the caller's stack.
constexpr std::size_t kOwnPiece = 16384;

std::size_t pieceOf(ACE_OFF_T aSize, std::size_t aMost) {
    return static_cast<std::size_t>(std::min(aSize, static_cast<ACE_OFF_T>(aMost)));
}

/// Has the kernel copy a number of bytes, in pieces that stay in the processor's caches.
/// @return how many bytes are left: all, if the kernel does not copy between files of these kinds.
ACE_OFF_T copyInKernel(const ACE_FILE_IO& aSource, const ACE_FILE_IO& aDestination,
                       ACE_OFF_T aSize) {
    while (aSize > 0) {
        const ssize_t lCopied =
            ::copy_file_range(aSource.get_handle(), nullptr, aDestination.get_handle(), nullptr,
                              pieceOf(aSize, kKernelsPiece), 0);
        if (lCopied <= 0) {
            break;
        }
        aSize -= lCopied;
    }
    return aSize;
}

/// Copies a number of bytes in pieces. It ends early, without saying so, when a read or a write
/// fails.
void copyByReading(const ACE_FILE_IO& aSource, const ACE_FILE_IO& aDestination, ACE_OFF_T aSize) {
    std::array<char, kOwnPiece> lPiece;
    while (aSize > 0) {
        const ssize_t lRead = aSource.recv(lPiece.data(), pieceOf(aSize, lPiece.size()));
        if (lRead <= 0 ||
            aDestination.send_n(lPiece.data(), static_cast<std::size_t>(lRead)) != lRead) {
            return;
        }
        aSize -= lRead;
    }
}

/// Copies in pieces, so that a file may be larger than the memory. A piece that begins where the
/// destination may grow no further would end the process; one write of everything is cut short.
void copyBytes(const ACE_FILE_IO& aSource, const ACE_FILE_IO& aDestination, ACE_OFF_T aSize) {
    const osx::WriteSignalGuard lGuard;
    const ACE_OFF_T lLeft = copyInKernel(aSource, aDestination, aSize);
    if (lLeft > 0) {
        copyByReading(aSource, aDestination, lLeft);
    }
}

}  // namespace

int getFileSize(ACE_FILE_IO& aFile, unsigned long& aSize) {
    ACE_OFF_T lSize = 0;
    if (!osx::findFileSize(aFile, lSize)) {
        return COMMIF_ERR_FILE_IO;
    }
    aSize = static_cast<unsigned long>(lSize);
    return COMMIF_OK;
}

int commIfFileRename(const char* aCurrentName, const char* aNewName) {
    if (aCurrentName == nullptr || aNewName == nullptr ||
        std::rename(aCurrentName, aNewName) != 0) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t commIfFileRename: pcCurrentName [%s] pcNewName[%s]  \n",
                     aCurrentName, aNewName);
        return COMMIF_ERR_FILE_IO;
    }
    return COMMIF_OK;
}

int commIfFileDelete(const char* aName) {
    ACE_FILE_IO lFile;
    // Without waiting, as for the writer of a pipe that has this name.
    if (!osx::openFile(lFile, aName, O_RDONLY | O_NONBLOCK)) {
        return COMMIF_ERR_FILE_OPEN;
    }
    const osx::NoCancellation lGuard;
    lFile.remove();
    return COMMIF_OK;
}

int commIfFileCopy(const char* aSource, const char* aDestination) {
    OpenFile lSource;
    if (!osx::openFile(lSource, aSource, O_RDONLY)) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t commIfFileCopy: Unable to find file [%s] \n", aSource);
        return COMMIF_ERR_FILE_OPEN;
    }
    OpenFile lDestination;
    if (!osx::openFile(lDestination, aDestination, O_WRONLY | O_CREAT)) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t commIfFileCopy: Unable to open file [%s] \n", aDestination);
        return COMMIF_ERR_FILE_OPEN;
    }
    ACE_OFF_T lSize = 0;
    if (!osx::findFileSize(lSource, lSize)) {
        return COMMIF_ERR_NO_DEVICE;
    }
    copyBytes(lSource, lDestination, lSize);
    return COMMIF_OK;
}

void commIfFilenameToUpper(const char* aName, char* aUpper) {
    if (aName == nullptr || aUpper == nullptr) {
        return;
    }
    while (*aName != '\0') {
        *aUpper++ = static_cast<char>(std::toupper(static_cast<unsigned char>(*aName++)));
    }
    *aUpper = '\0';
}
