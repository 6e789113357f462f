// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The library's allocation rule: nothing throws, and a failure leaves ENOMEM in `errno`.
#ifndef OSX_BASE_ALLOCATE_H
#define OSX_BASE_ALLOCATE_H

#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace osx {

/// @return a new object; null with `errno` ENOMEM if memory is short, be it
///         for the object or for what its constructor allocates. Throws nothing, but is unwound
///         when the constructor meets a cancellation of the thread.
template <class T, class... Arguments>
std::unique_ptr<T> allocate(Arguments&&... aArguments) {
    T* lObject = nullptr;
    try {
        lObject = new (std::nothrow) T(std::forward<Arguments>(aArguments)...);
    } catch (const std::bad_alloc&) {
    }
    if (lObject == nullptr) {
        errno = ENOMEM;
    }
    return std::unique_ptr<T>(lObject);
}

/// @return a new array of bytes; null with `errno` ENOMEM.
inline std::unique_ptr<char[]> allocateBytes(std::size_t aSize) noexcept {
    std::unique_ptr<char[]> lBytes(new (std::nothrow) char[aSize]);
    if (lBytes == nullptr) {
        errno = ENOMEM;
    }
    return lBytes;
}

/// @return memory for an object and what stands behind it, in one piece, to be given back
///         to the global operator delete; null with `errno` ENOMEM.
inline void* allocateMemory(std::size_t aSize) noexcept {
    try {
        return ::operator new(aSize);  // which the form that does not throw calls, too
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
}

}  // namespace osx

#endif
