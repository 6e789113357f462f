// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The descriptor table, and the calls that dispatch to the channel behind a descriptor.
//
// The table has no lock. An entry is taken by an atomic exchange of its word `used`, so that two
// threads never get the same descriptor; what else is in an entry belongs to whoever has taken it.
#include <array>
#include <cstdarg>
#include <cstring>
#include <utility>

#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "base/sparse.h"
#include "commif/channels.h"
#include "commif/formatText.h"

OSX_SPARSE commIfDesc_t commIfDesc[COMMIF_MAX_DESC];

namespace {

/// The operations of one device type.
struct Channel {
    int (*open)(int aDesc, commIfDevParams_t& aParams, const char* aQueueName);
    int (*read)(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount);
    int (*write)(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount);
    int (*ioctl)(int aDesc, unsigned long aCmd, void* aData);
    void* (*takeObject)(commIfDesc_t& aEntry) noexcept;
    int (*closeObject)(int aDesc, void* aObject) noexcept;
};

int ioctlOfNet(int aDesc, unsigned long aCmd, void*) {
    osx::DiagnosticLine(osx::kCommIfModule)
        .failure(LM_DEBUG,
                 "%t commIfIoctl: Not implemented! commIfDesc[desc].info.devType = eNET desc[%d] "
                 "cmd[%d] \n",
                 aDesc, aCmd);
    return COMMIF_ERR_NOT_IMPLEMENTED;
}

/// In the order of `commIfDevType_t`.
constexpr Channel kChannels[] = {
    {[](int aDesc, commIfDevParams_t& aParams, const char*) {
         return commIfVgaOpen(aDesc, &aParams.vga);
     },
     commIfVgaRead, commIfVgaWrite, commIfVgaIoctl, osx::takeVgaObject, osx::closeVgaObject},
    {[](int aDesc, commIfDevParams_t& aParams, const char*) {
         return commIfNetOpen(aDesc, &aParams.net);
     },
     commIfNetRead, commIfNetWrite, ioctlOfNet, osx::takeNetObject, osx::closeNetObject},
    {[](int aDesc, commIfDevParams_t& aParams, const char*) {
         return commIfSerialOpen(aDesc, &aParams.serial);
     },
     commIfSerialRead, commIfSerialWrite, commIfSerialIoctl, osx::takeSerialObject,
     osx::closeSerialObject},
    {[](int aDesc, commIfDevParams_t& aParams, const char*) {
         return commIfFileOpen(aDesc, &aParams.file);
     },
     commIfFileRead, commIfFileWrite, commIfFileIoctl, osx::takeFileObject, osx::closeFileObject},
    {[](int aDesc, commIfDevParams_t& aParams, const char* aQueueName) {
         return commIfMsgOpen(aDesc, &aParams.msg, aQueueName);
     },
     commIfMsgRead, commIfMsgWrite, commIfMsgIoctl, osx::takeMsgObject, osx::closeMsgObject},
};

const Channel* channelOf(unsigned int aDevType) {
    return aDevType >= eVGA && aDevType <= eMSG ? &kChannels[aDevType - eVGA] : nullptr;
}

// `used` is a plain word in the interface's table, so it is only touched atomically here. Threads
// that open write it to take the entry; the thread that closes, or whose open fails, to free it.

bool isTaken(const commIfDesc_t& aEntry) {
    return __atomic_load_n(&aEntry.used, __ATOMIC_ACQUIRE) != 0;
}

void setFree(commIfDesc_t& aEntry) {
    __atomic_store_n(&aEntry.used, 0U, __ATOMIC_RELEASE);
}

bool claim(commIfDesc_t& aEntry) {
    unsigned int lFree = 0;
    return __atomic_compare_exchange_n(&aEntry.used, &lFree, 1U, false, __ATOMIC_ACQ_REL,
                                       __ATOMIC_RELAXED);
}

int claimLowestFree() {
    for (int lDesc = COMMIF_FIRST_DESC; lDesc < COMMIF_MAX_DESC; ++lDesc) {
        if (claim(commIfDesc[lDesc])) {
            return lDesc;
        }
    }
    return -1;
}

/// A descriptor that is being opened. It is freed unless it is kept, also when the thread is
/// cancelled while it opens the channel.
class Claim {
public:
    Claim() : mDesc(claimLowestFree()) {}
    ~Claim() {
        if (mDesc >= 0) {
            setFree(commIfDesc[mDesc]);
        }
    }
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;
    int desc() const { return mDesc; }
    int keep() { return std::exchange(mDesc, -1); }

private:
    int mDesc;
};

int countTaken() {
    int lActive = 0;
    for (int lDesc = COMMIF_FIRST_DESC; lDesc < COMMIF_MAX_DESC; ++lDesc) {
        lActive += isTaken(commIfDesc[lDesc]) ? 1 : 0;
    }
    return lActive;
}

/// @return the status of opening a channel on a descriptor that has been claimed.
int openChannel(int aDesc, unsigned int aDevType, commIfDevParams_t* aParams,
                const char* aQueueName) {
    const Channel* lChannel = channelOf(aDevType);
    if (lChannel == nullptr) {
        return COMMIF_ERR_BAD_DEVTYPE;
    }
    const int lStatus = lChannel->open(aDesc, *aParams, aQueueName);
    commIfDesc[aDesc].info.devType = aDevType;
    return lStatus;
}

/// Performs an operation on the channel behind a descriptor, if there is one.
template <class Operation>
int dispatch(int aDesc, Operation aOperation) {
    return osx::withEntry(aDesc, [&](commIfDesc_t& aEntry) {
        if (!isTaken(aEntry)) {
            return COMMIF_ERR_NOT_OPEN;
        }
        const Channel* lChannel = channelOf(aEntry.info.devType);
        return lChannel == nullptr ? COMMIF_ERR_BAD_DEVTYPE : aOperation(*lChannel, aEntry);
    });
}

/// @return whether all bytes were written.
bool writeText(int aDesc, const char* aText, unsigned long aLength) {
    unsigned long lWritten = 0;
    const int lStatus = commIfWrite(
        aDesc, reinterpret_cast<unsigned char*>(const_cast<char*>(aText)), aLength, &lWritten);
    return lStatus == COMMIF_OK && lWritten == aLength;
}

}  // namespace

int commIfOpen(int* aDesc, commIfDevParams_t* aParams, const char* aQueueName) {
    if (aDesc == nullptr) {
        return COMMIF_ERR_BAD_ARGUMENT;
    }
    *aDesc = -1;
    const unsigned int lDevType = aParams == nullptr ? 0 : aParams->devType;
    if (osx::isTraced(3)) {
        osx::DiagnosticLine(osx::kCommIfModule)
            .trace(3, "%t commIfOpen params->devType[%d] qname[%s] getNrOfActiveDescriptors [%d]\n",
                   lDevType, aQueueName, countTaken());
    }
    Claim lClaim;
    if (lClaim.desc() < 0) {
        return COMMIF_ERR_NO_DESCRIPTOR;
    }
    const int lStatus = openChannel(lClaim.desc(), lDevType, aParams, aQueueName);
    if (lStatus == COMMIF_OK) {
        *aDesc = lClaim.keep();
    }
    return lStatus;
}

int commIfRead(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    return dispatch(aDesc, [&](const Channel& aChannel, const commIfDesc_t&) {
        return aChannel.read(aDesc, aBuf, aCount, aRetCount);
    });
}

int commIfWrite(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    return dispatch(aDesc, [&](const Channel& aChannel, const commIfDesc_t&) {
        return aChannel.write(aDesc, aBuf, aCount, aRetCount);
    });
}

int commIfIoctl(int aDesc, unsigned long aCmd, void* aData) {
    return dispatch(aDesc, [&](const Channel& aChannel, const commIfDesc_t&) {
        return aChannel.ioctl(aDesc, aCmd, aData);
    });
}

int commIfClose(int aDesc) {
    return dispatch(aDesc, [&](const Channel& aChannel, commIfDesc_t& aEntry) {
        void* lObject = aChannel.takeObject(aEntry);
        setFree(aEntry);
        return aChannel.closeObject(aDesc, lObject);
    });
}

int commIffputc(int aCharacter, int aDesc) {
    const char lCharacter = static_cast<char>(aCharacter);
    return writeText(aDesc, &lCharacter, 1) ? 1 : -1;
}

int commIffputs(char* aText, int aDesc) {
    const std::size_t lLength = aText == nullptr ? 0 : std::strlen(aText);
    return lLength < 1 || writeText(aDesc, aText, lLength) ? 1 : -1;
}

int commIffprintf(int aDesc, const char* aFormat, ...) {
    std::array<char, 300> lText;
    va_list lArguments;
    va_start(lArguments, aFormat);
    osx::formatText(lText, aFormat, lArguments);
    va_end(lArguments);
    static_cast<void>(commIffputs(lText.data(), aDesc));
    return 1;
}
