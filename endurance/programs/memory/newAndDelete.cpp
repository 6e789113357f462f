// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The operators, by way of `malloc`, so that their requests are refused, too: AddressSanitizer's
// own would stand in the place of the standard library's.
#include <cstdlib>
#include <new>

namespace {

void* allocateOrThrow(std::size_t aSize) {
    if (void* const lMemory = std::malloc(aSize == 0 ? 1 : aSize)) {
        return lMemory;
    }
    throw std::bad_alloc();
}

void* allocateOrNull(std::size_t aSize) noexcept {
    return std::malloc(aSize == 0 ? 1 : aSize);
}

}  // namespace

// Seen by the libraries, although the build hides what is not told otherwise.
#pragma GCC visibility push(default)

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

#pragma GCC visibility pop
