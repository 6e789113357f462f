// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The debug level, and the old symbol that reads it.
#include "base/debugLevel.h"

std::atomic<unsigned int> osx::gLogLevel{0};

void setLogLevel(unsigned int aLevel) noexcept {
    osx::gLogLevel.store(aLevel, std::memory_order_relaxed);
}

// Programs that were built with the header of 1.1.0 call it, which is inline now.
[[gnu::used]] static unsigned int (*const kGetLogLevel)() noexcept = &getLogLevel;
