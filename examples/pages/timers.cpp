// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "osx/osx.h"

static int gTicks = 0;

static void tick(const void* aText) {
    std::printf("%s %d\n", static_cast<const char*>(aText), ++gTicks);
    if (gTicks == 3) {
        osxStopReactor();
    }
}

int main() {
    char lText[] = "tick";
    void* lTimer = osxCreateTimer(tick, lText, 100, 1);  // every 100 ms: the 1 says "periodic"
    const int lResult = osxRunReactor();                 // here, until tick stops it
    osxDestroyTimer(lTimer);
    return lResult;
}
