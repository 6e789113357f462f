// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/level.h"
#include "fuzz/require.h"
#include "logging/Logging.h"

// Any chunk sets the level to the number at its front, and nothing beyond the chunk is read.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    constexpr unsigned int kFormer = 3;
    setLogLevel(kFormer);
    std::vector<unsigned char> lChunk(aData, aData + aSize);
    void* lUserData = nullptr;
    NewLogLevelData(nullptr, lUserData, lChunk.data(), lChunk.size());
    require(getLogLevel() == expectedLevel(std::string(lChunk.begin(), lChunk.end()), kFormer));
    return 0;
}
