#include "base/debugLevel.h"

#include <atomic>

namespace {
std::atomic<unsigned int> gLogLevel{0};
}

void setLogLevel(unsigned int aLevel) noexcept {
    gLogLevel.store(aLevel, std::memory_order_relaxed);
}

unsigned int getLogLevel() noexcept {
    return gLogLevel.load(std::memory_order_relaxed);
}
