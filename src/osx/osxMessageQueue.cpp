// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The calls of message queues. A queue's handle points at a `MessageQueue`.
#include <algorithm>
#include <cerrno>
#include <memory>

#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "osx/osx.h"
#include "queues/MessageQueue.h"

using osx::DiagnosticLine;
using osx::MessageQueue;

unsigned int osxMsgQueueInit(unsigned long aSize, long aMaxMessages, void** aHandle,
                             const char* aQueueName) {
    const osx::NoCancellation lGuard;
    const char* const lName = aQueueName == nullptr ? "" : aQueueName;
    std::unique_ptr<MessageQueue> lQueue = osx::allocate<MessageQueue>(aSize);
    if (lQueue == nullptr) {
        DiagnosticLine(osx::kQueueModule)
            .failure(LM_DEBUG, "%t osxMsgQueueInit: lQueue == 0  size[%d] maxMsgs[%d] qname[%s] \n",
                     aSize, aMaxMessages, lName);
        return ENOMEM;
    }
    *aHandle = lQueue.release();
    if (!osxNameTableRegister(*aHandle, lName)) {
        DiagnosticLine(osx::kQueueModule).failure(LM_ERROR, "We could not set the queue name.\n");
    }
    return OSX_OK;
}

unsigned int osxMsgSend(void* aQueue, void* aData, unsigned long aSize, long* aResult) {
    if (aQueue == nullptr) {
        DiagnosticLine(osx::kQueueModule)
            .failure(LM_DEBUG, "%t osxMsgSend: lQueue == 0  size[%d] \n", aSize);
        return OSX_OK;
    }
    const int lCount = static_cast<MessageQueue*>(aQueue)->send(aData, aSize);
    if (aResult == nullptr) {  // then a lost message is not reported at all, as promised
        return OSX_OK;
    }
    if (lCount == -1) {
        DiagnosticLine(osx::kQueueModule)
            .failure(LM_DEBUG, "%t osxMsgSend: lQueue->enqueue failed \n");
    }
    *aResult = std::max(lCount, 0);
    return OSX_OK;
}

unsigned int osxMsgRecv(void* aQueue, void* aBuffer, unsigned long aMaxSize,
                        unsigned long* aReceived, unsigned long aTimeOutMs) {
    if (aQueue == nullptr) {
        DiagnosticLine(osx::kQueueModule)
            .failure(LM_DEBUG, "%t osxMsgRecv: lQueue == 0  maxSize[%d] timeOut[%d]\n", aMaxSize,
                     aTimeOutMs);
        return OSX_OK;
    }
    if (!static_cast<MessageQueue*>(aQueue)->receive(aBuffer, aMaxSize, *aReceived, aTimeOutMs)) {
        DiagnosticLine(osx::kQueueModule).trace(9, "%t Queue timeout\n");
        return OSX_ERR_QUEUE_RECV;
    }
    return OSX_OK;
}

unsigned int osxMsgQueueFlush(void* aQueue) {
    if (aQueue == nullptr) {
        DiagnosticLine(osx::kQueueModule).failure(LM_DEBUG, "%t osxMsgQueueFlush: lQueue == 0  \n");
        return OSX_OK;
    }
    static_cast<MessageQueue*>(aQueue)->flush();
    return OSX_OK;
}

unsigned int osxMsgQueueDelete(void* aQueue) {
    if (aQueue == nullptr) {
        DiagnosticLine(osx::kQueueModule)
            .failure(LM_DEBUG, "%t osxMsgQueueDelete: lQueue == 0  \n");
    }
    delete static_cast<MessageQueue*>(aQueue);
    return OSX_OK;
}
