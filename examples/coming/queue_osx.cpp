// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>
#include <cstring>

#include "osx/osx.h"

struct Sender {
    void* queue = nullptr;
    char** texts = nullptr;
};

static void sendAll(void* aSender) {
    const auto& lSender = *static_cast<Sender*>(aSender);
    for (char** lText = lSender.texts; *lText != nullptr; ++lText) {
        osxMsgSend(lSender.queue, *lText, std::strlen(*lText), nullptr);
    }
}

int main(int aCount, char** aArguments) {
    Sender lSender;
    osxMsgQueueInit(4096, 0, &lSender.queue, "texts");
    lSender.texts = aArguments + 1;
    void* lTask = nullptr;
    osxBeginTask(sendAll, 0, 0, &lSender, &lTask, "sender");
    if (lTask == nullptr) {
        return 1;
    }
    char lText[1024];
    unsigned long lLength = 0;
    for (int lMessage = 1; lMessage < aCount && osxMsgRecv(lSender.queue, lText, sizeof lText,
                                                           &lLength, 10000) == OSX_OK;
         ++lMessage) {
        std::printf("%.*s\n", static_cast<int>(lLength), lText);
    }
    osxEndOtherTask(lTask);
    osxMsgQueueDelete(lSender.queue);
    return 0;
}
