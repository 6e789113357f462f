// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "osx/osx.h"

int main() {
    unsigned int lHours = 0, lMinutes = 0, lSeconds = 0, lDay = 0, lMonth = 0, lYear = 0;
    if (osxGetTime(&lHours, &lMinutes, &lSeconds, &lDay, &lMonth, &lYear) != 0) {
        return 1;
    }
    char lVersion[4];
    getInfo(lVersion, nullptr);
    std::printf("%04u-%02u-%02u %02u:%02u:%02u, osx %s\n", lYear, lMonth, lDay, lHours, lMinutes,
                lSeconds, lVersion);
    return 0;
}
