// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "osx/osx.h"

int main() {
    char lVersion[4];
    getInfo(lVersion, nullptr);
    std::printf("made with C++%ld, osx %s\n", __cplusplus / 100 % 100, lVersion);
    return 0;
}
