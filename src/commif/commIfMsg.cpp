// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The message-queue channel: a message queue of its own behind a descriptor.
#include <utility>

#include "base/NoCancellation.h"
#include "commif/channels.h"
#include "osx/osx.h"

namespace osx {

void* takeMsgObject(commIfDesc_t& aEntry) noexcept {
    return std::exchange(aEntry.info.msg.queue, nullptr);
}

int closeMsgObject(int, void* aObject) noexcept {
    const NoCancellation lGuard;
    osxMsgQueueDelete(aObject);
    return COMMIF_OK;
}

}  // namespace osx

namespace {

constexpr unsigned long kFlush = 5;
constexpr unsigned long kSetReadTimeout = 6;

/// `osxMsgRecv` has one code for every failure, a time-out and a deactivated queue: for a channel
/// both are a time-out. It returns no other code but OSX_OK.
int toReadStatus(unsigned int aQueueStatus) {
    switch (aQueueStatus) {
        case OSX_OK:
            return COMMIF_OK;
        case OSX_ERR_QUEUE_RECV:
            return COMMIF_ERR_TIMEOUT;
        default:
            return COMMIF_ERR_QUEUE_RECV;
    }
}

}  // namespace

int commIfMsgOpen(int aDesc, commIfMsgParams_t* aParams, const char* aQueueName) {
    return osx::withEntry(
        aDesc, aParams, [&](commIfDesc_t& aEntry, const commIfMsgParams_t& aGiven) {
            if (void* lFormer = osx::takeMsgObject(aEntry)) {
                osx::closeMsgObject(aDesc, lFormer);
            }
            commIfMsgInfo_t& lInfo = aEntry.info.msg;
            static_cast<commIfMsgParams_t&>(lInfo) = aGiven;
            const unsigned int lStatus = osxMsgQueueInit(
                lInfo.size, static_cast<long>(lInfo.maxMsgs), &lInfo.queue, aQueueName);
            return lStatus == OSX_OK ? COMMIF_OK : COMMIF_ERR_QUEUE_CREATE;
        });
}

int commIfMsgRead(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    return osx::withEntry(aDesc, [&](const commIfDesc_t& aEntry) {
        unsigned long lUnwanted = 0;
        const commIfMsgInfo_t& lInfo = aEntry.info.msg;
        return toReadStatus(osxMsgRecv(lInfo.queue, aBuf, aCount,
                                       aRetCount == nullptr ? &lUnwanted : aRetCount,
                                       osx::loadReadTimeout(lInfo.readTimeout)));
    });
}

int commIfMsgWrite(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    return osx::withEntry(aDesc, [&](const commIfDesc_t& aEntry) {
        const unsigned int lStatus = osxMsgSend(aEntry.info.msg.queue, aBuf, aCount, nullptr);
        osx::storeCount(aRetCount, lStatus == OSX_OK ? aCount : 0);
        return static_cast<int>(lStatus);
    });
}

int commIfMsgIoctl(int aDesc, unsigned long aCmd, void* aData) {
    return osx::withEntry(aDesc, [&](commIfDesc_t& aEntry) {
        switch (aCmd) {
            case kFlush:
                osxMsgQueueFlush(aEntry.info.msg.queue);
                return COMMIF_OK;
            case kSetReadTimeout:
                osx::storeReadTimeout(aEntry.info.msg.readTimeout, aData);
                return COMMIF_OK;
            default:
                return COMMIF_ERR_BAD_IOCTL;
        }
    });
}

int commIfMsgClose(int aDesc) {
    return osx::closeChannel(aDesc, osx::takeMsgObject, osx::closeMsgObject);
}
