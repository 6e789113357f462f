/// @file
/// The strings that a `FlexVar` holds: a string and its characters, made in one piece of memory.
///
/// To ACE the characters are lent ones: who copies such a string copies them, and when it outgrows
/// them they stay where they are. A string that was made elsewhere may be held as well.
#ifndef OSX_TYPES_HELDSTRING_H
#define OSX_TYPES_HELDSTRING_H

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <limits>
#include <new>

#include "ace/Malloc_Base.h"
#include "ace/SString.h"
#include "base/allocate.h"

namespace osx {

/// The fields of ACE's strings, as members of any string.
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

/// The text may lie in the string, whose room has to suffice.
template <class Character>
void fill(ACE_String_Base<Character>& aString, const Character* aText,
          std::size_t aLength) noexcept {
    using Fields = StringFields<Character>;
    Character* const lRoom = aString.*Fields::kText;
    std::memmove(lRoom, aText, aLength * sizeof(Character));
    lRoom[aLength] = 0;
    aString.*Fields::kLength = aLength;
}

/// The same with what a writer puts there.
/// @param aWrite writes from the place that it is given on, and gives back the end of that.
template <class Character, class Writer>
void fill(ACE_String_Base<Character>& aString, Writer aWrite) noexcept {
    using Fields = StringFields<Character>;
    Character* const lRoom = aString.*Fields::kText;
    Character* const lEnd = aWrite(lRoom);
    *lEnd = 0;
    aString.*Fields::kLength = static_cast<std::size_t>(lEnd - lRoom);
}

/// Gives a new string memory of its own, which is then to be filled.
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

/// @return a new string; null with `errno` ENOMEM when memory is short.
template <class Character>
ACE_String_Base<Character>* copyOf(const ACE_String_Base<Character>& aSource) noexcept {
    using String = ACE_String_Base<Character>;
    using Fields = StringFields<Character>;
    const std::size_t lRoom = aSource.length() + 1;
    void* const lPlace = allocateMemory(sizeof(String) + lRoom * sizeof(Character));
    if (lPlace == nullptr) {
        return nullptr;
    }
    auto* const lCopy = new (lPlace) String();
    lCopy->*Fields::kText = placeBehind(*lCopy);
    lCopy->*Fields::kRoom = lRoom;
    fill(*lCopy, aSource.fast_rep(), aSource.length());
    return lCopy;
}

/// @return whether a text may be written over the one that the string has: not so over characters
///         that somebody else lends it.
template <class Character>
bool hasRoomFor(ACE_String_Base<Character>& aString, std::size_t aLength) noexcept {
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
    if (hasRoomFor(aString, lLength)) {
        fill(aString, aSource.fast_rep(), lLength);
        return true;
    }
    // ACE's copy constructor would take the source's allocator, which may be gone before the copy.
    // No text is that long; without the look compilers warn of what ACE would do to one.
    if (lLength >= std::numeric_limits<std::ptrdiff_t>::max() / sizeof(Character)) {
        return false;
    }
    ACE_String_Base<Character> lCopy(aSource.fast_rep(), lLength);
    if (lCopy.length() != lLength) {
        return false;
    }
    aString.swap(lCopy);
    return true;
}

/// The same from a string that is given up: characters of its own are taken over, unless they are
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

/// With its characters behind it a string's size is not that of its type.
template <class Character>
void destroy(ACE_String_Base<Character>* aString) noexcept {
    if (aString != nullptr) {
        aString->~ACE_String_Base();
        ::operator delete(aString);
    }
}

}  // namespace osx

#endif
