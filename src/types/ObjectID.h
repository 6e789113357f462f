// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A universally unique identifier of 16 bytes.
#ifndef OSX_TYPES_OBJECTID_H
#define OSX_TYPES_OBJECTID_H

#include <cstdint>
#include <cstring>
#include <memory>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "ace/SString.h"
#include "base/osxExport.h"

/// A time-based (version 1) UUID with its text form of 36 characters.
///
/// The identifier is four 32-bit words in the host's byte order:
///
/// | word | bits 31..16                                        | bits 15..0              |
/// |------|----------------------------------------------------|-------------------------|
/// | W0   | time_low, all 32 bits                              |                         |
/// | W1   | time_mid                                           | time_hi_and_version     |
/// | W2   | clock_seq_hi_and_reserved (upper 8), clock_seq_low | node bytes 0 and 1      |
/// | W3   | node bytes 2 and 3                                 | node bytes 4 and 5      |
///
/// Nothing throws. An `ObjectID` is a value for one thread at a time: `toString` keeps its text in
/// the object, so two threads must not print the same one at once, not even a constant one other
/// than `mNull`. `generateObjectID` may run in any number of threads at once, each on an object of
/// its own, and in a child that is forked meanwhile.
class OSX_EXPORT ObjectID {
public:
    /// The all-zero identifier. Usable while other static objects are constructed, and printable by
    /// any number of threads.
    static const ObjectID mNull;

    /// Makes one that is all zero; generates nothing.
    constexpr ObjectID() noexcept = default;

    /// Copies the identifier, not the cached text.
    /// @param aOther any identifier.
    ObjectID(const ObjectID& aOther) noexcept { copyWordsOf(aOther); }

    /// Copies the identifier, not the cached text.
    /// @param aOther any identifier; this one changes nothing.
    /// @return this object.
    ObjectID& operator=(const ObjectID& aOther) noexcept {
        if (this != &aOther) {
            copyWordsOf(aOther);
            mTextStale = true;
        }
        return *this;
    }

    // Exported by itself, since the library is built with its inline functions hidden. Few
    // identifiers have a text: for those without one there is no call.
    OSX_EXPORT virtual ~ObjectID() {
        if (mText != nullptr) {
            deleteText();
        }
    }

    /// Makes it all zero.
    void setEmpty() noexcept;

    /// Tells whether it is all zero.
    /// @return whether it is.
    bool isEmpty() const noexcept { return (mWords[0] | mWords[1] | mWords[2] | mWords[3]) == 0; }

    /// Tells how many bytes an identifier has.
    /// @return 16.
    long getSize() const noexcept { return kSize; }

    /// Finds the 16 bytes, which are as stored: in the host's byte order within each word.
    /// @return the bytes, which stay the object's.
    const unsigned char* getData() const noexcept;

    /// Takes 16 bytes as `getData` gives them.
    /// @param aData the bytes; may be this object's. With null the identifier becomes all zero.
    /// @param aSize 16; with any other size the identifier becomes all zero, and `aData` is not
    ///        read.
    void setData(const unsigned char* aData, long aSize) noexcept;

    /// Compares with another identifier.
    /// @param aOther any identifier.
    /// @return whether all bytes are equal.
    bool operator==(const ObjectID& aOther) const noexcept {
#ifdef __SSE2__  // One comparison; compilers make two of the other, and four loads.
        const auto lBytes = [](const std::uint32_t* aWords) {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(aWords));
        };
        return _mm_movemask_epi8(_mm_cmpeq_epi8(lBytes(mWords), lBytes(aOther.mWords))) == 0xFFFF;
#else
        return std::memcmp(mWords, aOther.mWords, sizeof mWords) == 0;
#endif
    }

    /// Compares with another identifier.
    /// @param aOther any identifier.
    /// @return whether a byte differs.
    bool operator!=(const ObjectID& aOther) const noexcept { return !(*this == aOther); }

    /// Makes a number for hash tables.
    /// @return the first word, time_low.
    std::uint32_t hash() const noexcept { return mWords[0]; }

    /// Makes it a new identifier of version 1, distinct from all others. Its variant bits are 0.
    /// When memory for the process's generator is short (the first time only) it is all zero.
    void generateObjectID() noexcept;

    /// Renders the identifier, in lower-case hexadecimal digits grouped 8-4-4-4-12 by hyphens.
    /// @return the text. It belongs to the object and changes with the next `toString` that
    ///         follows a change. Empty when memory for it is short.
    const ACE_String_Base<char>& toString() const noexcept;

    /// Reads the text form. The separators may be any characters and the digits of either case.
    ///
    /// Each of the groups, the last one in two parts of 4 and 8 characters, is read on its own as
    /// `strtoul` reads base 16, so that it may hold leading blanks, a sign or "0x" within its
    /// width. A group that is not wholly a number stays zero while the others are taken.
    /// @param aText the text; one that does not have 36 characters gives the all-zero identifier.
    void setFromString(const ACE_String_Base<char>& aText) noexcept;

private:
    friend class ObjectIDMap;  // keeps the words alone
    static constexpr long kSize = 16;

    /// Whether the process's generator was initialised; see `generateObjectID`.
    static bool mGeneratorInitialized;

    void deleteText() noexcept;
    void copyWordsOf(const ObjectID& aOther) noexcept {
        std::memcpy(mWords, aOther.mWords, sizeof mWords);
    }

    std::uint32_t mWords[4] = {0, 0, 0, 0};  ///< The identifier.
    /// The text last made; null until one is asked for.
    mutable std::unique_ptr<ACE_String_Base<char>> mText;
    mutable bool mTextStale = true;  ///< Whether the identifier has changed since.
};

#endif
