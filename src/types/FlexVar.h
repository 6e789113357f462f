/// @file
/// The variant value: one object that holds one value of one of sixteen kinds, or nothing.
///
/// | number | enumerator         | holds                            | kept    | numeric |
/// |--------|--------------------|----------------------------------|---------|---------|
/// | 0      | `FlexVar_NoType`   | nothing                          |         |         |
/// | 1      | `FlexVar_Bool`     | `bool`                           | inline  |         |
/// | 2      | `FlexVar_Char`     | `char`                           | inline  | yes     |
/// | 3      | `FlexVar_UChar`    | `unsigned char`                  | inline  | yes     |
/// | 4      | `FlexVar_Short`    | signed 16 bits, `short`          | inline  | yes     |
/// | 5      | `FlexVar_UShort`   | unsigned 16 bits                 | inline  | yes     |
/// | 6      | `FlexVar_Int`      | signed 32 bits, `int`            | inline  | yes     |
/// | 7      | `FlexVar_UInt`     | unsigned 32 bits                 | inline  | yes     |
/// | 8      | `FlexVar_Long`     | signed 32 bits, read as `long`   | inline  | yes     |
/// | 9      | `FlexVar_ULong`    | unsigned 32 bits                 | inline  | yes     |
/// | 10     | `FlexVar_Float`    | `float`                          | inline  | yes     |
/// | 11     | `FlexVar_Double`   | `double`                         | inline  | yes     |
/// | 12     | `FlexVar_CString`  | narrow string                    | pointer |         |
/// | 13     | `FlexVar_WString`  | wide string, 32-bit characters   | pointer |         |
/// | 14     | `FlexVar_DateTime` | date and time                    | pointer |         |
/// | 15     | `FlexVar_Blob`     | `Blob`                           | pointer |         |
/// | 16     | `FlexVar_ObjectID` | `ObjectID`                       | pointer |         |
///
/// Rules that hold for every call:
///
///  1. Nothing converts. To read a value as another kind than the one held is the caller's error:
///     a getter answers with a default and, at debug level 4, a line; two values of different
///     kinds are never combined, never ordered and never equal. An Int is not a Long.
///  2. A Long and a ULong hold 32 bits in both word sizes: a wider argument is cut to its low 32
///     bits; `getLong` extends the sign, `getULong` extends with zeros.
///  3. The object of kinds 12 to 16 belongs to the `FlexVar`, which destroys it when it takes
///     another kind or dies.
///  4. Nothing throws. When memory is short `errno` is ENOMEM, a newly constructed `FlexVar` is of
///     type none, and one that was to change keeps the value it had; only a held `Blob` that was
///     to take other bytes is left empty.
///  5. A pointer form of a setter may be given null, which it stores: such a `FlexVar` has a kind
///     with no object. It can be copied, set again and destroyed, and reads like the kind's empty
///     value; `getBlob` and `releaseBlob` give null.
///  6. A `FlexVar` is a value for one thread at a time. Several threads may read one at once, but
///     an ObjectID is printed by one at a time. The constants may be used by all.
#ifndef OSX_TYPES_FLEXVAR_H
#define OSX_TYPES_FLEXVAR_H

#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "ace/Date_Time.h"
#include "ace/SString.h"
#include "base/debugLevel.h"
#include "base/osxExport.h"
#include "types/Blob.h"
#include "types/ObjectID.h"

/// A strictly typed variant; see the top of this file.
class OSX_EXPORT FlexVar {
public:
    /// What a `FlexVar` holds. The numbers are part of the interface. "Type none" is 0.
    enum Type : int {
        FlexVar_NoType = 0,
        FlexVar_Bool = 1,
        FlexVar_Char = 2,
        FlexVar_UChar = 3,
        FlexVar_Short = 4,
        FlexVar_UShort = 5,
        FlexVar_Int = 6,
        FlexVar_UInt = 7,
        FlexVar_Long = 8,
        FlexVar_ULong = 9,
        FlexVar_Float = 10,
        FlexVar_Double = 11,
        FlexVar_CString = 12,
        FlexVar_WString = 13,
        FlexVar_DateTime = 14,
        FlexVar_Blob = 15,
        FlexVar_ObjectID = 16
    };

    /// @name Constants
    /// Built when the library is loaded.
    /// @{
    static const ACE_String_Base<char> mEmptyCString;
    static const ACE_String_Base<wchar_t> mEmptyWString;
    /// Not a zero date: the local date and time at which the library was loaded.
    static const ACE_Date_Time mEmptyACE_Date_Time;
    static const ObjectID mEmptyObjectID;                  ///< All zero.
    static const ACE_String_Base<char> mCStrBoolTrue;      ///< "true"
    static const ACE_String_Base<char> mCStrBoolFalse;     ///< "false"
    static const ACE_String_Base<wchar_t> mWStrBoolTrue;   ///< L"true"
    static const ACE_String_Base<wchar_t> mWStrBoolFalse;  ///< L"false"
    /// @}

    /// @name Construction
    /// The argument's type decides the kind. Strings, dates, `Blob`s and identifiers are copied;
    /// the copy of a `Blob` always owns its bytes. Writes no line.
    /// @{
    FlexVar() noexcept : mType(FlexVar_NoType) {}
    FlexVar(bool aValue) noexcept : mType(FlexVar_Bool) { store(aValue); }
    FlexVar(char aValue) noexcept : mType(FlexVar_Char) { store(aValue); }
    FlexVar(unsigned char aValue) noexcept : mType(FlexVar_UChar) { store(aValue); }
    FlexVar(short aValue) noexcept : mType(FlexVar_Short) { store(aValue); }
    FlexVar(unsigned short aValue) noexcept : mType(FlexVar_UShort) { store(aValue); }
    FlexVar(int aValue) noexcept : mType(FlexVar_Int) { store(aValue); }
    FlexVar(unsigned int aValue) noexcept : mType(FlexVar_UInt) { store(aValue); }
    FlexVar(long aValue) noexcept : mType(FlexVar_Long) { store(low32(aValue)); }
    FlexVar(unsigned long aValue) noexcept : mType(FlexVar_ULong) { store(low32(aValue)); }
    FlexVar(float aValue) noexcept : mType(FlexVar_Float) { store(aValue); }
    FlexVar(double aValue) noexcept : mType(FlexVar_Double) { store(aValue); }
    FlexVar(const ACE_String_Base<char>& aValue) noexcept;
    FlexVar(const ACE_String_Base<wchar_t>& aValue) noexcept;
    FlexVar(const ACE_Date_Time& aValue) noexcept;
    FlexVar(const Blob& aValue) noexcept;
    FlexVar(const ObjectID& aValue) noexcept;

    /// A pointer, a literal text among them, would silently become a Bool: it does not compile.
    template <class Pointee>
    FlexVar(Pointee* aPointer) = delete;
    template <class Pointee, class Owner>
    FlexVar(Pointee Owner::* aPointer) = delete;
    FlexVar(std::nullptr_t) = delete;

    /// A copy of the same kind, with an object of its own.
    FlexVar(const FlexVar& aOther) noexcept : mType(aOther.mType), mValue(aOther.mValue) {
        if (holdsObject()) {
            copyObjectOf(aOther);
        }
    }
    /// Takes the value over and leaves `aOther` of type none.
    FlexVar(FlexVar&& aOther) noexcept : mType(aOther.mType), mValue(aOther.mValue) {
        aOther.forget();
    }

    /// Takes the other's kind and a copy of its value. A held object of the same kind stays where
    /// it is and takes the value: references to it show the new one. Writes no line.
    FlexVar& operator=(const FlexVar& aOther) noexcept {
        if (holdsObject() || aOther.holdsObject()) {
            return assignObjectOf(aOther);
        }
        mType = aOther.mType;
        mValue = aOther.mValue;
        return *this;
    }
    /// Takes the value over and leaves `aOther` of type none; moving a `FlexVar` to itself changes
    /// nothing. A held object of the same kind stays here, too; when memory for its new value is
    /// short both are as they were, but see rule 4. Writes no line.
    FlexVar& operator=(FlexVar&& aOther) noexcept {
        if (this != &aOther) {
            if (holdsObject() && mType == aOther.mType) {
                return moveObjectOf(aOther);
            }
            replaceBy(aOther);
        }
        return *this;
    }

    /// Destroys the held object.
    ~FlexVar() { deleteAllPointersExcept(FlexVar_NoType); }
    /// @}

    /// @name Setters
    /// Take the kind of the call's name and the value. A change of kind is traced at debug level 4:
    /// "Initialized to type" for a `FlexVar` of type none, else "From type ... To type".
    /// @return this object.
    /// @{
    FlexVar& setBool(bool aValue) noexcept { return setInline(FlexVar_Bool, aValue); }
    FlexVar& setChar(char aValue) noexcept { return setInline(FlexVar_Char, aValue); }
    FlexVar& setUChar(unsigned char aValue) noexcept { return setInline(FlexVar_UChar, aValue); }
    FlexVar& setShort(short aValue) noexcept { return setInline(FlexVar_Short, aValue); }
    FlexVar& setUShort(unsigned short aValue) noexcept { return setInline(FlexVar_UShort, aValue); }
    FlexVar& setInt(int aValue) noexcept { return setInline(FlexVar_Int, aValue); }
    FlexVar& setUInt(unsigned int aValue) noexcept { return setInline(FlexVar_UInt, aValue); }
    FlexVar& setLong(long aValue) noexcept { return setInline(FlexVar_Long, low32(aValue)); }
    FlexVar& setULong(unsigned long aValue) noexcept {
        return setInline(FlexVar_ULong, low32(aValue));
    }
    FlexVar& setFloat(float aValue) noexcept { return setInline(FlexVar_Float, aValue); }
    FlexVar& setDouble(double aValue) noexcept { return setInline(FlexVar_Double, aValue); }

    /// Copies the value, into the held object if that is of the same kind. The value may be the
    /// held object itself.
    FlexVar& setCString(const ACE_String_Base<char>& aValue) noexcept;
    FlexVar& setWString(const ACE_String_Base<wchar_t>& aValue) noexcept;
    FlexVar& setDateTime(const ACE_Date_Time& aValue) noexcept;
    FlexVar& setBlob(const Blob& aValue) noexcept;
    FlexVar& setObjectID(const ObjectID& aValue) noexcept;

    /// Takes the given object over and destroys the one held before, also when the kind stays; the
    /// held object itself, given once more, stays.
    /// @param aValue made by `new`; it belongs to the `FlexVar` from now on. Null is reported at
    ///        LM_ERROR by the call's own line and that of a failed assertion, and then stored.
    FlexVar& setCString(ACE_String_Base<char>* aValue) noexcept;
    FlexVar& setWString(ACE_String_Base<wchar_t>* aValue) noexcept;
    FlexVar& setDateTime(ACE_Date_Time* aValue) noexcept;
    FlexVar& setBlob(Blob* aValue) noexcept;
    FlexVar& setObjectID(ObjectID* aValue) noexcept;
    /// @}

    /// @name Getters
    /// @return the value if the kind is that of the call's name. Otherwise a default (false, 0 or
    ///         the empty constant of the kind), after a line at debug level 4. A reference is to
    ///         the held object: it is valid until this `FlexVar` takes another kind, is given an
    ///         object by a pointer, or dies, and shows each new value.
    /// @{
    bool getBool() const noexcept { return holds(FlexVar_Bool) && mValue.mBool; }
    char getChar() const noexcept { return holds(FlexVar_Char) ? mValue.mChar : char(0); }
    unsigned char getUChar() const noexcept {
        return holds(FlexVar_UChar) ? mValue.mUChar : static_cast<unsigned char>(0);
    }
    short getShort() const noexcept {
        return holds(FlexVar_Short) ? mValue.mShort : static_cast<short>(0);
    }
    unsigned short getUShort() const noexcept {
        return holds(FlexVar_UShort) ? mValue.mUShort : static_cast<unsigned short>(0);
    }
    int getInt() const noexcept { return holds(FlexVar_Int) ? mValue.mInt : 0; }
    unsigned int getUInt() const noexcept { return holds(FlexVar_UInt) ? mValue.mUInt : 0U; }
    long getLong() const noexcept { return holds(FlexVar_Long) ? mValue.mLong : 0L; }
    unsigned long getULong() const noexcept { return holds(FlexVar_ULong) ? mValue.mULong : 0UL; }
    float getFloat() const noexcept { return holds(FlexVar_Float) ? mValue.mFloat : 0.0F; }
    double getDouble() const noexcept { return holds(FlexVar_Double) ? mValue.mDouble : 0.0; }
    OSX_EXPORT const ACE_String_Base<char>& getCString() const noexcept {
        return object(FlexVar_CString, &Slot::mCString, mEmptyCString);
    }
    OSX_EXPORT const ACE_String_Base<wchar_t>& getWString() const noexcept {
        return object(FlexVar_WString, &Slot::mWString, mEmptyWString);
    }
    /// The default is `mEmptyACE_Date_Time`, which is the load time of the library.
    OSX_EXPORT const ACE_Date_Time& getDateTime() const noexcept {
        return object(FlexVar_DateTime, &Slot::mDateTime, mEmptyACE_Date_Time);
    }
    OSX_EXPORT const ObjectID& getObjectID() const noexcept {
        return object(FlexVar_ObjectID, &Slot::mObjectID, mEmptyObjectID);
    }
    /// @return the held `Blob`, still owned by this object; null for any other kind.
    OSX_EXPORT Blob* getBlob() const noexcept {
        return holds(FlexVar_Blob) ? mValue.mBlob : nullptr;
    }
    /// @}

    /// @name Getters that tell
    /// They write no line. There is none for a `Blob`.
    /// @return 0, and the value in the argument, if the kind is that of the call's name; -1, and
    ///         the argument unchanged, otherwise.
    /// @{
    int getBool(bool& aValue) const noexcept { return copyOut(FlexVar_Bool, &Slot::mBool, aValue); }
    int getChar(char& aValue) const noexcept { return copyOut(FlexVar_Char, &Slot::mChar, aValue); }
    int getUChar(unsigned char& aValue) const noexcept {
        return copyOut(FlexVar_UChar, &Slot::mUChar, aValue);
    }
    int getShort(short& aValue) const noexcept {
        return copyOut(FlexVar_Short, &Slot::mShort, aValue);
    }
    int getUShort(unsigned short& aValue) const noexcept {
        return copyOut(FlexVar_UShort, &Slot::mUShort, aValue);
    }
    int getInt(int& aValue) const noexcept { return copyOut(FlexVar_Int, &Slot::mInt, aValue); }
    int getUInt(unsigned int& aValue) const noexcept {
        return copyOut(FlexVar_UInt, &Slot::mUInt, aValue);
    }
    int getLong(long& aValue) const noexcept { return copyOut(FlexVar_Long, &Slot::mLong, aValue); }
    int getULong(unsigned long& aValue) const noexcept {
        return copyOut(FlexVar_ULong, &Slot::mULong, aValue);
    }
    int getFloat(float& aValue) const noexcept {
        return copyOut(FlexVar_Float, &Slot::mFloat, aValue);
    }
    int getDouble(double& aValue) const noexcept {
        return copyOut(FlexVar_Double, &Slot::mDouble, aValue);
    }
    int getCString(ACE_String_Base<char>& aValue) const noexcept;
    int getWString(ACE_String_Base<wchar_t>& aValue) const noexcept;
    int getDateTime(ACE_Date_Time& aValue) const noexcept;
    int getObjectID(ObjectID& aValue) const noexcept;
    /// @}

    /// Gives the held `Blob` away and becomes type none; the change is not traced.
    /// @return the `Blob`, the caller's to `delete`; null, after a line at debug level 4, for any
    ///         other kind.
    Blob* releaseBlob() noexcept;

    /// @name Queries
    /// @{
    Type getType() const noexcept { return mType; }
    /// @return the enumerator's name; "No FlexVar type" for type none.
    ACE_String_Base<char> getTypeName() const noexcept;
    /// @return the enumerator's name; "No FlexVar type" for any number outside 1 to 16.
    static ACE_String_Base<char> getTypeName(Type aType) noexcept;
    /// @return true for Char to Double; a Bool is not numeric.
    bool isNumeric() const noexcept { return mType >= FlexVar_Char && mType <= FlexVar_Double; }
    /// @return true for CString and WString.
    bool isString() const noexcept { return mType == FlexVar_CString || mType == FlexVar_WString; }
    /// @return true for DateTime.
    bool isDate() const noexcept { return mType == FlexVar_DateTime; }

    /// Traces a change from one type to another, at debug level 4 as the setters do; nothing is
    /// changed, and what this object holds does not matter.
    /// @return whether the two types differ.
    bool dataTypeCanged(Type aFrom, Type aTo) const noexcept;

    /// @return a number for hash tables, alike in both word sizes: the integer itself; a Float or
    ///         Double truncated to 64 bits, of which the low 32 (0 for what does not fit, NaN among
    ///         it); `ACE::hash_pjw` of a string's bytes; a date's minute; `ObjectID::hash`; 0 for
    ///         none, Bool and Blob.
    unsigned int hash() const noexcept {
        if (isWord()) {
            return mValue.mUInt;
        }
        return mType == FlexVar_Double ? hashOfDouble(mValue.mBits) : hashOfOther();
    }
    /// @}

    /// @name Arithmetic
    /// Two operands of one numeric kind, Char to Double, give a result. Char to UShort are
    /// promoted: the result is an Int. All others keep their kind. Integers wrap.
    /// @return the result; type none if the kinds differ or are not numeric, and for a division of
    ///         integers by zero. Floating division by zero gives an infinity or NaN.
    /// @{
    FlexVar operator+(const FlexVar& aOther) const noexcept {
        if (areWords(aOther)) {
            return word(mValue.mUInt + aOther.mValue.mUInt);
        }
        return areDoubles(aOther)
                   ? rounded(asStored(mValue.mDouble) + asStored(aOther.mValue.mDouble))
                   : sumWith(aOther);
    }
    FlexVar operator-(const FlexVar& aOther) const noexcept {
        if (areWords(aOther)) {
            return word(mValue.mUInt - aOther.mValue.mUInt);
        }
        return areDoubles(aOther)
                   ? rounded(asStored(mValue.mDouble) - asStored(aOther.mValue.mDouble))
                   : differenceWith(aOther);
    }
    FlexVar operator*(const FlexVar& aOther) const noexcept {
        if (areWords(aOther)) {
            return word(mValue.mUInt * aOther.mValue.mUInt);
        }
        return areDoubles(aOther)
                   ? rounded(asStored(mValue.mDouble) * asStored(aOther.mValue.mDouble))
                   : productWith(aOther);
    }
    FlexVar operator/(const FlexVar& aOther) const noexcept;
    /// @}

    /// @name Arithmetic in place
    /// Keeps the kind and its width: a Char wraps at 8 bits. Operands that do not fit leave this
    /// object unchanged.
    /// @return this object.
    /// @{
    /// Adds a number to one of the same kind, or appends a string to one of the same kind.
    FlexVar& operator+=(const FlexVar& aOther) noexcept;
    /// Subtracts a number from one of the same kind.
    FlexVar& operator-=(const FlexVar& aOther) noexcept;
    /// Adds one to a number. Although written `x++`, the result is the object itself, that is the
    /// new value.
    FlexVar& operator++(int) noexcept;
    /// Subtracts one from a number; the result is the object itself.
    FlexVar& operator--(int) noexcept;
    /// @}

    /// @name Comparison
    /// Different kinds are unequal and unordered. Dates, `Blob`s and identifiers have no order, and
    /// two distinct `Blob`s are never equal, whatever they hold. Type none equals type none. False
    /// is less than true. Strings are ordered by the raw memory of their common part, then by
    /// length. NaN is unequal to all and unordered, but a `FlexVar` always equals itself.
    /// @{
    bool operator==(const FlexVar& aOther) const noexcept {
        if (mType != aOther.mType) {
            return false;
        }
        if (mType <= FlexVar_ULong) {
            return mValue.mBits == aOther.mValue.mBits;  // The free part of a slot is zero.
        }
        if (mType == FlexVar_Double) {
            return this == &aOther || areEqualDoubles(mValue.mBits, aOther.mValue.mBits);
        }
        return isEqualTo(aOther);
    }
    bool operator!=(const FlexVar& aOther) const noexcept { return !(*this == aOther); }
    bool operator<(const FlexVar& aOther) const noexcept;
    bool operator>(const FlexVar& aOther) const noexcept { return aOther < *this; }
    bool operator<=(const FlexVar& aOther) const noexcept {
        return *this < aOther || *this == aOther;
    }
    bool operator>=(const FlexVar& aOther) const noexcept {
        return *this > aOther || *this == aOther;
    }
    /// @}

    /// @name Dates
    /// @{
    /// @return whether this is a DateTime whose eight fields all equal the argument's, the
    ///         weekday among them.
    bool compareACE_Date_Time(const ACE_Date_Time& aOther) const noexcept;
    /// @return the Gregorian rule, whatever this object holds.
    bool isLeapYear(const long& aYear) const noexcept;
    /// @return whether this is a DateTime whose month exists, whose day exists in that month and
    ///         year, and whose hour, minute and second are in range. Year, microsecond and weekday
    ///         are not checked.
    bool isValidDate() const noexcept;
    /// @}

    /// @name Text
    /// | kind           | text                                                             |
    /// |----------------|------------------------------------------------------------------|
    /// | none           | empty                                                            |
    /// | Bool           | "true" or "false"                                                |
    /// | Char           | the character itself; empty for character 0                      |
    /// | other integers | decimal, as signed 32 bits: a ULong above 2147483647 is negative |
    /// | Float, Double  | six decimals                                                     |
    /// | CString        | the string                                                       |
    /// | WString        | the low 8 bits of each character, up to the first that are zero  |
    /// | DateTime       | DD-MM-YYYY hh:mm:ss uuuuuu                                       |
    /// | Blob           | "Size 2 [0x1 0xab ]", 30 bytes at most; "..." from 30 bytes on   |
    /// | ObjectID       | its 36 characters                                                |
    /// @{
    /// @param aOut is replaced by the text; unchanged when memory is short.
    void getValueAsString(ACE_String_Base<char>& aOut) const noexcept;
    /// @return the text; empty when memory is short.
    ACE_String_Base<char> getValueAsString() const noexcept;
    /// @param aOut is replaced by the text, each byte as one wide character; by the very string for
    ///        a WString. Unchanged or empty when memory is short.
    void getValueAsString(ACE_String_Base<wchar_t>& aOut) const noexcept;

    /// Reads a text as a value of the kind held, which stays. An empty text changes nothing.
    ///
    ///  - Integers are read as `strtol` reads base 0 (so 0x10 is 16 and 010 is 8), saturate at
    ///    -2147483648 and 2147483647, and are then cut to the kind's width. Numbers must take up
    ///    the whole text.
    ///  - A Bool is "true" or "false", to the letter.
    ///  - A DateTime is read by its fixed columns, each in base 0 too, so that 08 and 09 read as
    ///    0. Missing columns read as 0. A field out of range becomes 0 and the date is set all
    ///    the same, with weekday 0. The year may be any.
    ///  - A string takes the text; an ObjectID takes what `ObjectID::setFromString` makes of it.
    ///    For a CString and an ObjectID a wide text is narrowed to the low 8 bits of each
    ///    character.
    ///
    /// @return 0 if the text was taken or empty. -1 if it is no value of the kind, if a field of a
    ///         date is out of range, for type none and Blob, and when memory is short; but for a
    ///         date the old value then stays.
    /// @{
    long setValueFromString(const ACE_String_Base<char>& aText) noexcept;
    long setValueFromString(const ACE_String_Base<wchar_t>& aText) noexcept;
    /// @}

    /// The parser of numbers and dates behind both forms of `setValueFromString`. There are two:
    /// for `<ACE_String_Base<char>, char>` and for `<ACE_String_Base<wchar_t>, wchar_t>`.
    /// @return 0 or -1 as they do; 1, with nothing changed, for any other kind.
    template <class String, class Character>
    long setValueFromStringCommon(const String& aText) noexcept;

    /// Takes kind and value from the notation of a text. The first rule that fits decides:
    ///
    ///  1. L" is in it: a WString of what stands between it and the next " or the end.
    ///  2. " is in it: a CString of what stands between it and the next " or the end.
    ///  3. A point is in it: a Double, as `strtod` reads the text; 0.0 if it cannot.
    ///  4. "true" is anywhere in it: a Bool, true.
    ///  5. "false" is anywhere in it: a Bool, false.
    ///  6. Else: a Long, as `strtol` reads base 10, saturated at 32 bits; 0 if it cannot.
    void setTypeAndValue(const ACE_String_Base<char>& aText) noexcept;

    /// Writes the type's name and the value's text to the log, in three entries at LM_ERROR,
    /// whatever the debug level. ACE cuts a text of more than some 4000 characters.
    void dump() const noexcept;
    /// @}

private:
    /// The list of the kinds; everything that differs between them follows from it.
    struct OSX_HIDDEN Kinds;

    /// The value: one of the inline kinds or the owning pointer.
    union Slot {
        std::uint64_t mBits = 0;
        bool mBool;
        char mChar;
        unsigned char mUChar;
        short mShort;
        unsigned short mUShort;
        int mInt;
        unsigned int mUInt;
        std::int32_t mLong;
        std::uint32_t mULong;
        float mFloat;
        double mDouble;
        ACE_String_Base<char>* mCString;
        ACE_String_Base<wchar_t>* mWString;
        ACE_Date_Time* mDateTime;
        Blob* mBlob;
        ObjectID* mObjectID;
    };
    static_assert(sizeof(Slot) == 8, "one slot of 8 bytes in both word sizes");

    /// From which debug level on the trace lines are written.
    static constexpr unsigned int kTraceLevel = 4;

    static std::int32_t low32(long aValue) noexcept { return static_cast<std::int32_t>(aValue); }
    static std::uint32_t low32(unsigned long aValue) noexcept {
        return static_cast<std::uint32_t>(aValue);
    }

    /// @return whether it is an Int, UInt, Long or ULong, whose 32 bits wrap alike.
    bool isWord() const noexcept { return mType >= FlexVar_Int && mType <= FlexVar_ULong; }
    bool areWords(const FlexVar& aOther) const noexcept {
        return mType == aOther.mType && isWord();
    }
    /// @return whether both are Doubles that this header may compute with. It may not where the
    ///         processor keeps more digits of a result than a Double has, until it is stored, nor
    ///         in a program whose compiler was told that there is no NaN.
    bool areDoubles(const FlexVar& aOther) const noexcept {
        return FLT_EVAL_METHOD == 0 && __FINITE_MATH_ONLY__ == 0 && mType == FlexVar_Double &&
               aOther.mType == FlexVar_Double;
    }
    /// @return a word of this object's kind.
    FlexVar word(std::uint32_t aBits) const noexcept {
        FlexVar lWord;
        lWord.mType = mType;
        lWord.store(aBits);
        return lWord;
    }

    /// Operands and results go through memory that the compiler must not look through, so that
    /// each operation is done and rounded by itself, whatever liberties the program gave it.
    static double asStored(double aValue) noexcept {
        const volatile double lValue = aValue;
        return lValue;
    }
    static FlexVar rounded(double aResult) noexcept { return FlexVar(asStored(aResult)); }

    /// @name Doubles by their bits
    /// The program's compiler may have been told that there is no NaN.
    /// @{
    static constexpr int kMantissaBits = DBL_MANT_DIG - 1;
    static constexpr std::uint64_t kSign = std::uint64_t(1) << 63;
    static constexpr std::uint64_t kInfinity = std::uint64_t(0x7FF) << kMantissaBits;

    static bool areEqualDoubles(std::uint64_t aLeft, std::uint64_t aRight) noexcept {
        const bool lIsNaN = (aLeft & ~kSign) > kInfinity;
        const bool lAreZero = ((aLeft | aRight) & ~kSign) == 0;
        return (aLeft == aRight && !lIsNaN) || lAreZero;
    }
    /// @return the low 32 bits of the number without its fraction.
    static unsigned int hashOfDouble(std::uint64_t aBits) noexcept {
        const int lExponent = static_cast<int>((aBits & kInfinity) >> kMantissaBits) - 1023;
        if (lExponent < 0 || lExponent > 62) {
            return 0;
        }
        const std::uint64_t lUnit = std::uint64_t(1) << kMantissaBits;
        const std::uint64_t lDigits = (aBits & (lUnit - 1)) | lUnit;
        const auto lWhole = static_cast<unsigned int>(lExponent < kMantissaBits
                                                          ? lDigits >> (kMantissaBits - lExponent)
                                                          : lDigits << (lExponent - kMantissaBits));
        return (aBits & kSign) == 0 ? lWhole : 0U - lWhole;
    }
    /// @}

    bool holdsObject() const noexcept { return mType >= FlexVar_CString; }
    bool holds(Type aType) const noexcept {
        if (mType == aType) {
            return true;
        }
        reportMismatch("get", aType);
        return false;
    }
    void initializeValue() noexcept { mValue.mBits = 0; }
    void forget() noexcept {
        mType = FlexVar_NoType;
        initializeValue();
    }

    /// Fills the whole slot at once, so that a copy which follows does not wait for two stores.
    template <class Member>
    void store(Member aValue) noexcept {
        std::uint64_t lBits = 0;
        std::memcpy(&lBits, &aValue, sizeof aValue);
        mValue.mBits = lBits;
    }
    /// Leaves this header only if there is an object to destroy or, maybe, a line to write.
    template <class Member>
    FlexVar& setInline(Type aType, Member aValue) noexcept {
        if (mType != aType) {
            if (holdsObject() || getLogLevel() >= kTraceLevel) {
                changeType(aType);
            }
            mType = aType;
        }
        store(aValue);
        return *this;
    }
    /// @return the held object; the empty one for another kind and for a kind without an object.
    template <class Object>
    const Object& object(Type aType, Object* Slot::* aMember, const Object& aEmpty) const noexcept {
        return holds(aType) && mValue.*aMember != nullptr ? *(mValue.*aMember) : aEmpty;
    }
    template <class Member, class Result>
    int copyOut(Type aType, Member Slot::* aMember, Result& aResult) const noexcept {
        if (mType != aType) {
            return -1;
        }
        aResult = mValue.*aMember;
        return 0;
    }

    /// Destroys the held object and clears the slot, unless this object is of type `aKeep`. The
    /// type stays.
    void deleteAllPointersExcept(Type aKeep) noexcept {
        if (mType == aKeep) {
            return;
        }
        if (holdsObject()) {
            destroyObject();
        }
        initializeValue();
    }

    void replaceBy(FlexVar& aOther) noexcept {
        deleteAllPointersExcept(FlexVar_NoType);
        mType = aOther.mType;
        mValue = aOther.mValue;
        aOther.forget();
    }

    FlexVar sumWith(const FlexVar& aOther) const noexcept;
    FlexVar differenceWith(const FlexVar& aOther) const noexcept;
    FlexVar productWith(const FlexVar& aOther) const noexcept;
    bool isEqualTo(const FlexVar& aOther) const noexcept;
    unsigned int hashOfOther() const noexcept;
    void reportMismatch(const char* aVerb, Type aWanted) const noexcept;
    void changeType(Type aType) noexcept;
    void destroyObject() noexcept;
    void copyObjectOf(const FlexVar& aOther) noexcept;
    FlexVar& assignObjectOf(const FlexVar& aOther) noexcept;
    FlexVar& moveObjectOf(FlexVar& aOther) noexcept;
    OSX_HIDDEN bool keepsObjectFor(const FlexVar& aOther) const noexcept;
    OSX_HIDDEN static void traceChange(Type aFrom, Type aTo) noexcept;

    template <class Kind>
    OSX_HIDDEN void constructCopy(const typename Kind::Value& aValue) noexcept;
    template <class Kind>
    OSX_HIDDEN bool setCopy(const typename Kind::Value& aValue) noexcept;
    template <class Kind>
    OSX_HIDDEN FlexVar& setOwned(typename Kind::Value* aValue) noexcept;
    template <class Kind>
    OSX_HIDDEN int copyObjectOut(typename Kind::Value& aValue) const noexcept;
    template <class Operation>
    OSX_HIDDEN FlexVar combinedWith(const FlexVar& aOther, Operation aOperation) const noexcept;
    template <class Operation>
    OSX_HIDDEN FlexVar& changeBy(const FlexVar& aOther, Operation aOperation) noexcept;
    template <class Operation>
    OSX_HIDDEN FlexVar& step(Operation aOperation) noexcept;
    /// @return whether memory sufficed.
    OSX_HIDDEN bool setText(const ACE_String_Base<char>& aText) noexcept;
    OSX_HIDDEN bool setText(const ACE_String_Base<wchar_t>& aText) noexcept;
    template <class Kind>
    OSX_HIDDEN FlexVar& append(const typename Kind::Value& aText) noexcept;

    template <class Character>
    OSX_HIDDEN long setValueFromAnyString(const ACE_String_Base<Character>& aText) noexcept;
    template <class Character>
    OSX_HIDDEN long setBoolFromString(const ACE_String_Base<Character>& aText) noexcept;
    template <class Character>
    OSX_HIDDEN long setDateFromString(const ACE_String_Base<Character>& aText) noexcept;
    template <class Kind, class Character>
    OSX_HIDDEN long setTextFromString(const ACE_String_Base<Character>& aText) noexcept;
    template <class Character>
    OSX_HIDDEN long setObjectIDFromString(const ACE_String_Base<Character>& aText) noexcept;
    template <class Kind>
    OSX_HIDDEN void setQuoted(std::string_view aText) noexcept;

    Type mType;
    Slot mValue;
};

#endif
