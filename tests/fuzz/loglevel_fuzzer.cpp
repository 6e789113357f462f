#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "fuzz/require.h"
#include "logging/Logging.h"

namespace {

constexpr unsigned int kFormer = 3;

/// @return the level that a chunk sets, as the C library reads a terminated text.
unsigned int expectedLevel(const std::string& aChunk) {
    if (aChunk.empty()) {
        return kFormer;
    }
    constexpr long long kMin = std::numeric_limits<std::int32_t>::min();
    constexpr long long kMax = std::numeric_limits<std::int32_t>::max();
    return static_cast<unsigned int>(
        std::clamp(std::strtoll(aChunk.c_str(), nullptr, 10), kMin, kMax));
}

}  // namespace

// Any chunk sets the level to the number at its front, and nothing beyond the chunk is read.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    setLogLevel(kFormer);
    std::vector<unsigned char> lChunk(aData, aData + aSize);
    void* lUserData = nullptr;
    NewLogLevelData(nullptr, lUserData, lChunk.data(), lChunk.size());
    const std::string lText(lChunk.begin(), lChunk.end());
    require(getLogLevel() == expectedLevel(lText));
    return 0;
}
