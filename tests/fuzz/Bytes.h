// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Makes choices of a fuzzer's input.
#ifndef OSX_TESTS_FUZZ_BYTES_H
#define OSX_TESTS_FUZZ_BYTES_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

/// The input, taken from the front piece by piece. Zeros come when it is used up.
class Bytes {
public:
    Bytes(const std::uint8_t* aData, std::size_t aSize) : mData(aData), mLeft(aSize) {}

    bool empty() const { return mLeft == 0; }

    template <class T>
    T value() {
        T lValue{};
        const std::size_t lSize = std::min(sizeof lValue, mLeft);
        if (lSize != 0) {
            std::memcpy(&lValue, mData, lSize);
            skip(lSize);
        }
        return lValue;
    }

    /// @param aHighest at most 65535.
    unsigned int upTo(unsigned int aHighest) {
        const unsigned int lValue = aHighest > 255 ? value<std::uint16_t>() : value<std::uint8_t>();
        return lValue % (aHighest + 1);
    }

    bool flag() { return (value<std::uint8_t>() & 1U) != 0; }

    /// A text with a byte for its length in front.
    std::string text() {
        const std::size_t lSize = std::min<std::size_t>(value<std::uint8_t>(), mLeft);
        std::string lText;
        if (lSize != 0) {
            lText.assign(reinterpret_cast<const char*>(mData), lSize);
            skip(lSize);
        }
        return lText;
    }

private:
    void skip(std::size_t aSize) {
        mData += aSize;
        mLeft -= aSize;
    }

    const std::uint8_t* mData;
    std::size_t mLeft;
};

#endif
