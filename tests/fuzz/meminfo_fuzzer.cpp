// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "fuzz/figures.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    requireFigures(osx::readMemInfo, 50, aData, aSize);
    return 0;
}
