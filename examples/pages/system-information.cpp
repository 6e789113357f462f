// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "sysinfo/DynamicSysInfo.h"

int main() {
    DynamicSysInfo lInfo;
    lInfo.refresh();
    std::printf("load %.2f, %ld of %ld kB free\n", lInfo.getAvgCPU1(), lInfo.getTotalMemFree(),
                lInfo.getTotalMem());
    return 0;
}
