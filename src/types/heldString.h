// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The strings that a `FlexVar` holds: a string and its characters, made in one piece of memory.
///
/// One piece instead of two halves the allocations, and leaves one failure instead of two; ACE's
/// strings would not report the second. ACE takes the characters for lent ones: a copy of such a
/// string copies them, and when a longer text comes it gets memory of its own, and they lie idle. A
/// string that was made elsewhere may be held as well.
#ifndef OSX_TYPES_HELDSTRING_H
#define OSX_TYPES_HELDSTRING_H

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "ace/Malloc_Base.h"
#include "ace/SString.h"
#include "base/allocate.h"

namespace osx {

/// Gives access to the protected fields of any ACE string.
template <class Character>
struct StringFields : ACE_String_Base<Character> {
    static constexpr auto kText = &StringFields::rep_;
    static constexpr auto kLength = &StringFields::len_;
    static constexpr auto kRoom = &StringFields::buf_len_;
    static constexpr auto kOwnsText = &StringFields::release_;
    static constexpr auto kAllocator = &StringFields::allocator_;
};

template <class Character>
Character* placeBehind(ACE_String_Base<Character>& aString) noexcept {
    return reinterpret_cast<Character*>(&aString + 1);
}

/// Writes a text into a string's room, which has to suffice. The text may lie there already.
template <class Character>
void fill(ACE_String_Base<Character>& aString, const Character* aText,
          std::size_t aLength) noexcept {
    using Fields = StringFields<Character>;
    Character* const lRoom = aString.*Fields::kText;
    std::memmove(lRoom, aText, aLength * sizeof(Character));
    lRoom[aLength] = 0;
    aString.*Fields::kLength = aLength;
}

/// Has a function write a text into a string's room, which has to suffice.
/// @param aWrite is given the place to begin at, and returns the end of what it wrote.
template <class Character, class Writer>
void fill(ACE_String_Base<Character>& aString, Writer aWrite) noexcept {
    using Fields = StringFields<Character>;
    Character* const lRoom = aString.*Fields::kText;
    Character* const lEnd = aWrite(lRoom);
    *lEnd = 0;
    aString.*Fields::kLength = static_cast<std::size_t>(lEnd - lRoom);
}

/// Gives a new string memory of its own, to be filled next.
/// @return whether there was some; `errno` is ENOMEM and the string empty if not.
template <class Character>
bool giveRoom(ACE_String_Base<Character>& aString, std::size_t aRoom) noexcept {
    using Fields = StringFields<Character>;
    void* const lRoom = (aString.*Fields::kAllocator)->malloc(aRoom * sizeof(Character));
    if (lRoom == nullptr) {
        errno = ENOMEM;
        return false;
    }
    aString.*Fields::kText = static_cast<Character*>(lRoom);
    aString.*Fields::kRoom = aRoom;
    aString.*Fields::kOwnsText = true;
    return true;
}

/// `delete` would name the size of the type, which is not that of a string with its characters
/// behind it.
template <class Character>
void destroy(ACE_String_Base<Character>* aString) noexcept {
    if (aString != nullptr) {
        aString->~ACE_String_Base();
        ::operator delete(aString);
    }
}

struct DestroyString {
    template <class Character>
    void operator()(ACE_String_Base<Character>* aString) const noexcept {
        destroy(aString);
    }
};

/// @return a copy with its characters behind it; null with `errno` ENOMEM when memory is short.
template <class Character>
std::unique_ptr<ACE_String_Base<Character>, DestroyString> copyOf(
    const ACE_String_Base<Character>& aSource) noexcept {
    using String = ACE_String_Base<Character>;
    using Fields = StringFields<Character>;
    const std::size_t lRoom = aSource.length() + 1;
    std::unique_ptr<String, DestroyString> lCopy;
    if (void* const lPlace = allocateMemory(sizeof(String) + lRoom * sizeof(Character))) {
        lCopy.reset(new (lPlace) String());
        (*lCopy).*Fields::kText = placeBehind(*lCopy);
        (*lCopy).*Fields::kRoom = lRoom;
        fill(*lCopy, aSource.fast_rep(), aSource.length());
    }
    return lCopy;
}

/// @return whether a text may be written over the one that the string has. Characters that
///         somebody else lends to the string must stay as they are.
template <class Character>
bool mayOverwrite(ACE_String_Base<Character>& aString, std::size_t aLength) noexcept {
    using Fields = StringFields<Character>;
    const bool lIsOwn = aString.*Fields::kOwnsText || aString.fast_rep() == placeBehind(aString);
    return lIsOwn && aLength < aString.*Fields::kRoom;
}

/// Gives a string another text, which may lie in it.
/// @return whether memory sufficed; the string is as it was if not.
template <class Character>
bool assign(ACE_String_Base<Character>& aString,
            const ACE_String_Base<Character>& aSource) noexcept {
    const std::size_t lLength = aSource.length();
    if (mayOverwrite(aString, lLength)) {
        fill(aString, aSource.fast_rep(), lLength);
        return true;
    }
    // No text is that long; without the test compilers warn of what ACE would do to one.
    if (lLength >= std::numeric_limits<std::ptrdiff_t>::max() / sizeof(Character)) {
        return false;
    }
    // ACE's copy constructor would take the source's allocator, which may be gone before the copy.
    ACE_String_Base<Character> lCopy(aSource.fast_rep(), lLength);
    if (lCopy.length() != lLength) {
        return false;
    }
    aString.swap(lCopy);
    return true;
}

/// The same from a string that is given up: characters that it owns are taken over, unless they are
/// another allocator's.
template <class Character>
bool take(ACE_String_Base<Character>& aString, ACE_String_Base<Character>& aSource) noexcept {
    using Fields = StringFields<Character>;
    const bool lIsOthers = aSource.*Fields::kAllocator != aString.*Fields::kAllocator;
    if (lIsOthers || !(aSource.*Fields::kOwnsText)) {
        return assign(aString, aSource);
    }
    aString.swap(aSource);
    return true;
}

}  // namespace osx

#endif
