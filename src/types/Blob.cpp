// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A buffer that may be owned or borrowed. Memory is `malloc`'s, because the interface lets callers
// hand over and take away buffers of theirs.
#include "types/Blob.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

Blob::Blob(unsigned char* aData, long aSize, bool aOwner) noexcept
    : mSize(static_cast<std::int32_t>(aSize)), mData(aData), mOwner(aOwner) {}

Blob::Blob(const Blob& aOther) noexcept {
    copyFrom(aOther);
}

Blob& Blob::operator=(const Blob& aOther) noexcept {
    if (this == &aOther) {
        return *this;
    }
    // The source may borrow the very buffer that is freed here, so the copy comes first.
    const Blob lFormer(mData, mSize, mOwner);
    copyFrom(aOther);
    return *this;
}

Blob::~Blob() {
    // What `cleanup` does, without two more calls of exported functions.
    if (mOwner) {
        std::free(mData);
    }
}

void Blob::setData(unsigned char* aData, long aSize, bool aOwner) noexcept {
    cleanup();
    mData = aData;
    mSize = static_cast<std::int32_t>(aSize);
    mOwner = aOwner;
}

void Blob::cleanup() noexcept {
    if (!mOwner) {
        return;
    }
    deallocates(mData);
    mSize = 0;
    mOwner = false;
}

unsigned char* Blob::allocate(long aSize) noexcept {
    if (aSize < 0) {
        errno = ENOMEM;
        return nullptr;
    }
    // A copy of nothing owns its buffer too.
    // NOLINTNEXTLINE(clang-analyzer-optin.portability.UnixAPI)
    return static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(aSize)));
}

void Blob::deallocates(unsigned char*& aData) noexcept {
    std::free(aData);
    aData = nullptr;
}

void Blob::copyFrom(const Blob& aOther) noexcept {
    const bool lReadable = aOther.mData != nullptr || aOther.mSize == 0;
    unsigned char* lCopy = lReadable ? allocate(aOther.mSize) : nullptr;
    mData = lCopy;
    mOwner = lCopy != nullptr;
    mSize = mOwner ? aOther.mSize : 0;
    if (mSize > 0) {
        std::memcpy(lCopy, aOther.mData, static_cast<std::size_t>(mSize));
    }
}
