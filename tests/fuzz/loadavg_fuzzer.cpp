// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdint>

#include "sysinfo/procFiles.h"

// Whatever the file holds, reading it ends without a fault.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    osx::readLoadAvg({reinterpret_cast<const char*>(aData), aSize});
    return 0;
}
