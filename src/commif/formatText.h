// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Printing into buffers of a fixed size.
#ifndef OSX_COMMIF_FORMATTEXT_H
#define OSX_COMMIF_FORMATTEXT_H

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace osx {

/// Formats into a buffer, cutting what does not fit; the text is always terminated. A null format
/// gives an empty text.
template <std::size_t Size>
void formatText(std::array<char, Size>& aBuffer, const char* aFormat, va_list aArguments) noexcept {
    aBuffer.front() = '\0';
    if (aFormat != nullptr) {
        static_cast<void>(std::vsnprintf(aBuffer.data(), Size, aFormat, aArguments));
        aBuffer.back() = '\0';
    }
}

}  // namespace osx

#endif
