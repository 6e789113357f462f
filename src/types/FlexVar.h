// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

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
///     a getter answers with a default and, at debug level 4, a line. Two values of different
///     kinds are never combined, never ordered and never equal. An Int is not a Long.
///  2. A Long and a ULong hold 32 bits in both word sizes: a wider argument is cut to its low 32
///     bits; `getLong` extends the sign, `getULong` extends with zeros.
///  3. The object of kinds 12 to 16 belongs to the `FlexVar`, which destroys it when it takes
///     another kind or dies.
///  4. Nothing throws. When memory is short `errno` is ENOMEM, a newly constructed `FlexVar` is of
///     type none, and one that was to change keeps the value it had. The exception is a held
///     `Blob` that was to take other bytes: it is left empty.
///  5. A pointer form of a setter may be given null, which it stores: such a `FlexVar` has a kind
///     with no object. It can be copied, set again and destroyed, and reads like the kind's empty
///     value; `getBlob` and `releaseBlob` give null.
///  6. A `FlexVar` is a value for one thread at a time. Several threads may read one at once, but
///     only one at a time may print one that holds an ObjectID. All may use the constants.
#ifndef OSX_TYPES_FLEXVAR_H
#define OSX_TYPES_FLEXVAR_H

#include <cstddef>
#include <cstdint>

#include "ace/Date_Time.h"
#include "ace/SString.h"
#include "base/osxExport.h"
#include "types/Blob.h"
#include "types/ObjectID.h"

/// A strictly typed variant; see the top of this file.
class OSX_EXPORT FlexVar {
public:
    /// What a `FlexVar` holds. The numbers are part of the interface. "Type none" is 0.
    enum Type : int {
        FlexVar_NoType = 0,     ///< Nothing.
        FlexVar_Bool = 1,       ///< `bool`
        FlexVar_Char = 2,       ///< `char`
        FlexVar_UChar = 3,      ///< `unsigned char`
        FlexVar_Short = 4,      ///< `short`
        FlexVar_UShort = 5,     ///< `unsigned short`
        FlexVar_Int = 6,        ///< `int`
        FlexVar_UInt = 7,       ///< `unsigned int`
        FlexVar_Long = 8,       ///< `long`, of which 32 bits.
        FlexVar_ULong = 9,      ///< `unsigned long`, of which 32 bits.
        FlexVar_Float = 10,     ///< `float`
        FlexVar_Double = 11,    ///< `double`
        FlexVar_CString = 12,   ///< A string of `char`.
        FlexVar_WString = 13,   ///< A string of `wchar_t`.
        FlexVar_DateTime = 14,  ///< `ACE_Date_Time`
        FlexVar_Blob = 15,      ///< `Blob`
        FlexVar_ObjectID = 16   ///< `ObjectID`
    };

    /// @name Constants
    /// Built when the library is loaded.
    /// @{
    static const ACE_String_Base<char> mEmptyCString;     ///< An empty string.
    static const ACE_String_Base<wchar_t> mEmptyWString;  ///< An empty string.
    /// Not a zero date: the local date and time at which the library was loaded.
    static const ACE_Date_Time mEmptyACE_Date_Time;
    static const ObjectID mEmptyObjectID;                  ///< All zero.
    static const ACE_String_Base<char> mCStrBoolTrue;      ///< "true"
    static const ACE_String_Base<char> mCStrBoolFalse;     ///< "false"
    static const ACE_String_Base<wchar_t> mWStrBoolTrue;   ///< L"true"
    static const ACE_String_Base<wchar_t> mWStrBoolFalse;  ///< L"false"
    /// @}

    /// Makes one of type none.
    FlexVar() noexcept;

    /// @name Construction from a value
    /// @{

    /// Takes the kind of the argument's type, and the value. Writes no line.
    /// @param aValue the value. A string, date, `Blob` or identifier is copied, and stays the
    ///        caller's; the copy of a `Blob` always owns its bytes.
    FlexVar(bool aValue) noexcept;
    FlexVar(char aValue) noexcept;
    FlexVar(unsigned char aValue) noexcept;
    FlexVar(short aValue) noexcept;
    FlexVar(unsigned short aValue) noexcept;
    FlexVar(int aValue) noexcept;
    FlexVar(unsigned int aValue) noexcept;
    FlexVar(long aValue) noexcept;
    FlexVar(unsigned long aValue) noexcept;
    FlexVar(float aValue) noexcept;
    FlexVar(double aValue) noexcept;
    FlexVar(const ACE_String_Base<char>& aValue) noexcept;
    FlexVar(const ACE_String_Base<wchar_t>& aValue) noexcept;
    FlexVar(const ACE_Date_Time& aValue) noexcept;
    FlexVar(const Blob& aValue) noexcept;
    FlexVar(const ObjectID& aValue) noexcept;
    /// @}

    /// @name Construction from a pointer
    /// @{

    /// Does not compile: a pointer, a literal text among them, would silently become a Bool.
    /// @param aPointer use an object, as a string, instead.
    template <class Pointee>
    FlexVar(Pointee* aPointer) = delete;
    template <class Pointee, class Owner>
    FlexVar(Pointee Owner::* aPointer) = delete;
    FlexVar(std::nullptr_t aPointer) = delete;
    /// @}

    /// @name Copy and move
    /// They write no line.
    /// @{

    /// Makes a copy of the same kind, with an object of its own.
    /// @param aOther any `FlexVar`.
    FlexVar(const FlexVar& aOther) noexcept;

    /// Takes a value over.
    /// @param aOther any `FlexVar`; is of type none afterwards.
    FlexVar(FlexVar&& aOther) noexcept;

    /// Takes the other's kind and a copy of its value. A held object of the same kind stays where
    /// it is and takes the value: references to it show the new one.
    /// @param aOther any `FlexVar`; this one changes nothing.
    /// @return this object.
    FlexVar& operator=(const FlexVar& aOther) noexcept;

    /// Takes a value over. A held object of the same kind stays here, too; when memory for its new
    /// value is short both are as they were, but see rule 4.
    /// @param aOther any `FlexVar`; is of type none afterwards. This one changes nothing.
    /// @return this object.
    FlexVar& operator=(FlexVar&& aOther) noexcept;

    /// Destroys the held object.
    ~FlexVar();
    /// @}

    /// @name Setters of numbers
    /// A change of kind, by these or the other setters, is traced at debug level 4: "Initialized
    /// to type" for a `FlexVar` of type none, else "From type ... To type".
    /// @{

    /// Takes the kind of the call's name, and the value.
    /// @param aValue the value.
    /// @return this object.
    FlexVar& setBool(bool aValue) noexcept;
    FlexVar& setChar(char aValue) noexcept;
    FlexVar& setUChar(unsigned char aValue) noexcept;
    FlexVar& setShort(short aValue) noexcept;
    FlexVar& setUShort(unsigned short aValue) noexcept;
    FlexVar& setInt(int aValue) noexcept;
    FlexVar& setUInt(unsigned int aValue) noexcept;
    FlexVar& setLong(long aValue) noexcept;
    FlexVar& setULong(unsigned long aValue) noexcept;
    FlexVar& setFloat(float aValue) noexcept;
    FlexVar& setDouble(double aValue) noexcept;
    /// @}

    /// @name Setters that copy an object
    /// @{

    /// Takes the kind of the call's name and a copy of the value. A held object of that kind stays
    /// where it is and takes the value.
    /// @param aValue the value, which stays the caller's. It may be the held object itself, or lie
    ///        in it.
    /// @return this object.
    FlexVar& setCString(const ACE_String_Base<char>& aValue) noexcept;
    FlexVar& setWString(const ACE_String_Base<wchar_t>& aValue) noexcept;
    FlexVar& setDateTime(const ACE_Date_Time& aValue) noexcept;
    FlexVar& setBlob(const Blob& aValue) noexcept;
    FlexVar& setObjectID(const ObjectID& aValue) noexcept;
    /// @}

    /// @name Setters that take an object over
    /// @{

    /// Takes the kind of the call's name and the given object. The one held before is destroyed,
    /// also when the kind stays.
    /// @param aValue made by `new`; it belongs to the `FlexVar` from now on. The held object, given
    ///        once more, stays. Null is reported at LM_ERROR by the call's own line and that of a
    ///        failed assertion, and then stored (rule 5).
    /// @return this object.
    FlexVar& setCString(ACE_String_Base<char>* aValue) noexcept;
    FlexVar& setWString(ACE_String_Base<wchar_t>* aValue) noexcept;
    FlexVar& setDateTime(ACE_Date_Time* aValue) noexcept;
    FlexVar& setBlob(Blob* aValue) noexcept;
    FlexVar& setObjectID(ObjectID* aValue) noexcept;
    /// @}

    /// @name Getters of numbers
    /// @{

    /// Reads a value of the kind of the call's name.
    /// @return the value; false or 0, after a line at debug level 4, for any other kind.
    bool getBool() const noexcept;
    char getChar() const noexcept;
    unsigned char getUChar() const noexcept;
    short getShort() const noexcept;
    unsigned short getUShort() const noexcept;
    int getInt() const noexcept;
    unsigned int getUInt() const noexcept;
    long getLong() const noexcept;
    unsigned long getULong() const noexcept;
    float getFloat() const noexcept;
    double getDouble() const noexcept;
    /// @}

    /// @name Getters of objects
    /// What they refer to is the held object. It is valid until this `FlexVar` takes another kind,
    /// is given an object by a pointer, or dies, and shows each new value.
    /// @{

    /// Reads a value of the kind of the call's name.
    /// @return the held object; the empty constant of the kind, after a line at debug level 4, for
    ///         any other kind. The empty constant of a date is the library's load time.
    OSX_EXPORT const ACE_String_Base<char>& getCString() const noexcept;
    OSX_EXPORT const ACE_String_Base<wchar_t>& getWString() const noexcept;
    OSX_EXPORT const ACE_Date_Time& getDateTime() const noexcept;
    OSX_EXPORT const ObjectID& getObjectID() const noexcept;

    /// Finds the held `Blob`.
    /// @return the `Blob`, still owned by this object; null, after a line at debug level 4, for any
    ///         other kind.
    OSX_EXPORT Blob* getBlob() const noexcept;
    /// @}

    /// @name Getters that tell
    /// They write no line. There is none for a `Blob`.
    /// @{

    /// Copies a value of the kind of the call's name.
    /// @param[out] aValue the value; unchanged for any other kind.
    /// @retval 0 the value is in the argument.
    /// @retval -1 this is of another kind.
    int getBool(bool& aValue) const noexcept;
    int getChar(char& aValue) const noexcept;
    int getUChar(unsigned char& aValue) const noexcept;
    int getShort(short& aValue) const noexcept;
    int getUShort(unsigned short& aValue) const noexcept;
    int getInt(int& aValue) const noexcept;
    int getUInt(unsigned int& aValue) const noexcept;
    int getLong(long& aValue) const noexcept;
    int getULong(unsigned long& aValue) const noexcept;
    int getFloat(float& aValue) const noexcept;
    int getDouble(double& aValue) const noexcept;
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

    /// Tells the kind.
    /// @return its number.
    Type getType() const noexcept;

    /// Tells the kind's name.
    /// @return the enumerator's name; "No FlexVar type" for type none. Empty when memory is short.
    ACE_String_Base<char> getTypeName() const noexcept;

    /// Tells a kind's name.
    /// @param aType any number.
    /// @return the enumerator's name; "No FlexVar type" for any number outside 1 to 16. Empty when
    ///         memory is short.
    static ACE_String_Base<char> getTypeName(Type aType) noexcept;

    /// Tells whether there is arithmetic with the kind.
    /// @return true for Char to Double; a Bool is not numeric.
    bool isNumeric() const noexcept;

    /// Tells whether it is a string.
    /// @return true for CString and WString.
    bool isString() const noexcept;

    /// Tells whether it is a date.
    /// @return true for DateTime.
    bool isDate() const noexcept;

    /// Traces a change from one type to another, at debug level 4 as the setters do. Nothing is
    /// changed, and what this object holds does not matter.
    /// @param aFrom any type; type none for a `FlexVar` that gets its first value.
    /// @param aTo any type.
    /// @return whether the two types differ.
    bool dataTypeCanged(Type aFrom, Type aTo) const noexcept;

    /// Makes a number for hash tables, alike in both word sizes.
    /// @return the integer itself; a Float or Double truncated to 64 bits, of which the low 32 (0
    ///         for what does not fit, NaN among it); `ACE::hash_pjw` of a string's bytes; a date's
    ///         minute; `ObjectID::hash`; 0 for none, Bool and Blob.
    unsigned int hash() const noexcept;
    /// @}

    /// @name Arithmetic
    /// Two operands of one numeric kind, Char to Double, give a result. Char to UShort are
    /// promoted: the result is an Int. All others keep their kind. Integers wrap.
    /// @{

    /// Computes with this object as the left operand.
    /// @param aOther the right operand.
    /// @return the result; type none if the kinds differ or are not numeric, and for a division of
    ///         integers by zero. Floating division by zero gives an infinity or NaN.
    FlexVar operator+(const FlexVar& aOther) const noexcept;
    FlexVar operator-(const FlexVar& aOther) const noexcept;
    FlexVar operator*(const FlexVar& aOther) const noexcept;
    FlexVar operator/(const FlexVar& aOther) const noexcept;
    /// @}

    /// @name Arithmetic in place
    /// Keeps the kind and its width: a Char wraps at 8 bits.
    /// @{

    /// Adds a number, or appends a string.
    /// @param aOther a number or string of this object's kind; any other leaves this object as it
    ///        is. So does a lack of memory.
    /// @return this object.
    FlexVar& operator+=(const FlexVar& aOther) noexcept;

    /// Subtracts a number.
    /// @param aOther a number of this object's kind; any other leaves this object as it is.
    /// @return this object.
    FlexVar& operator-=(const FlexVar& aOther) noexcept;

    /// Adds one to a number; anything else stays as it is.
    /// @return this object, that is the new value, although it is written `x++`.
    FlexVar& operator++(int) noexcept;

    /// Subtracts one from a number; anything else stays as it is.
    /// @return this object, that is the new value, although it is written `x--`.
    FlexVar& operator--(int) noexcept;
    /// @}

    /// @name Comparison
    /// Different kinds are unequal and unordered. Dates, `Blob`s and identifiers have no order, and
    /// two distinct `Blob`s are never equal, whatever they hold. Type none equals type none. False
    /// is less than true. Strings are ordered by the raw memory of their common part, then by
    /// length. NaN is unequal to all and unordered, but a `FlexVar` always equals itself.
    /// @{

    /// Compares this object, on the left, with another.
    /// @param aOther the right operand.
    /// @return whether it is so; `<=` and `>=` hold for what is less or greater, or equal.
    bool operator==(const FlexVar& aOther) const noexcept;
    bool operator!=(const FlexVar& aOther) const noexcept;
    bool operator<(const FlexVar& aOther) const noexcept;
    bool operator>(const FlexVar& aOther) const noexcept;
    bool operator<=(const FlexVar& aOther) const noexcept;
    bool operator>=(const FlexVar& aOther) const noexcept;
    /// @}

    /// @name Dates
    /// @{

    /// Compares with a date.
    /// @param aOther the date.
    /// @return whether this is a DateTime whose eight fields all equal the argument's, the
    ///         weekday among them.
    bool compareACE_Date_Time(const ACE_Date_Time& aOther) const noexcept;

    /// Tells whether a year has a 29th of February, whatever this object holds.
    /// @param aYear a year of the Gregorian calendar.
    /// @return whether 4 divides it but 100 does not, or 400 does.
    bool isLeapYear(const long& aYear) const noexcept;

    /// Tells whether there is such a date.
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

    /// Renders the value.
    /// @param[out] aOut is replaced by the text; unchanged when memory is short.
    void getValueAsString(ACE_String_Base<char>& aOut) const noexcept;

    /// Renders the value.
    /// @return the text; empty when memory is short.
    ACE_String_Base<char> getValueAsString() const noexcept;

    /// Renders the value as wide text.
    /// @param[out] aOut is replaced by the text, each byte as one wide character; by the very
    ///        string for a WString. Unchanged or empty when memory is short.
    void getValueAsString(ACE_String_Base<wchar_t>& aOut) const noexcept;
    /// @}

    /// @name Text of a known kind
    /// @{

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
    /// @param aText the text; it may be the held string.
    /// @retval 0 the text was taken, or is empty.
    /// @retval -1 the text is no value of the kind, the kind is none or Blob, or memory is short:
    ///         the value stays. Or a field of a date is out of range.
    long setValueFromString(const ACE_String_Base<char>& aText) noexcept;
    long setValueFromString(const ACE_String_Base<wchar_t>& aText) noexcept;
    /// @}

    /// The parser of numbers and dates behind both forms of `setValueFromString`. There are two:
    /// for `<ACE_String_Base<char>, char>` and for `<ACE_String_Base<wchar_t>, wchar_t>`.
    /// @param aText the text.
    /// @retval 0 the text was taken.
    /// @retval -1 the text is no value of the kind, or a field of a date is out of range.
    /// @retval 1 this is neither a number nor a date; nothing is changed.
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
    /// @param aText the text.
    void setTypeAndValue(const ACE_String_Base<char>& aText) noexcept;

    /// Writes the type's name and the value's text to the log, in three entries at LM_ERROR,
    /// whatever the debug level. ACE cuts a text of more than some 4000 characters.
    void dump() const noexcept;

private:
    // Bodies are in FlexVarInline.h, or in the library. What is in the library and not OSX_HIDDEN
    // is called from programs, by what is inline.

    /// The list of the kinds; everything that differs between them follows from it.
    struct OSX_HIDDEN Kinds;
    /// Reads texts; in FlexVarParsing.cpp.
    struct OSX_HIDDEN Parser;

    /// The value: one of the inline kinds or the owning pointer. What a kind leaves free is zero.
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

    // Which kinds.
    bool holdsObject() const noexcept { return mType >= FlexVar_CString; }
    bool isWord() const noexcept { return mType >= FlexVar_Int && mType <= FlexVar_ULong; }
    bool areWords(const FlexVar& aOther) const noexcept;
    bool areDoubles(const FlexVar& aOther) const noexcept;
    bool areCStrings(const FlexVar& aOther) const noexcept;
    bool checkType(Type aType) const noexcept;
    void reportMismatch(const char* aVerb, Type aWanted) const noexcept;

    // The slot.
    void initializeValue() noexcept { mValue.mBits = 0; }
    void forget() noexcept;
    template <class Member>
    void store(Member aValue) noexcept;
    FlexVar word(std::uint32_t aBits) const noexcept;
    template <class Member>
    FlexVar& setInline(Type aType, Member aValue) noexcept;
    void changeType(Type aType) noexcept;
    OSX_HIDDEN static void traceChange(Type aFrom, Type aTo) noexcept;
    template <class Object>
    const Object& heldOrEmpty(Type aType, Object* Slot::* aMember,
                              const Object& aEmpty) const noexcept;
    template <class Member, class Result>
    int copyOut(Type aType, Member Slot::* aMember, Result& aResult) const noexcept;

    // The held object.
    void deleteAllPointersExcept(Type aKeep) noexcept;
    void destroyObject() noexcept;
    void replaceBy(FlexVar& aOther) noexcept;
    void copyObjectOf(const FlexVar& aOther) noexcept;
    FlexVar& assignObjectOf(const FlexVar& aOther) noexcept;
    FlexVar& moveObjectOf(FlexVar& aOther) noexcept;
    OSX_HIDDEN bool keepsObjectFor(const FlexVar& aOther) const noexcept;
    template <class Kind>
    OSX_HIDDEN void constructCopy(const typename Kind::Value& aValue) noexcept;
    template <class Kind>
    OSX_HIDDEN bool setCopy(const typename Kind::Value& aValue) noexcept;
    template <class Kind>
    OSX_HIDDEN FlexVar& setOwned(typename Kind::Value* aValue) noexcept;
    template <class Kind>
    OSX_HIDDEN int copyObjectOut(typename Kind::Value& aValue) const noexcept;

    // Arithmetic, comparison, hash: of the kinds that are not computed inline.
    FlexVar sumWith(const FlexVar& aOther) const noexcept;
    FlexVar differenceWith(const FlexVar& aOther) const noexcept;
    FlexVar productWith(const FlexVar& aOther) const noexcept;
    bool isEqualTo(const FlexVar& aOther) const noexcept;
    unsigned int hashOfOther() const noexcept;
    template <class Operation>
    OSX_HIDDEN FlexVar combinedWith(const FlexVar& aOther, Operation aOperation) const noexcept;
    template <class Operation>
    OSX_HIDDEN FlexVar& changeBy(const FlexVar& aOther, Operation aOperation) noexcept;
    template <class Operation>
    OSX_HIDDEN FlexVar& step(Operation aOperation) noexcept;

    // Text. `setText` tells whether memory sufficed.
    OSX_HIDDEN bool setText(const ACE_String_Base<char>& aText) noexcept;
    OSX_HIDDEN bool setText(const ACE_String_Base<wchar_t>& aText) noexcept;
    template <class Kind>
    OSX_HIDDEN FlexVar& append(const typename Kind::Value& aText) noexcept;

    Type mType;   ///< The kind.
    Slot mValue;  ///< Zero for type none.
};

#include "types/FlexVarInline.h"

#endif
