// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The objects that a `FlexVar` holds by a pointer: how one of each type is copied, given another
/// value, taken over and destroyed. Strings are in `heldString.h`.
#ifndef OSX_TYPES_HELDOBJECT_H
#define OSX_TYPES_HELDOBJECT_H

#include <cerrno>
#include <memory>
#include <new>

#include "base/allocate.h"
#include "types/Blob.h"
#include "types/heldString.h"

namespace osx {

/// @return a new object; null with `errno` ENOMEM when memory is short, also for what it holds.
template <class Value>
std::unique_ptr<Value> copyOf(const Value& aSource) noexcept {
    return allocate<Value>(aSource);
}

/// @return whether bytes are missing: a `Blob` itself does not tell that memory was short.
inline bool lacksBytesOf(const Blob& aCopy, const Blob& aSource) noexcept {
    return aSource.getData() != nullptr && aSource.getSize() > 0 && aCopy.getData() == nullptr;
}
inline std::unique_ptr<Blob> copyOf(const Blob& aSource) noexcept {
    void* const lPlace = allocateMemory(sizeof(Blob));  // fewer calls than `allocate`; this is hot
    std::unique_ptr<Blob> lCopy(lPlace == nullptr ? nullptr : new (lPlace) Blob(aSource));
    if (lCopy != nullptr && lacksBytesOf(*lCopy, aSource)) {
        lCopy.reset();
        errno = ENOMEM;
    }
    return lCopy;
}

/// Gives a held object another value, which may lie in it.
/// @return whether memory sufficed. If not, a string is as it was, and a `Blob` is empty.
template <class Value>
bool assign(Value& aHeld, const Value& aValue) noexcept {
    aHeld = aValue;
    return true;
}
inline bool assign(Blob& aHeld, const Blob& aValue) noexcept {
    aHeld = aValue;
    return !lacksBytesOf(aHeld, aValue);
}

/// The same from an object that is given up, whose bytes or characters may change hands.
template <class Value>
bool take(Value& aHeld, Value& aSource) noexcept {
    return assign(aHeld, aSource);
}
inline bool take(Blob& aHeld, Blob& aSource) noexcept {
    if (!aSource.isOwner()) {
        return assign(aHeld, aSource);
    }
    aHeld.setData(aSource.getData(), aSource.getSize(), true);
    new (&aSource) Blob;  // The bytes are the other's now.
    return true;
}

template <class Value>
void destroy(Value* aValue) noexcept {
    delete aValue;
}

}  // namespace osx

#endif
