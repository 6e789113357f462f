#include <algorithm>
#include <cstring>
#include <memory>

#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "osx/messageQueue.h"
#include "osx/osx.h"

using osx::DiagnosticLine;
using osx::Message;
using osx::MessageQueue;

namespace {

constexpr char kModule[] = "osxMsgACE.cpp";

/// @return the number of messages in the queue; -1 on failure.
int enqueueCopy(MessageQueue& aQueue, const void* aData, std::size_t aSize) {
    std::unique_ptr<Message> lMessage(Message::create(aData, aSize));
    if (lMessage == nullptr) {
        return -1;
    }
    // The thread may be cancelled while it waits for room.
    const int lCount = aQueue.put(*lMessage);
    if (lCount != -1) {
        static_cast<void>(lMessage.release());
    }
    return lCount;
}

/// @return the number of bytes copied.
std::size_t copyOut(const ACE_Message_Block& aMessage, void* aBuffer, std::size_t aMaxSize) {
    const std::size_t lSize = std::min(aMessage.length(), aMaxSize);
    if (lSize > 0) {
        std::memcpy(aBuffer, aMessage.rd_ptr(), lSize);
    }
    return lSize;
}

}  // namespace

unsigned int osxMsgQueueInit(unsigned long aSize, long aMaxMessages, void** aHandle,
                             const char* aQueueName) {
    const osx::NoCancellation lGuard;
    const char* const lName = aQueueName == nullptr ? "" : aQueueName;
    auto* const lQueue = osx::allocate<MessageQueue>(aSize);
    if (lQueue == nullptr) {
        DiagnosticLine(kModule).failure(
            LM_DEBUG, "%t osxMsgQueueInit: lQueue == 0  size[%d] maxMsgs[%d] qname[%s] \n", aSize,
            aMaxMessages, lName);
        return ENOMEM;
    }
    *aHandle = lQueue;
    if (!osxNameTableRegister(lQueue, lName)) {
        DiagnosticLine(kModule).failure(LM_ERROR, "We could not set the queue name.\n");
    }
    return OSX_OK;
}

unsigned int osxMsgSend(void* aQueue, void* aData, unsigned long aSize, long* aResult) {
    auto* const lQueue = DiagnosticLine(kModule).object<MessageQueue>(
        aQueue, LM_DEBUG, "%t osxMsgSend: lQueue == 0  size[%d] \n", aSize);
    if (lQueue == nullptr) {
        return OSX_OK;
    }
    const int lCount = enqueueCopy(*lQueue, aData, aSize);
    if (aResult == nullptr) {
        return OSX_OK;
    }
    if (lCount == -1) {
        DiagnosticLine(kModule).failure(LM_DEBUG, "%t osxMsgSend: lQueue->enqueue failed \n");
    }
    *aResult = std::max(lCount, 0);
    return OSX_OK;
}

unsigned int osxMsgRecv(void* aQueue, void* aBuffer, unsigned long aMaxSize,
                        unsigned long* aReceived, unsigned long aTimeOutMs) {
    auto* const lQueue = DiagnosticLine(kModule).object<MessageQueue>(
        aQueue, LM_DEBUG, "%t osxMsgRecv: lQueue == 0  maxSize[%d] timeOut[%d]\n", aMaxSize,
        aTimeOutMs);
    if (lQueue == nullptr) {
        return OSX_OK;
    }
    ACE_Message_Block* const lMessage = lQueue->take(aTimeOutMs);
    if (lMessage == nullptr) {
        DiagnosticLine(kModule).trace(9, "%t Queue timeout\n");
        return OSX_ERR_QUEUE_RECV;
    }
    *aReceived = copyOut(*lMessage, aBuffer, aMaxSize);
    lMessage->release();
    return OSX_OK;
}

unsigned int osxMsgQueueFlush(void* aQueue) {
    if (auto* const lQueue = DiagnosticLine(kModule).object<MessageQueue>(
            aQueue, LM_DEBUG, "%t osxMsgQueueFlush: lQueue == 0  \n")) {
        lQueue->flush();
    }
    return OSX_OK;
}

unsigned int osxMsgQueueDelete(void* aQueue) {
    delete DiagnosticLine(kModule).object<MessageQueue>(aQueue, LM_DEBUG,
                                                        "%t osxMsgQueueDelete: lQueue == 0  \n");
    return OSX_OK;
}
