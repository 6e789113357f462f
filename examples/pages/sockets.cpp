// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "osx/osx.h"

int main(int aCount, char** aArguments) {
    void* lServer = nullptr;
    if (osxOpenSocket(lServer, aCount > 1 ? aArguments[1] : "localhost:7007") != 0) {
        return 1;
    }
    char lGreeting[6];
    unsigned long lReceived = 0;
    const bool lCame = osxSocketRecv(lServer, lGreeting, sizeof lGreeting, lReceived) == 0;
    if (lCame) {
        std::printf("%.6s", lGreeting);
    }
    osxCloseSocketAndRelease(lServer);
    return lCame ? 0 : 1;
}
