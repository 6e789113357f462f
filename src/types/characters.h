// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The characters of a `FlexVar`'s texts: narrow and wide ones, and the decimal point.
#ifndef OSX_TYPES_CHARACTERS_H
#define OSX_TYPES_CHARACTERS_H

#include <langinfo.h>

#include <algorithm>
#include <array>
#include <cfenv>
#include <cstddef>
#include <string_view>

#include "ace/SString.h"

namespace osx {

template <class Character>
std::basic_string_view<Character> view(const ACE_String_Base<Character>& aText) noexcept {
    return {aText.fast_rep(), aText.length()};
}

inline char narrowed(wchar_t aCharacter) noexcept {
    return static_cast<char>(static_cast<unsigned char>(aCharacter));
}

/// The first argument names the width that is wanted.
/// @{
inline char converted(char, char aCharacter) noexcept {
    return aCharacter;
}
inline char converted(char, wchar_t aCharacter) noexcept {
    return narrowed(aCharacter);
}
inline wchar_t converted(wchar_t, char aCharacter) noexcept {
    return static_cast<wchar_t>(static_cast<unsigned char>(aCharacter));
}
/// @}

/// Converts a whole text.
/// @return whether memory sufficed; `aOut` is as it was if not.
template <class To, class From>
bool convert(const From* aText, std::size_t aLength, ACE_String_Base<To>& aOut) noexcept {
    constexpr std::size_t kChunk = 256;
    ACE_String_Base<To> lText;
    std::array<To, kChunk> lChunk{};
    for (std::size_t lDone = 0; lDone < aLength; lDone += kChunk) {
        const std::size_t lCount = std::min(kChunk, aLength - lDone);
        for (std::size_t lIndex = 0; lIndex < lCount; ++lIndex) {
            lChunk[lIndex] = converted(To(), aText[lDone + lIndex]);
        }
        lText.append(lChunk.data(), lCount);
    }
    if (lText.length() != aLength) {
        return false;
    }
    aOut.swap(lText);
    return true;
}

/// @return the text in the wanted width, put into `aRoom` if it has to be converted; null when
///         memory is short.
template <class Character>
const ACE_String_Base<Character>* asText(const ACE_String_Base<Character>& aText,
                                         ACE_String_Base<Character>&) noexcept {
    return &aText;
}
template <class To, class From>
const ACE_String_Base<To>* asText(const ACE_String_Base<From>& aText,
                                  ACE_String_Base<To>& aRoom) noexcept {
    return convert(aText.fast_rep(), aText.length(), aRoom) ? &aRoom : nullptr;
}

/// @return the decimal point of the thread's locale; 0 if it takes more than one byte.
inline char decimalPoint() noexcept {
    const char* const lPoint = nl_langinfo(RADIXCHAR);
    return lPoint[0] != '\0' && lPoint[1] == '\0' ? lPoint[0] : '\0';
}

/// @return whether the processor's mode is the one in which `to_chars` and `from_chars` always
///         round.
inline bool isRoundingToNearest() noexcept {
    return std::fegetround() == FE_TONEAREST;
}

}  // namespace osx

#endif
