// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The file channel: an open file behind a descriptor.
//
// Writing to a regular file needs no guard against signals, which would cost four system calls for
// one, unless the size of the process's files is limited; so the first write after an open finds
// out. A limit that is set later is not seen.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <utility>

#include "ace/FILE_IO.h"
#include "ace/OS_NS_unistd.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/writeSignals.h"
#include "commif/channels.h"
#include "commif/fileAccess.h"

namespace osx {

void* takeFileObject(commIfDesc_t& aEntry) noexcept {
    return std::exchange(aEntry.info.file.fileIo, nullptr);
}

int closeFileObject(int aDesc, void* aObject) noexcept {
    const NoCancellation lGuard;
    const std::unique_ptr<ACE_FILE_IO> lFile(static_cast<ACE_FILE_IO*>(aObject));
    if (lFile == nullptr) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t commIfFileClose: lFile == 0 desc[%d]  \n", aDesc);
        return COMMIF_ERR_NO_DEVICE;
    }
    lFile->close();
    return COMMIF_OK;
}

}  // namespace osx

namespace {

using osx::DiagnosticLine;
using osx::kChannelModule;

constexpr unsigned long kSeek = 50;
constexpr unsigned long kSync = 51;
constexpr unsigned long kGetSize = 52;

struct ModeFlag {
    unsigned int modeBit;
    int openFlag;
};
constexpr ModeFlag kModeFlags[] = {{0x1, O_WRONLY},  {0x2, O_RDWR},    {0x8, O_APPEND},
                                   {0x100, O_CREAT}, {0x200, O_TRUNC}, {0x400, O_EXCL}};

int toOpenFlags(unsigned int aOpenMode) {
    int lFlags = 0;
    for (const ModeFlag& lFlag : kModeFlags) {
        lFlags |= (aOpenMode & lFlag.modeBit) != 0 ? lFlag.openFlag : 0;
    }
    return lFlags;
}

/// Fills the entry, which then holds no object. The object comes last: where pointers have 32 bits,
/// it has the place of the last word that was copied.
void copyParameters(commIfFileInfo_t& aInfo, const commIfFileParams_t& aParams) {
    std::memcpy(aInfo.fileName, aParams.fileName, sizeof aInfo.fileName);
    aInfo.openMode = aParams.openMode;
    std::memcpy(aInfo.reserved, aParams.reserved, sizeof aInfo.reserved);
    aInfo.fileIo = nullptr;
}

/// The name of a file, terminated also where it fills its field.
class FileName {
public:
    explicit FileName(const commIfFileParams_t& aParams) {
        mText.back() = '\0';
        std::memcpy(mText.data(), aParams.fileName, sizeof aParams.fileName);
    }
    const char* text() const { return mText.data(); }

private:
    std::array<char, COMMIF_FILE_NAME_LEN + 1> mText;
};

struct SeekArguments {
    unsigned int origin;
    int offset;
};

int seek(const ACE_FILE_IO& aFile, const void* aData) {
    static constexpr std::array<int, 3> kOrigins{SEEK_SET, SEEK_CUR, SEEK_END};
    const auto* lSeek = static_cast<const SeekArguments*>(aData);
    if (lSeek == nullptr || lSeek->origin >= kOrigins.size()) {
        return COMMIF_ERR_BAD_ARGUMENT;
    }
    const off_t lPosition =
        ACE_OS::lseek(aFile.get_handle(), lSeek->offset, kOrigins[lSeek->origin]);
    return lPosition < 0 ? COMMIF_ERR_FILE_IO : COMMIF_OK;
}

int sync(const ACE_FILE_IO& aFile) {
    return ACE_OS::fsync(aFile.get_handle()) < 0 ? COMMIF_ERR_FILE_IO : COMMIF_OK;
}

int storeSize(ACE_FILE_IO& aFile, void* aData) {
    return aData == nullptr ? COMMIF_ERR_BAD_ARGUMENT
                            : getFileSize(aFile, *static_cast<unsigned long*>(aData));
}

/// What a descriptor's file is. The writes to a regular file raise no signal, unless the size of
/// the process's files is limited.
///
///     kUnknown --first write--> kQuiet or kOther;  each open: back to kUnknown
enum class FileKind : unsigned char { kUnknown, kQuiet, kOther };

/// By descriptor. The thread that opens a descriptor writes its kind, and so does one that writes
/// to it first; threads that write read it. They are atomic because several may write first.
std::atomic<FileKind> gFileKinds[COMMIF_MAX_DESC];

FileKind kindOf(int aDesc) {
    return gFileKinds[aDesc].load(std::memory_order_relaxed);
}

void setKind(int aDesc, FileKind aKind) {
    gFileKinds[aDesc].store(aKind, std::memory_order_relaxed);
}

FileKind findKind(const ACE_FILE_IO& aFile) {
    struct stat lStatus{};
    const bool lIsRegular = ::fstat(aFile.get_handle(), &lStatus) == 0 && S_ISREG(lStatus.st_mode);
    return lIsRegular && !osx::mayRaiseWriteSignalTo(lStatus.st_mode) ? FileKind::kQuiet
                                                                      : FileKind::kOther;
}

/// Writes where a signal may be raised, or where the kind is not known yet.
[[gnu::noinline]] ssize_t writeGuarded(int aDesc, const ACE_FILE_IO& aFile,
                                       const unsigned char* aBuf, unsigned long aCount) {
    if (kindOf(aDesc) == FileKind::kUnknown) {
        setKind(aDesc, findKind(aFile));
    }
    const osx::WriteSignalGuard lGuard;
    return aFile.send(aBuf, aCount);
}

bool isWhole(ssize_t aTransferred, unsigned long aCount) {
    return aTransferred >= 0 && static_cast<unsigned long>(aTransferred) == aCount;
}

// The lines are written by functions of their own, which keeps the usual path short.

[[gnu::cold]] int shortRead(int aDesc, unsigned long aCount, ssize_t aRead) {
    DiagnosticLine(kChannelModule)
        .failure(LM_DEBUG, "%t commIfFileRead: retCount != Count fd[%d] Count[%d] retCount[%d]\n",
                 aDesc, aCount, aRead);
    return COMMIF_ERR_SHORT_READ;
}

[[gnu::cold]] int shortWrite(int aDesc, unsigned long aCount, ssize_t aWritten) {
    DiagnosticLine(kChannelModule)
        .failure(LM_DEBUG, "%t commIfFileWrite: retCount != Count fd[%d] Count[%d] retCount[%d] \n",
                 aDesc, aCount, aWritten);
    return COMMIF_ERR_FILE_IO;
}

/// Performs a call on the file behind a descriptor.
/// @param aNoFile the line if there is none.
template <class Call>
int withFile(int aDesc, const char* aNoFile, Call aCall, int aLine = __builtin_LINE()) {
    return osx::withEntry(aDesc, [&](const commIfDesc_t& aEntry) {
        ACE_FILE_IO* const lFile = aEntry.info.file.fileIo;
        if (lFile == nullptr) {
            DiagnosticLine(kChannelModule, aLine).failure(LM_DEBUG, aNoFile, aDesc);
            return COMMIF_ERR_NO_DEVICE;
        }
        return aCall(*lFile);
    });
}

int openInEntry(int aDesc, commIfDesc_t& aEntry, const commIfFileParams_t& aParams) {
    if (void* lFormer = osx::takeFileObject(aEntry)) {
        osx::closeFileObject(aDesc, lFormer);
    }
    copyParameters(aEntry.info.file, aParams);
    const FileName lName(aParams);
    auto lFile = osx::allocate<ACE_FILE_IO>();
    if (lFile == nullptr || !osx::openFile(*lFile, lName.text(), toOpenFlags(aParams.openMode))) {
        DiagnosticLine(kChannelModule)
            .failure(LM_DEBUG, "%t commIfFileOpen: Unable to open file [%s]!  desc[%d]  \n",
                     lName.text(), aDesc);
        return COMMIF_ERR_FILE_OPEN;
    }
    setKind(aDesc, FileKind::kUnknown);
    aEntry.info.file.fileIo = lFile.release();
    return COMMIF_OK;
}

}  // namespace

int commIfFileOpen(int aDesc, commIfFileParams_t* aParams) {
    return osx::withEntry(aDesc, aParams,
                          [aDesc](commIfDesc_t& aEntry, const commIfFileParams_t& aGiven) {
                              return openInEntry(aDesc, aEntry, aGiven);
                          });
}

int commIfFileRead(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    return withFile(aDesc, "%t commIfFileRead: lFile == 0 fd[%d]  \n",
                    [&](const ACE_FILE_IO& aFile) {
                        const ssize_t lRead = aFile.recv(aBuf, aCount);
                        osx::storeCount(aRetCount, lRead);
                        return isWhole(lRead, aCount) ? COMMIF_OK : shortRead(aDesc, aCount, lRead);
                    });
}

int commIfFileWrite(int aDesc, unsigned char* aBuf, unsigned long aCount,
                    unsigned long* aRetCount) {
    return withFile(
        aDesc, "%t commIfFileWrite: lFile == 0 fd[%d]  \n", [&](const ACE_FILE_IO& aFile) {
            const ssize_t lWritten = kindOf(aDesc) == FileKind::kQuiet
                                         ? aFile.send(aBuf, aCount)
                                         : writeGuarded(aDesc, aFile, aBuf, aCount);
            osx::storeCount(aRetCount, lWritten);
            return isWhole(lWritten, aCount) ? COMMIF_OK : shortWrite(aDesc, aCount, lWritten);
        });
}

int commIfFileIoctl(int aDesc, unsigned long aCmd, void* aData) {
    return withFile(aDesc, "%t commIfFileIoctl: lFile == 0 fd[%d]  \n", [&](ACE_FILE_IO& aFile) {
        switch (aCmd) {
            case kSeek:
                return seek(aFile, aData);
            case kSync:
                return sync(aFile);
            case kGetSize:
                return storeSize(aFile, aData);
            default:
                return COMMIF_ERR_BAD_IOCTL;
        }
    });
}

int commIfFileClose(int aDesc) {
    return osx::closeChannel(aDesc, osx::takeFileObject, osx::closeFileObject);
}
