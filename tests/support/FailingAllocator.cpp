// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "support/FailingAllocator.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

struct State {
    bool active = false;
    int allowed = 0;
    int left = 0;
    int failures = 0;
};
thread_local State gState;

/// Of all threads but the one that is spared.
struct OfOtherThreads {
    std::atomic<bool> active{false};
    std::atomic<int> allowed{0};
    std::atomic<int> left{0};
    std::atomic<int> failures{0};
};
OfOtherThreads gOtherThreads;
thread_local bool gIsSpared = false;

bool mustFailHere() {
    if (gIsSpared || !gOtherThreads.active || gOtherThreads.allowed-- > 0 ||
        gOtherThreads.left-- <= 0) {
        return false;
    }
    ++gOtherThreads.failures;
    return true;
}

bool mustFail() {
    if (mustFailHere()) {
        return true;
    }
    if (!gState.active || gState.allowed-- > 0 || gState.left-- <= 0) {
        return false;
    }
    ++gState.failures;
    return true;
}

void* allocateOrNull(std::size_t aSize) noexcept {
    return mustFail() ? nullptr : std::malloc(aSize == 0 ? 1 : aSize);
}

void* allocateOrThrow(std::size_t aSize) {
    void* lMemory = allocateOrNull(aSize);
    if (lMemory == nullptr) {
        throw std::bad_alloc();
    }
    return lMemory;
}

}  // namespace

void* operator new(std::size_t aSize) {
    return allocateOrThrow(aSize);
}
void* operator new[](std::size_t aSize) {
    return allocateOrThrow(aSize);
}
void* operator new(std::size_t aSize, const std::nothrow_t&) noexcept {
    return allocateOrNull(aSize);
}
void* operator new[](std::size_t aSize, const std::nothrow_t&) noexcept {
    return allocateOrNull(aSize);
}
void operator delete(void* aMemory) noexcept {
    std::free(aMemory);
}
void operator delete[](void* aMemory) noexcept {
    std::free(aMemory);
}
void operator delete(void* aMemory, std::size_t) noexcept {
    std::free(aMemory);
}
void operator delete[](void* aMemory, std::size_t) noexcept {
    std::free(aMemory);
}
void operator delete(void* aMemory, const std::nothrow_t&) noexcept {
    std::free(aMemory);
}
void operator delete[](void* aMemory, const std::nothrow_t&) noexcept {
    std::free(aMemory);
}

namespace test {

FailingAllocator::FailingAllocator(int aAllowed, bool aOnlyOnce)
    : FailingAllocator(aAllowed, aOnlyOnce ? 1 : std::numeric_limits<int>::max()) {}

FailingAllocator::FailingAllocator(int aAllowed, int aFailures) {
    gState = {true, aAllowed, aFailures, 0};
}

FailingAllocator::~FailingAllocator() {
    gState = {};
}

int FailingAllocator::failures() const {
    return gState.failures;
}

FailingForOtherThreads::FailingForOtherThreads(int aAllowed, int aFailures) {
    gIsSpared = true;
    gOtherThreads.allowed = aAllowed;
    gOtherThreads.left = aFailures;
    gOtherThreads.failures = 0;
    gOtherThreads.active = true;
}

FailingForOtherThreads::~FailingForOtherThreads() {
    gOtherThreads.active = false;
    gIsSpared = false;
}

int FailingForOtherThreads::failures() const {
    return gOtherThreads.failures;
}

}  // namespace test
