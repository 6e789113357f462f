// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The part of `FlexVar` that programs compile: what takes less time than a call into the library.
/// A part of `types/FlexVar.h`, which has the contracts.
///
/// A program may be compiled with options under which floating numbers do not behave as the
/// language has them (`-ffast-math` and the like). The results here must not depend on them.
#ifndef OSX_TYPES_FLEXVARINLINE_H
#define OSX_TYPES_FLEXVARINLINE_H

#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ace/Date_Time.h"
#include "ace/SString.h"
#include "base/debugLevel.h"
#include "types/FlexVar.h"

namespace osx {

/// @name The 32 bits that a Long and a ULong hold
/// @{
inline std::int32_t low32(long aValue) noexcept {
    return static_cast<std::int32_t>(aValue);
}
inline std::uint32_t low32(unsigned long aValue) noexcept {
    return static_cast<std::uint32_t>(aValue);
}
/// @}

/// @return the value, by way of memory that the compiler must not look through. With operands and
///         results that went this way each operation is done, and rounded, by itself.
inline double asStored(double aValue) noexcept {
    const volatile double lValue = aValue;
    return lValue;
}

/// @name Doubles by their bits
/// The program's compiler may have been told that there is no NaN.
/// @{
constexpr int kMantissaBits = DBL_MANT_DIG - 1;
constexpr std::uint64_t kSignBit = std::uint64_t(1) << 63;
constexpr std::uint64_t kInfinityBits = std::uint64_t(0x7FF) << kMantissaBits;

inline bool areEqualDoubles(std::uint64_t aLeft, std::uint64_t aRight) noexcept {
    const bool lIsNaN = (aLeft & ~kSignBit) > kInfinityBits;
    const bool lAreZero = ((aLeft | aRight) & ~kSignBit) == 0;
    return (aLeft == aRight && !lIsNaN) || lAreZero;
}

/// @return the low 32 bits of the number without its fraction; 0 if that takes more than 64 bits.
inline unsigned int hashOfDouble(std::uint64_t aBits) noexcept {
    const int lExponent = static_cast<int>((aBits & kInfinityBits) >> kMantissaBits) - 1023;
    if (lExponent < 0 || lExponent > 62) {
        return 0;
    }
    const std::uint64_t lUnit = std::uint64_t(1) << kMantissaBits;
    const std::uint64_t lDigits = (aBits & (lUnit - 1)) | lUnit;
    const auto lWhole = static_cast<unsigned int>(lExponent < kMantissaBits
                                                      ? lDigits >> (kMantissaBits - lExponent)
                                                      : lDigits << (lExponent - kMantissaBits));
    return (aBits & kSignBit) == 0 ? lWhole : 0U - lWhole;
}
/// @}

/// @return the object at a pointer whose origin the compiler must not look up: where it knows the
///         number that a slot held before, it would warn of an object at that number.
template <class Object>
const Object& objectAt(const Object* aPointer) noexcept {
    asm("" : "+r"(aPointer));
    return *aPointer;
}

/// @return what ACE's operator does, which is three calls away.
template <class Character>
bool areEqualStrings(const ACE_String_Base<Character>& aLeft,
                     const ACE_String_Base<Character>& aRight) noexcept {
    const std::size_t lSize = aLeft.length() * sizeof(Character);
    return aLeft.length() == aRight.length() &&
           std::memcmp(aLeft.fast_rep(), aRight.fast_rep(), lSize) == 0;
}

}  // namespace osx

// The slot.

inline void FlexVar::forget() noexcept {
    mType = FlexVar_NoType;
    initializeValue();
}

/// Fills the whole slot at once, so that a copy which follows does not wait for two stores.
template <class Member>
void FlexVar::store(Member aValue) noexcept {
    std::uint64_t lBits = 0;
    std::memcpy(&lBits, &aValue, sizeof aValue);
    mValue.mBits = lBits;
}

/// Leaves this header only if there is an object to destroy or, maybe, a line to write.
template <class Member>
FlexVar& FlexVar::setInline(Type aType, Member aValue) noexcept {
    if (mType != aType) {
        if (holdsObject() || getLogLevel() >= kTraceLevel) {
            changeType(aType);
        }
        mType = aType;
    }
    store(aValue);
    return *this;
}

/// @return whether it is of that kind; if not, a getter's line was written.
inline bool FlexVar::checkType(Type aType) const noexcept {
    if (mType == aType) {
        return true;
    }
    reportMismatch("get", aType);
    return false;
}

/// @return the held object; the empty one for another kind and for a kind without an object.
template <class Object>
const Object& FlexVar::heldOrEmpty(Type aType, Object* Slot::* aMember,
                                   const Object& aEmpty) const noexcept {
    return checkType(aType) && mValue.*aMember != nullptr ? *(mValue.*aMember) : aEmpty;
}

template <class Member, class Result>
int FlexVar::copyOut(Type aType, Member Slot::* aMember, Result& aResult) const noexcept {
    if (mType != aType) {
        return -1;
    }
    aResult = mValue.*aMember;
    return 0;
}

/// Destroys the held object and clears the slot, unless this object is of type `aKeep`. The type
/// stays.
inline void FlexVar::deleteAllPointersExcept(Type aKeep) noexcept {
    if (mType == aKeep) {
        return;
    }
    if (holdsObject()) {
        destroyObject();
    }
    initializeValue();
}

inline void FlexVar::replaceBy(FlexVar& aOther) noexcept {
    deleteAllPointersExcept(FlexVar_NoType);
    mType = aOther.mType;
    mValue = aOther.mValue;
    aOther.forget();
}

// Construction and assignment.

inline FlexVar::FlexVar() noexcept : mType(FlexVar_NoType) {}
inline FlexVar::FlexVar(bool aValue) noexcept : mType(FlexVar_Bool) {
    store(aValue);
}
inline FlexVar::FlexVar(char aValue) noexcept : mType(FlexVar_Char) {
    store(aValue);
}
inline FlexVar::FlexVar(unsigned char aValue) noexcept : mType(FlexVar_UChar) {
    store(aValue);
}
inline FlexVar::FlexVar(short aValue) noexcept : mType(FlexVar_Short) {
    store(aValue);
}
inline FlexVar::FlexVar(unsigned short aValue) noexcept : mType(FlexVar_UShort) {
    store(aValue);
}
inline FlexVar::FlexVar(int aValue) noexcept : mType(FlexVar_Int) {
    store(aValue);
}
inline FlexVar::FlexVar(unsigned int aValue) noexcept : mType(FlexVar_UInt) {
    store(aValue);
}
inline FlexVar::FlexVar(long aValue) noexcept : mType(FlexVar_Long) {
    store(osx::low32(aValue));
}
inline FlexVar::FlexVar(unsigned long aValue) noexcept : mType(FlexVar_ULong) {
    store(osx::low32(aValue));
}
inline FlexVar::FlexVar(float aValue) noexcept : mType(FlexVar_Float) {
    store(aValue);
}
inline FlexVar::FlexVar(double aValue) noexcept : mType(FlexVar_Double) {
    store(aValue);
}

inline FlexVar::FlexVar(const FlexVar& aOther) noexcept
    : mType(aOther.mType), mValue(aOther.mValue) {
    if (holdsObject()) {
        copyObjectOf(aOther);
    }
}

inline FlexVar::FlexVar(FlexVar&& aOther) noexcept : mType(aOther.mType), mValue(aOther.mValue) {
    aOther.forget();
}

inline FlexVar& FlexVar::operator=(const FlexVar& aOther) noexcept {
    if (holdsObject() || aOther.holdsObject()) {
        return assignObjectOf(aOther);
    }
    mType = aOther.mType;
    mValue = aOther.mValue;
    return *this;
}

inline FlexVar& FlexVar::operator=(FlexVar&& aOther) noexcept {
    if (this != &aOther) {
        if (holdsObject() && mType == aOther.mType) {
            return moveObjectOf(aOther);
        }
        replaceBy(aOther);
    }
    return *this;
}

inline FlexVar::~FlexVar() {
    deleteAllPointersExcept(FlexVar_NoType);
}

// Setters.

inline FlexVar& FlexVar::setBool(bool aValue) noexcept {
    return setInline(FlexVar_Bool, aValue);
}
inline FlexVar& FlexVar::setChar(char aValue) noexcept {
    return setInline(FlexVar_Char, aValue);
}
inline FlexVar& FlexVar::setUChar(unsigned char aValue) noexcept {
    return setInline(FlexVar_UChar, aValue);
}
inline FlexVar& FlexVar::setShort(short aValue) noexcept {
    return setInline(FlexVar_Short, aValue);
}
inline FlexVar& FlexVar::setUShort(unsigned short aValue) noexcept {
    return setInline(FlexVar_UShort, aValue);
}
inline FlexVar& FlexVar::setInt(int aValue) noexcept {
    return setInline(FlexVar_Int, aValue);
}
inline FlexVar& FlexVar::setUInt(unsigned int aValue) noexcept {
    return setInline(FlexVar_UInt, aValue);
}
inline FlexVar& FlexVar::setLong(long aValue) noexcept {
    return setInline(FlexVar_Long, osx::low32(aValue));
}
inline FlexVar& FlexVar::setULong(unsigned long aValue) noexcept {
    return setInline(FlexVar_ULong, osx::low32(aValue));
}
inline FlexVar& FlexVar::setFloat(float aValue) noexcept {
    return setInline(FlexVar_Float, aValue);
}
inline FlexVar& FlexVar::setDouble(double aValue) noexcept {
    return setInline(FlexVar_Double, aValue);
}

// Getters.

inline bool FlexVar::getBool() const noexcept {
    return checkType(FlexVar_Bool) && mValue.mBool;
}
inline char FlexVar::getChar() const noexcept {
    return checkType(FlexVar_Char) ? mValue.mChar : '\0';
}
inline unsigned char FlexVar::getUChar() const noexcept {
    return checkType(FlexVar_UChar) ? mValue.mUChar : static_cast<unsigned char>(0);
}
inline short FlexVar::getShort() const noexcept {
    return checkType(FlexVar_Short) ? mValue.mShort : static_cast<short>(0);
}
inline unsigned short FlexVar::getUShort() const noexcept {
    return checkType(FlexVar_UShort) ? mValue.mUShort : static_cast<unsigned short>(0);
}
inline int FlexVar::getInt() const noexcept {
    return checkType(FlexVar_Int) ? mValue.mInt : 0;
}
inline unsigned int FlexVar::getUInt() const noexcept {
    return checkType(FlexVar_UInt) ? mValue.mUInt : 0U;
}
inline long FlexVar::getLong() const noexcept {
    return checkType(FlexVar_Long) ? mValue.mLong : 0L;
}
inline unsigned long FlexVar::getULong() const noexcept {
    return checkType(FlexVar_ULong) ? mValue.mULong : 0UL;
}
inline float FlexVar::getFloat() const noexcept {
    return checkType(FlexVar_Float) ? mValue.mFloat : 0.0F;
}
inline double FlexVar::getDouble() const noexcept {
    return checkType(FlexVar_Double) ? mValue.mDouble : 0.0;
}
inline const ACE_String_Base<char>& FlexVar::getCString() const noexcept {
    return heldOrEmpty(FlexVar_CString, &Slot::mCString, mEmptyCString);
}
inline const ACE_String_Base<wchar_t>& FlexVar::getWString() const noexcept {
    return heldOrEmpty(FlexVar_WString, &Slot::mWString, mEmptyWString);
}
inline const ACE_Date_Time& FlexVar::getDateTime() const noexcept {
    return heldOrEmpty(FlexVar_DateTime, &Slot::mDateTime, mEmptyACE_Date_Time);
}
inline const ObjectID& FlexVar::getObjectID() const noexcept {
    return heldOrEmpty(FlexVar_ObjectID, &Slot::mObjectID, mEmptyObjectID);
}
inline Blob* FlexVar::getBlob() const noexcept {
    return checkType(FlexVar_Blob) ? mValue.mBlob : nullptr;
}

inline int FlexVar::getBool(bool& aValue) const noexcept {
    return copyOut(FlexVar_Bool, &Slot::mBool, aValue);
}
inline int FlexVar::getChar(char& aValue) const noexcept {
    return copyOut(FlexVar_Char, &Slot::mChar, aValue);
}
inline int FlexVar::getUChar(unsigned char& aValue) const noexcept {
    return copyOut(FlexVar_UChar, &Slot::mUChar, aValue);
}
inline int FlexVar::getShort(short& aValue) const noexcept {
    return copyOut(FlexVar_Short, &Slot::mShort, aValue);
}
inline int FlexVar::getUShort(unsigned short& aValue) const noexcept {
    return copyOut(FlexVar_UShort, &Slot::mUShort, aValue);
}
inline int FlexVar::getInt(int& aValue) const noexcept {
    return copyOut(FlexVar_Int, &Slot::mInt, aValue);
}
inline int FlexVar::getUInt(unsigned int& aValue) const noexcept {
    return copyOut(FlexVar_UInt, &Slot::mUInt, aValue);
}
inline int FlexVar::getLong(long& aValue) const noexcept {
    return copyOut(FlexVar_Long, &Slot::mLong, aValue);
}
inline int FlexVar::getULong(unsigned long& aValue) const noexcept {
    return copyOut(FlexVar_ULong, &Slot::mULong, aValue);
}
inline int FlexVar::getFloat(float& aValue) const noexcept {
    return copyOut(FlexVar_Float, &Slot::mFloat, aValue);
}
inline int FlexVar::getDouble(double& aValue) const noexcept {
    return copyOut(FlexVar_Double, &Slot::mDouble, aValue);
}

// Queries.

inline FlexVar::Type FlexVar::getType() const noexcept {
    return mType;
}
inline bool FlexVar::isNumeric() const noexcept {
    return mType >= FlexVar_Char && mType <= FlexVar_Double;
}
inline bool FlexVar::isString() const noexcept {
    return mType == FlexVar_CString || mType == FlexVar_WString;
}
inline bool FlexVar::isDate() const noexcept {
    return mType == FlexVar_DateTime;
}

inline unsigned int FlexVar::hash() const noexcept {
    if (isWord()) {
        return mValue.mUInt;
    }
    return mType == FlexVar_Double ? osx::hashOfDouble(mValue.mBits) : hashOfOther();
}

// Arithmetic.

/// @return whether both are of one of the kinds Int to ULong, whose 32 bits wrap alike.
inline bool FlexVar::areWords(const FlexVar& aOther) const noexcept {
    return mType == aOther.mType && isWord();
}

/// @return whether both are Doubles that this header may compute with. It may not where the
///         processor keeps more digits of a result than a Double has, until it is stored, nor in a
///         program whose compiler was told that there is no NaN.
inline bool FlexVar::areDoubles(const FlexVar& aOther) const noexcept {
    return FLT_EVAL_METHOD == 0 && __FINITE_MATH_ONLY__ == 0 && mType == FlexVar_Double &&
           aOther.mType == FlexVar_Double;
}

/// @return a word of this object's kind.
inline FlexVar FlexVar::word(std::uint32_t aBits) const noexcept {
    FlexVar lWord;
    lWord.mType = mType;
    lWord.store(aBits);
    return lWord;
}

inline FlexVar FlexVar::operator+(const FlexVar& aOther) const noexcept {
    if (areWords(aOther)) {
        return word(mValue.mUInt + aOther.mValue.mUInt);
    }
    if (areDoubles(aOther)) {
        return osx::asStored(osx::asStored(mValue.mDouble) + osx::asStored(aOther.mValue.mDouble));
    }
    return sumWith(aOther);
}

inline FlexVar FlexVar::operator-(const FlexVar& aOther) const noexcept {
    if (areWords(aOther)) {
        return word(mValue.mUInt - aOther.mValue.mUInt);
    }
    if (areDoubles(aOther)) {
        return osx::asStored(osx::asStored(mValue.mDouble) - osx::asStored(aOther.mValue.mDouble));
    }
    return differenceWith(aOther);
}

inline FlexVar FlexVar::operator*(const FlexVar& aOther) const noexcept {
    if (areWords(aOther)) {
        return word(mValue.mUInt * aOther.mValue.mUInt);
    }
    if (areDoubles(aOther)) {
        return osx::asStored(osx::asStored(mValue.mDouble) * osx::asStored(aOther.mValue.mDouble));
    }
    return productWith(aOther);
}

// Comparison.

/// @return whether both are CStrings, and each has its string.
inline bool FlexVar::areCStrings(const FlexVar& aOther) const noexcept {
    return mType == FlexVar_CString && aOther.mType == FlexVar_CString &&
           mValue.mCString != nullptr && aOther.mValue.mCString != nullptr;
}

inline bool FlexVar::operator==(const FlexVar& aOther) const noexcept {
    if (mType != aOther.mType) {
        return false;
    }
    if (mType <= FlexVar_ULong) {
        return mValue.mBits == aOther.mValue.mBits;  // The free part of a slot is zero.
    }
    if (mType == FlexVar_Double) {
        return this == &aOther || osx::areEqualDoubles(mValue.mBits, aOther.mValue.mBits);
    }
    return areCStrings(aOther) ? osx::areEqualStrings(osx::objectAt(mValue.mCString),
                                                      osx::objectAt(aOther.mValue.mCString))
                               : isEqualTo(aOther);
}
inline bool FlexVar::operator!=(const FlexVar& aOther) const noexcept {
    return !(*this == aOther);
}
inline bool FlexVar::operator>(const FlexVar& aOther) const noexcept {
    return aOther < *this;
}
inline bool FlexVar::operator<=(const FlexVar& aOther) const noexcept {
    return *this < aOther || *this == aOther;
}
inline bool FlexVar::operator>=(const FlexVar& aOther) const noexcept {
    return *this > aOther || *this == aOther;
}

#endif
