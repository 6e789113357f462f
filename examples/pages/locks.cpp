// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "osx/osx.h"

static void* gMutex = nullptr;
static int gSum = 0;

static void add(void*) {
    for (int lTime = 0; lTime < 1000; ++lTime) {
        osxAcquireMutex(gMutex, OSX_WAIT_INFINITE, 0);
        ++gSum;
        osxReleaseMutex(gMutex);
    }
}

int main() {
    if (osxCreateMutex(&gMutex, nullptr) != OSX_OK) {
        return 1;
    }
    void* lTask = nullptr;
    osxBeginTask(add, 0, 0, nullptr, &lTask, "add");
    add(nullptr);            // here, too, at the same time
    osxEndOtherTask(lTask);  // waits until the task is done
    osxDeleteMutex(gMutex);
    std::printf("%d\n", gSum);
    return 0;
}
