// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "osx/osx.h"

int main() {
    int lPump = 0;
    osxNameTableRegister(&lPump, "pump");
    void* lStart = nullptr;
    osxCreateSemaphore(0, 1, &lStart, "start");
    osxNameTableList();  // a line for each, and one with their number
    osxDeleteSemaphore(lStart);
    osxNameTableUnRegister(&lPump);
    return 0;
}
