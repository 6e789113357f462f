/// @file
/// A universally unique identifier of 16 bytes.
#ifndef OSX_TYPES_OBJECTID_H
#define OSX_TYPES_OBJECTID_H

#include <cstdint>
#include <cstring>

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
/// Nothing throws. An `ObjectID` is a value for one thread at a time: `toString` writes a cache, so
/// that even one constant object must not be printed by two threads at once, other than `mNull`.
/// `generateObjectID` may run in any number of threads at once, each on an object of its own, and
/// in a child that is forked meanwhile.
class OSX_EXPORT ObjectID {
public:
    /// The all-zero identifier. Usable while other static objects are constructed, and printable by
    /// any number of threads.
    static const ObjectID mNull;

    /// All zero; generates nothing.
    constexpr ObjectID() noexcept = default;
    /// Copies the identifier, not the cached text.
    ObjectID(const ObjectID& aOther) noexcept { copyWordsOf(aOther); }
    /// Copies the identifier, not the cached text.
    ObjectID& operator=(const ObjectID& aOther) noexcept {
        if (this != &aOther) {
            copyWordsOf(aOther);
            mTextStale = true;
        }
        return *this;
    }
    // Exported by itself, since the library is built with its inline functions hidden.
    OSX_EXPORT virtual ~ObjectID() {
        if (mText != nullptr) {
            deleteText();
        }
    }

    /// Makes it all zero.
    void setEmpty() noexcept;
    /// @return whether it is all zero.
    bool isEmpty() const noexcept { return (mWords[0] | mWords[1] | mWords[2] | mWords[3]) == 0; }

    /// @return 16.
    long getSize() const noexcept { return kSize; }
    /// @return the 16 bytes as stored, in the host's byte order within each word; they stay the
    ///         object's.
    const unsigned char* getData() const noexcept;
    /// Takes 16 bytes as `getData` gives them.
    /// @param aSize with anything but 16 the identifier becomes all zero and `aData` is not read.
    ///        So it does with null data.
    void setData(const unsigned char* aData, long aSize) noexcept;

    bool operator==(const ObjectID& aOther) const noexcept {
        return std::memcmp(mWords, aOther.mWords, sizeof mWords) == 0;
    }
    bool operator!=(const ObjectID& aOther) const noexcept { return !(*this == aOther); }

    /// @return the first word, time_low.
    std::uint32_t hash() const noexcept { return mWords[0]; }

    /// Makes it a new identifier of version 1, distinct from all others. Its variant bits are 0.
    /// When memory for the process's generator is short (the first time only) it is all zero.
    void generateObjectID() noexcept;

    /// @return the text, in lower-case hexadecimal digits grouped 8-4-4-4-12 by hyphens. It belongs
    ///         to the object and changes with the next `toString` that follows a change. Empty when
    ///         memory for it is short.
    const ACE_String_Base<char>& toString() const noexcept;

    /// Reads the text form. The separators may be any characters and the digits of either case.
    ///
    /// A text that does not have 36 characters gives the all-zero identifier. Each of the groups,
    /// the last one in two parts of 4 and 8 characters, is read on its own as `strtoul` reads base
    /// 16, so that it may hold leading blanks, a sign or "0x" within its width. A group that is not
    /// wholly a number stays zero while the others are taken.
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

    std::uint32_t mWords[4] = {0, 0, 0, 0};
    mutable ACE_String_Base<char>* mText = nullptr;
    mutable bool mTextStale = true;
};

#endif
