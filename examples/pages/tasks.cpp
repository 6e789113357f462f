// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "osx/osx.h"

static void addOne(void* aNumber) {
    ++*static_cast<int*>(aNumber);
}

int main() {
    int lNumber = 41;
    void* lTask = nullptr;  // stays null if the task cannot start
    osxBeginTask(addOne, 0, 0, &lNumber, &lTask, "add one");
    if (lTask == nullptr) {
        return 1;
    }
    osxEndOtherTask(lTask);  // waits until addOne has returned, and frees the task
    std::printf("%d\n", lNumber);
    return 0;
}
