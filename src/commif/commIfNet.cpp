// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The network channel: a connected socket of the application's behind a descriptor. The channel
// never owns the socket; closing it only forgets the socket.
#include <algorithm>

#include "commif/channels.h"
#include "osx/osx.h"

namespace osx {

namespace {
/// Closing only checks the kind. The address of this object means "a TCP channel".
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

/// Stores a count of 0. @return the socket layer's last error, which is the call's status.
int failedTransfer(unsigned long* aRetCount) {
    osx::storeCount(aRetCount, 0);
    return static_cast<int>(osxGetLastNetworkError());
}

/// Sends a text with CR LF for each LF. A failed send only writes its line.
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

/// Reads a line and sends each byte back. The caller has filled the buffer with other bytes than
/// NUL, up to a NUL at its end.
void echoLine(void* aSocket, char* aBuf) {
    unsigned long lReceived = 0;
    do {
        osxSocketRecv(aSocket, aBuf, 1, lReceived);
        osxSocketSend(aSocket, aBuf, 1);
        if (*aBuf == '\n') {
            *aBuf = '\0';
            osxSocketSend(aSocket, "\r", 1);
            return;
        }
        ++aBuf;
    } while (*aBuf != '\0');
}

}  // namespace

int commIfNetOpen(int aDesc, commIfNetParams_t* aParams) {
    return osx::withEntry(aDesc, aParams,
                          [](commIfDesc_t& aEntry, const commIfNetParams_t& aGiven) {
                              commIfNetInfo_t& lInfo = aEntry.info.net;
                              static_cast<commIfNetParams_t&>(lInfo) = aGiven;
                              if (lInfo.netKind != COMMIF_NET_TCP) {
                                  lInfo.socket = nullptr;
                                  return COMMIF_ERR_NOT_IMPLEMENTED;
                              }
                              return COMMIF_OK;
                          });
}

int commIfNetRead(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    return osx::withEntry(aDesc, [&](const commIfDesc_t& aEntry) {
        unsigned long lReceived = 0;
        if (osxSocketRecv(aEntry.info.net.socket, aBuf, aCount, lReceived) != 0) {
            return failedTransfer(aRetCount);
        }
        osx::storeCount(aRetCount, lReceived);
        return COMMIF_OK;
    });
}

int commIfNetWrite(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    return osx::withEntry(aDesc, [&](const commIfDesc_t& aEntry) {
        const commIfNetInfo_t& lInfo = aEntry.info.net;
        if (lInfo.textMode == kTextMode) {
            osx::storeCount(aRetCount, aCount);
            sendText(lInfo.socket, aBuf, aCount);
            return COMMIF_OK;
        }
        if (osxSocketSend(lInfo.socket, aBuf, aCount) != 0) {
            return failedTransfer(aRetCount);
        }
        osx::storeCount(aRetCount, aCount);
        return COMMIF_OK;
    });
}

int commIfNetIoctl(int, unsigned long, void*) {
    return COMMIF_ERR_BAD_IOCTL;
}

int commIfNetClose(int aDesc) {
    return osx::closeChannel(aDesc, osx::takeNetObject, osx::closeNetObject);
}

int commifNetfgets(char* aBuf, int aDesc) {
    return osx::withEntry(aDesc, [aBuf](const commIfDesc_t& aEntry) {
        echoLine(aEntry.info.net.socket, aBuf);
        return 1;
    });
}
