#include <algorithm>

#include "commif/channels.h"
#include "osx/osx.h"

namespace osx {

namespace {
/// All that closing a network channel has to know of it.
char gKnownKind;
}  // namespace

void* takeNetObject(commIfDesc_t& aEntry) noexcept {
    aEntry.info.net.socket = nullptr;
    return aEntry.info.net.netKind == COMMIF_NET_TCP ? &gKnownKind : nullptr;
}

int closeNetObject(int, void* aObject) noexcept {
    return aObject == nullptr ? COMMIF_ERR_NOT_IMPLEMENTED : COMMIF_OK;
}

}  // namespace osx

namespace {

constexpr unsigned int kTextMode = 1;

int networkError(unsigned long* aRetCount) {
    osx::storeCount(aRetCount, 0);
    return static_cast<int>(osxGetLastNetworkError());
}

/// Sends a text with CR LF for each LF. What cannot be sent is lost.
void sendText(void* aSocket, const unsigned char* aBuf, unsigned long aCount) {
    const unsigned char* const lEnd = aBuf + aCount;
    while (aBuf != lEnd) {
        const unsigned char* const lLineEnd = std::find(aBuf, lEnd, '\n');
        if (lLineEnd != aBuf) {
            osxSocketSend(aSocket, aBuf, static_cast<unsigned long>(lLineEnd - aBuf));
        }
        if (lLineEnd == lEnd) {
            return;
        }
        osxSocketSend(aSocket, "\r\n", 2);
        aBuf = lLineEnd + 1;
    }
}

}  // namespace

int commIfNetOpen(int aDesc, commIfNetParams_t* aParams) {
    commIfDesc_t* lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    if (aParams == nullptr) {
        return COMMIF_ERR_BAD_ARGUMENT;
    }
    commIfNetInfo_t& lInfo = lEntry->info.net;
    static_cast<commIfNetParams_t&>(lInfo) = *aParams;
    if (lInfo.netKind != COMMIF_NET_TCP) {
        lInfo.socket = nullptr;
        return COMMIF_ERR_NOT_IMPLEMENTED;
    }
    return COMMIF_OK;
}

int commIfNetRead(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    const commIfDesc_t* lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    unsigned long lReceived = 0;
    if (osxSocketRecv(lEntry->info.net.socket, aBuf, aCount, lReceived) != 0) {
        return networkError(aRetCount);
    }
    osx::storeCount(aRetCount, lReceived);
    return COMMIF_OK;
}

int commIfNetWrite(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    const commIfDesc_t* lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    const commIfNetInfo_t& lInfo = lEntry->info.net;
    if (lInfo.textMode == kTextMode) {
        osx::storeCount(aRetCount, aCount);
        sendText(lInfo.socket, aBuf, aCount);
        return COMMIF_OK;
    }
    if (osxSocketSend(lInfo.socket, aBuf, aCount) != 0) {
        return networkError(aRetCount);
    }
    osx::storeCount(aRetCount, aCount);
    return COMMIF_OK;
}

int commIfNetIoctl(int, unsigned long, void*) {
    return COMMIF_ERR_BAD_IOCTL;
}

int commIfNetClose(int aDesc) {
    commIfDesc_t* lEntry = osx::descriptorEntry(aDesc);
    return lEntry == nullptr ? COMMIF_ERR_BAD_DESCRIPTOR
                             : osx::closeNetObject(aDesc, osx::takeNetObject(*lEntry));
}

int commifNetfgets(char* aBuf, int aDesc) {
    const commIfDesc_t* lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    void* const lSocket = lEntry->info.net.socket;
    unsigned long lReceived = 0;
    do {
        osxSocketRecv(lSocket, aBuf, 1, lReceived);
        osxSocketSend(lSocket, aBuf, 1);
        if (*aBuf == '\n') {
            *aBuf = '\0';
            osxSocketSend(lSocket, "\r", 1);
            break;
        }
        ++aBuf;
    } while (*aBuf != '\0');
    return 1;
}
