// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A byte buffer with a length and an ownership flag.
#ifndef OSX_TYPES_BLOB_H
#define OSX_TYPES_BLOB_H

#include <cstdint>

#include "base/osxExport.h"

/// Raw bytes that either belong to the object or are borrowed from the caller.
///
/// Buffers come from `malloc` and go back by `free`: a buffer that is handed over with the owner
/// flag set must come from `malloc` or from `Blob::allocate`. A borrowed one must outlive the
/// `Blob`'s use of it.
///
/// A copy always owns a buffer of its own. When memory for it is short, when the size is negative
/// or when there are no bytes to copy because the data pointer is null, the copy is an empty `Blob`
/// with null data, as `Blob()` makes it.
///
/// Nothing throws. A `Blob` is a value for one thread at a time; several threads may read it.
class OSX_EXPORT Blob {
public:
    /// No bytes: size 0, data null, not an owner.
    Blob() noexcept = default;

    /// Takes the three values as they are; copies nothing.
    /// @param aData the bytes; may be null.
    /// @param aSize how many; only the low 32 bits count, as a signed number.
    /// @param aOwner true hands the buffer over: the `Blob` frees it. False leaves it the caller's.
    Blob(unsigned char* aData, long aSize, bool aOwner) noexcept;

    /// Makes a deep copy, which owns its buffer, also one of no bytes.
    /// @param aOther an owner or a borrower; it stays as it is.
    Blob(const Blob& aOther) noexcept;

    /// `cleanup()`, then a deep copy as the copy constructor makes it.
    /// @param aOther an owner or a borrower, also of bytes in this object's buffer; it stays as it
    ///        is. This object changes nothing.
    /// @return this object.
    Blob& operator=(const Blob& aOther) noexcept;

    /// `cleanup()`.
    ~Blob();

    /// `cleanup()`, then takes the three values as they are, as the constructor does.
    /// @param aData the bytes; may be null. Not the buffer that this object owns already: that one
    ///        is freed first.
    /// @param aSize how many; only the low 32 bits count, as a signed number.
    /// @param aOwner true hands the buffer over: the `Blob` frees it. False leaves it the caller's.
    void setData(unsigned char* aData, long aSize, bool aOwner) noexcept;

    /// Makes an owner free its buffer and become an empty `Blob`. A borrower stays as it is, its
    /// pointer and size included.
    void cleanup() noexcept;

    /// Tells how many bytes there are.
    /// @return the size, as it was given.
    long getSize() const noexcept { return mSize; }

    /// Finds the bytes.
    /// @return the buffer, owned as before; may be null.
    unsigned char* getData() const noexcept { return mData; }

    /// Tells who owns the bytes.
    /// @return whether this object frees them.
    bool isOwner() const noexcept { return mOwner; }

    /// Gets memory that a `Blob` may own.
    /// @param aSize number of bytes.
    /// @return a buffer from `malloc`, the caller's; null, with `errno` ENOMEM, if memory is short
    ///         or the size negative.
    static unsigned char* allocate(long aSize) noexcept;

    /// Frees a buffer.
    /// @param[in,out] aData a buffer from `allocate` or `malloc`, or null; null afterwards.
    static void deallocates(unsigned char*& aData) noexcept;

private:
    void copyFrom(const Blob& aOther) noexcept;

    std::int32_t mSize = 0;          ///< As it was given; may be negative.
    unsigned char* mData = nullptr;  ///< The bytes; may be null whatever the size.
    bool mOwner = false;             ///< Whether the bytes are freed with this object.
};

#endif
