// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "osx/osx.h"

static void print(void* aQueue) {
    char lText[16];
    unsigned long lLength = 0;
    while (osxMsgRecv(aQueue, lText, sizeof lText, &lLength, OSX_INFINITE_TIMEOUT) == OSX_OK &&
           lLength > 0) {
        std::printf("%.*s\n", static_cast<int>(lLength), lText);
    }
}

int main() {
    void* lQueue = nullptr;
    if (osxMsgQueueInit(65536, 0, &lQueue, "texts") != OSX_OK) {
        return 1;
    }
    void* lTask = nullptr;
    osxBeginTask(print, 0, 0, lQueue, &lTask, "print");
    char lText[] = "hello";
    osxMsgSend(lQueue, lText, 5, nullptr);
    osxMsgSend(lQueue, nullptr, 0, nullptr);  // an empty message, which ends the task
    osxEndOtherTask(lTask);
    osxMsgQueueDelete(lQueue);
    return 0;
}
