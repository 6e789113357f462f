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
    commIfDesc_t* lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    if (aParams == nullptr) {
        return COMMIF_ERR_BAD_ARGUMENT;
    }
    if (void* lFormer = osx::takeMsgObject(*lEntry)) {
        osx::closeMsgObject(aDesc, lFormer);
    }
    commIfMsgInfo_t& lInfo = lEntry->info.msg;
    static_cast<commIfMsgParams_t&>(lInfo) = *aParams;
    const unsigned int lStatus =
        osxMsgQueueInit(lInfo.size, static_cast<long>(lInfo.maxMsgs), &lInfo.queue, aQueueName);
    return lStatus == OSX_OK ? COMMIF_OK : COMMIF_ERR_QUEUE_CREATE;
}

int commIfMsgRead(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    const commIfDesc_t* lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    unsigned long lUnwanted = 0;
    const commIfMsgInfo_t& lInfo = lEntry->info.msg;
    return toReadStatus(osxMsgRecv(lInfo.queue, aBuf, aCount,
                                   aRetCount == nullptr ? &lUnwanted : aRetCount,
                                   osx::loadReadTimeout(lInfo.readTimeout)));
}

int commIfMsgWrite(int aDesc, unsigned char* aBuf, unsigned long aCount, unsigned long* aRetCount) {
    const commIfDesc_t* lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    const unsigned int lStatus = osxMsgSend(lEntry->info.msg.queue, aBuf, aCount, nullptr);
    osx::storeCount(aRetCount, lStatus == OSX_OK ? aCount : 0);
    return static_cast<int>(lStatus);
}

int commIfMsgIoctl(int aDesc, unsigned long aCmd, void* aData) {
    commIfDesc_t* lEntry = osx::descriptorEntry(aDesc);
    if (lEntry == nullptr) {
        return COMMIF_ERR_BAD_DESCRIPTOR;
    }
    switch (aCmd) {
        case kFlush:
            osxMsgQueueFlush(lEntry->info.msg.queue);
            return COMMIF_OK;
        case kSetReadTimeout:
            osx::storeReadTimeout(lEntry->info.msg.readTimeout, aData);
            return COMMIF_OK;
        default:
            return COMMIF_ERR_BAD_IOCTL;
    }
}

int commIfMsgClose(int aDesc) {
    commIfDesc_t* lEntry = osx::descriptorEntry(aDesc);
    return lEntry == nullptr ? COMMIF_ERR_BAD_DESCRIPTOR
                             : osx::closeMsgObject(aDesc, osx::takeMsgObject(*lEntry));
}
