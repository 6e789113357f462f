#include "types/ObjectID.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "base/allocate.h"
#include "types/uuidSource.h"

namespace {

constexpr std::size_t kTextLength = 36;

// Shown when memory for a cache is short.
const ACE_CString gNoText;

std::uint32_t word(unsigned int aByte3, unsigned int aByte2, unsigned int aByte1,
                   unsigned int aByte0) {
    return aByte3 << 24 | aByte2 << 16 | aByte1 << 8 | aByte0;
}

/// @return the hexadecimal number that fills part of a text, cut to 32 bits; 0 if none does.
std::uint32_t parseField(const ACE_CString& aText, std::size_t aStart, std::size_t aLength) {
    char lField[9] = {};
    std::memcpy(lField, aText.c_str() + aStart, aLength);
    char* lEnd = nullptr;
    const unsigned long lValue = std::strtoul(lField, &lEnd, 16);
    return lEnd == lField + aLength ? static_cast<std::uint32_t>(lValue) : 0;
}

}  // namespace

const ObjectID ObjectID::mNull;
bool ObjectID::mGeneratorInitialized = false;

ObjectID::ObjectID(const ObjectID& aOther) noexcept {
    std::copy(std::begin(aOther.mWords), std::end(aOther.mWords), mWords);
}

ObjectID& ObjectID::operator=(const ObjectID& aOther) noexcept {
    if (this != &aOther) {
        std::copy(std::begin(aOther.mWords), std::end(aOther.mWords), mWords);
        mTextStale = true;
    }
    return *this;
}

ObjectID::~ObjectID() {
    delete mText;
}

void ObjectID::setEmpty() noexcept {
    std::fill(std::begin(mWords), std::end(mWords), 0U);
    mTextStale = true;
}

bool ObjectID::isEmpty() const noexcept {
    return std::all_of(std::begin(mWords), std::end(mWords),
                       [](std::uint32_t aWord) { return aWord == 0; });
}

const unsigned char* ObjectID::getData() const noexcept {
    return reinterpret_cast<const unsigned char*>(mWords);
}

void ObjectID::setData(const unsigned char* aData, long aSize) noexcept {
    if (aSize != kSize || aData == nullptr) {
        setEmpty();
        return;
    }
    std::memmove(mWords, aData, sizeof mWords);
    mTextStale = true;
}

bool ObjectID::operator==(const ObjectID& aOther) const noexcept {
    return std::equal(std::begin(mWords), std::end(mWords), aOther.mWords);
}

void ObjectID::generateObjectID() noexcept {
    setEmpty();
    ACE_Utils::UUID lUuid;
    if (!osx::makeUuid(lUuid, mGeneratorInitialized)) {
        return;
    }
    const unsigned char* lNode = lUuid.node().node_ID();
    mWords[0] = lUuid.time_low();
    mWords[1] = static_cast<std::uint32_t>(lUuid.time_mid()) << 16 | lUuid.time_hi_and_version();
    mWords[2] = word(lUuid.clock_seq_hi_and_reserved(), lUuid.clock_seq_low(), lNode[0], lNode[1]);
    mWords[3] = word(lNode[2], lNode[3], lNode[4], lNode[5]);
}

const ACE_CString& ObjectID::toString() const noexcept {
    if (mText == nullptr) {
        mText = osx::allocate<ACE_CString>();
    }
    if (mText == nullptr) {
        return gNoText;
    }
    if (mTextStale) {
        char lText[kTextLength + 1];
        std::snprintf(lText, sizeof lText, "%8.8x-%4.4x-%4.4x-%4.4x-%4.4x%8.8x", mWords[0],
                      mWords[1] >> 16, mWords[1] & 0xFFFF, mWords[2] >> 16, mWords[2] & 0xFFFF,
                      mWords[3]);
        mText->set(lText, kTextLength, true);
        // The string stays empty when it finds no memory; later it reuses its buffer.
        mTextStale = mText->length() != kTextLength;
    }
    return *mText;
}

void ObjectID::setFromString(const ACE_CString& aText) noexcept {
    setEmpty();
    if (aText.length() != kTextLength) {
        return;
    }
    mWords[0] = parseField(aText, 0, 8);
    mWords[1] = parseField(aText, 9, 4) << 16;
    mWords[1] += parseField(aText, 14, 4);
    mWords[2] = parseField(aText, 19, 4) << 16;
    mWords[2] += parseField(aText, 24, 4);
    mWords[3] = parseField(aText, 28, 8);
}
