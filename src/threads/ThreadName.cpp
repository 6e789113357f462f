// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "threads/ThreadName.h"

#include <pthread.h>
#include <unistd.h>

#include <cstring>

#include "base/ErrnoKeeper.h"
#include "process/aceState.h"

namespace osx {

namespace {

bool isWithinCharacter(char aByte) noexcept {
    return (static_cast<unsigned char>(aByte) & 0xC0U) == 0x80U;
}

/// @return where to cut a text of more than so many bytes; one that is no UTF-8 is cut there.
std::size_t wholeCharacters(const char* aText, std::size_t aSize) noexcept {
    constexpr std::size_t kLongestCharacter = 4;
    std::size_t lSize = aSize;
    while (isWithinCharacter(aText[lSize])) {
        --lSize;
        if (aSize - lSize == kLongestCharacter) {
            return aSize;
        }
    }
    return lSize;
}

}  // namespace

ThreadName::ThreadName(const char* aName) noexcept {
    std::size_t lSize = ::strnlen(aName, kSize);
    if (lSize == kSize) {
        lSize = wholeCharacters(aName, kSize - 1);
    }
    std::memcpy(mText, aName, lSize);
}

void ThreadName::giveToCaller() const noexcept {
    const ErrnoKeeper lErrno;
    if (process::isBegunByAce() || ::gettid() != ::getpid()) {
        ::pthread_setname_np(::pthread_self(), mText);
    }
}

}  // namespace osx
