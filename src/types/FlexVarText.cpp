// From value to text and from text to value.
#include <langinfo.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cfenv>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>

#include "base/NoCancellation.h"
#include "base/diagnosticLine.h"
#include "base/integerText.h"
#include "types/FlexVar.h"
#include "types/FlexVarKinds.h"
#include "types/heldString.h"

namespace {

using CString = ACE_String_Base<char>;
using WString = ACE_String_Base<wchar_t>;

constexpr std::size_t kTextSize = 1024;
constexpr std::size_t kChunk = 256;
constexpr long kShownBytes = 30;
constexpr std::size_t kUsualLength = 64;  // of a number's text
constexpr std::size_t kLongestInteger = sizeof "-2147483648" - 1;
constexpr int kDecimals = 6;  // of "%f"
constexpr std::size_t kLongestDouble = DBL_MAX_10_EXP + sizeof "-1." + kDecimals;

// Narrow and wide characters.

char narrowed(wchar_t aCharacter) noexcept {
    return static_cast<char>(static_cast<unsigned char>(aCharacter));
}
char converted(char, char aCharacter) noexcept {
    return aCharacter;
}
char converted(char, wchar_t aCharacter) noexcept {
    return narrowed(aCharacter);
}
wchar_t converted(wchar_t, char aCharacter) noexcept {
    return static_cast<wchar_t>(static_cast<unsigned char>(aCharacter));
}

/// Converts a whole text. @return whether memory sufficed; `aOut` is as it was if not.
template <class To, class From>
bool convert(const From* aText, std::size_t aLength, ACE_String_Base<To>& aOut) noexcept {
    ACE_String_Base<To> lText;
    std::array<To, kChunk> lChunk{};
    for (std::size_t lDone = 0; lDone < aLength; lDone += kChunk) {
        const std::size_t lCount = std::min(kChunk, aLength - lDone);
        for (std::size_t lIndex = 0; lIndex < lCount; ++lIndex) {
            lChunk[lIndex] = converted(To(), aText[lDone + lIndex]);
        }
        lText.append(lChunk.data(), lCount);
    }
    if (lText.length() != aLength) {
        return false;
    }
    aOut.swap(lText);
    return true;
}

/// @return the text in the wanted width, put into `aRoom` if it has to be converted; null when
///         memory is short.
template <class Character>
const ACE_String_Base<Character>* asText(const ACE_String_Base<Character>& aText,
                                         ACE_String_Base<Character>&) noexcept {
    return &aText;
}
template <class To, class From>
const ACE_String_Base<To>* asText(const ACE_String_Base<From>& aText,
                                  ACE_String_Base<To>& aRoom) noexcept {
    return convert(aText.fast_rep(), aText.length(), aRoom) ? &aRoom : nullptr;
}

// Rendering.

/// A text that is put together in a bounded buffer.
class Text {
public:
    Text() noexcept { mText[0] = '\0'; }

    __attribute__((format(printf, 2, 3))) Text& add(const char* aFormat, ...) noexcept {
        va_list lArguments;
        va_start(lArguments, aFormat);
        const int lCount =
            std::vsnprintf(&mText[mLength], mText.size() - mLength, aFormat, lArguments);
        va_end(lArguments);
        mLength =
            std::min(mText.size() - 1, mLength + static_cast<std::size_t>(std::max(0, lCount)));
        return *this;
    }
    void copyTo(CString& aOut) const noexcept { aOut.set(mText.data(), mLength, true); }

private:
    std::array<char, kTextSize> mText;
    std::size_t mLength = 0;
};

/// Numbers are printed as 32 signed bits, the unsigned kinds too.
int shown(long aNumber) noexcept {
    return static_cast<int>(aNumber);
}

template <class Integer>
void render(Integer aValue, CString& aOut) noexcept {
    static_assert(std::is_integral_v<Integer>, "other kinds have an overload");
    std::array<char, kLongestInteger> lText;
    const auto lEnd =
        std::to_chars(lText.begin(), lText.end(), static_cast<std::int32_t>(aValue)).ptr;
    aOut.set(lText.data(), static_cast<std::size_t>(lEnd - lText.data()), true);
}
void render(bool aValue, CString& aOut) noexcept {
    aOut = aValue ? FlexVar::mCStrBoolTrue : FlexVar::mCStrBoolFalse;
}
void render(char aValue, CString& aOut) noexcept {
    aOut.set(&aValue, aValue == '\0' ? 0 : 1, true);
}
/// @return the decimal point of the thread's language; 0 if it takes more than one byte.
char decimalPoint() noexcept {
    const char* const lPoint = nl_langinfo(RADIXCHAR);
    return lPoint[0] != '\0' && lPoint[1] == '\0' ? lPoint[0] : '\0';
}

/// `to_chars` always rounds to nearest and writes a point; then "%f" gives the same, in twice the
/// time or more.
void render(double aValue, CString& aOut) noexcept {
    const char lPoint = decimalPoint();
    if (lPoint == '\0' || std::fegetround() != FE_TONEAREST) {
        Text().add("%f", aValue).copyTo(aOut);
        return;
    }
    std::array<char, kLongestDouble> lText;
    char* const lEnd =
        std::to_chars(lText.begin(), lText.end(), aValue, std::chars_format::fixed, kDecimals).ptr;
    if (std::isfinite(aValue)) {
        *(lEnd - kDecimals - 1) = lPoint;
    }
    aOut.set(lText.data(), static_cast<std::size_t>(lEnd - lText.data()), true);
}
void render(float aValue, CString& aOut) noexcept {
    render(static_cast<double>(aValue), aOut);
}
void render(const CString& aValue, CString& aOut) noexcept {
    aOut = aValue;
}
void render(const WString& aValue, CString& aOut) noexcept {
    const wchar_t* const lText = aValue.fast_rep();
    std::size_t lLength = 0;
    while (lLength < aValue.length() && narrowed(lText[lLength]) != '\0') {
        ++lLength;
    }
    convert(lText, lLength, aOut);
}
void render(const ACE_Date_Time& aValue, CString& aOut) noexcept {
    Text()
        .add("%2.2d-%2.2d-%4.4d ", shown(aValue.day()), shown(aValue.month()), shown(aValue.year()))
        .add("%2.2d:%2.2d:%2.2d ", shown(aValue.hour()), shown(aValue.minute()),
             shown(aValue.second()))
        .add("%6.6d", shown(aValue.microsec()))
        .copyTo(aOut);
}
void render(const Blob& aValue, CString& aOut) noexcept {
    Text lText;
    lText.add("Size %d [", shown(aValue.getSize()));
    const long lShown = aValue.getData() == nullptr ? 0 : std::min(kShownBytes, aValue.getSize());
    for (long lIndex = 0; lIndex < lShown; ++lIndex) {
        lText.add("0x%x ", static_cast<unsigned int>(aValue.getData()[lIndex]));
    }
    lText.add(aValue.getSize() >= kShownBytes ? "...]" : "]").copyTo(aOut);
}
void render(const ObjectID& aValue, CString& aOut) noexcept {
    aOut = aValue.toString();
}

// Parsing.

template <class Character>
std::basic_string_view<Character> view(const ACE_String_Base<Character>& aText) noexcept {
    return {aText.fast_rep(), aText.length()};
}

#ifdef __i386__  // The language's library multiplies in the x87 unit, and so rounds twice.
constexpr bool kReadsAsTheSystem = false;
#else
constexpr bool kReadsAsTheSystem = true;
#endif

/// `from_chars` reads a decimal number as `strtod` does in the usual language and rounding, in half
/// of the time. What it does not read to the end, or makes no number of, is left to that.
/// @return whether the whole text was such a number.
bool readPlainDouble(std::string_view aText, double& aNumber) noexcept {
    if (!kReadsAsTheSystem || decimalPoint() != '.' || std::fegetround() != FE_TONEAREST) {
        return false;
    }
    const char* const lEnd = aText.data() + aText.size();
    const auto lRead = std::from_chars(aText.data(), lEnd, aNumber);
    return lRead.ec == std::errc() && lRead.ptr == lEnd && std::isfinite(aNumber);
}

double toDouble(const char* aText, char** aEnd) noexcept {
    return std::strtod(aText, aEnd);
}
double toDouble(const wchar_t* aText, wchar_t** aEnd) noexcept {
    return std::wcstod(aText, aEnd);
}

/// A text with the terminator that the system's conversion wants; a text that was lent to its
/// string may have none.
template <class Character>
class Terminated {
public:
    explicit Terminated(std::basic_string_view<Character> aText) noexcept {
        if (aText.size() >= mNear.size()) {
            mFar.reset(new (std::nothrow) Character[aText.size() + 1]);
        }
        mText = aText.size() < mNear.size() ? mNear.data() : mFar.get();
        if (mText == nullptr) {
            errno = ENOMEM;
        } else {
            mText[aText.copy(mText, aText.size())] = 0;
        }
    }
    /// @return null when memory is short.
    const Character* get() const noexcept { return mText; }

private:
    std::array<Character, kUsualLength> mNear;
    std::unique_ptr<Character[]> mFar;
    Character* mText = nullptr;
};

/// @return whether the whole text was a number.
template <class Character, class Number>
bool parseNumber(const ACE_String_Base<Character>& aText, Number& aNumber) noexcept {
    if constexpr (std::is_integral_v<Number>) {
        const osx::IntegerText lRead = osx::readInteger(view(aText), osx::kAnyBase);
        aNumber = static_cast<Number>(lRead.number);
        return lRead.length == aText.length();
    } else {
        if constexpr (std::is_same_v<Character, char>) {
            double lPlain = 0;
            if (readPlainDouble(view(aText), lPlain)) {
                aNumber = static_cast<Number>(lPlain);
                return true;
            }
        }
        const Terminated<Character> lText(view(aText));
        Character* lEnd = nullptr;
        aNumber =
            lText.get() == nullptr ? Number(0) : static_cast<Number>(toDouble(lText.get(), &lEnd));
        return lEnd != nullptr && lEnd == lText.get() + aText.length();
    }
}

/// One field of a date's text: where it stands, what it may be, how it is stored.
struct DateField {
    std::size_t start;
    std::size_t length;
    long lowest;
    long highest;
    void (ACE_Date_Time::*store)(long);
};

constexpr long kAnyYear = std::numeric_limits<std::int32_t>::max();
constexpr std::array<DateField, 7> kDateFields = {{
    {0, 2, 1, 31, &ACE_Date_Time::day},
    {3, 2, 1, 12, &ACE_Date_Time::month},
    {6, 4, -kAnyYear, kAnyYear, &ACE_Date_Time::year},
    {11, 2, 0, 23, &ACE_Date_Time::hour},
    {14, 2, 0, 59, &ACE_Date_Time::minute},
    {17, 2, 0, 59, &ACE_Date_Time::second},
    {20, 6, 0, 999999, &ACE_Date_Time::microsec},
}};

/// @return the number at the front of the field's columns; 0 if there is none or they are missing.
template <class Character>
long numberIn(const DateField& aField, const ACE_String_Base<Character>& aText) noexcept {
    const auto lText = view(aText);
    const std::size_t lStart = std::min(aField.start, lText.size());
    return osx::readInteger(lText.substr(lStart, aField.length), osx::kAnyBase).number;
}

const CString& wordFor(bool aValue, char) noexcept {
    return aValue ? FlexVar::mCStrBoolTrue : FlexVar::mCStrBoolFalse;
}
const WString& wordFor(bool aValue, wchar_t) noexcept {
    return aValue ? FlexVar::mWStrBoolTrue : FlexVar::mWStrBoolFalse;
}

/// @return what stands between a position and the next double quote or the end.
std::string_view upToQuote(std::string_view aText, std::size_t aStart) noexcept {
    return aText.substr(aStart, aText.find('"', aStart) - aStart);
}

}  // namespace

void FlexVar::getValueAsString(ACE_String_Base<char>& aOut) const noexcept {
    if (mType == FlexVar_CString) {  // the kinds most used come first
        render(Kinds::CString::value(mValue), aOut);
        return;
    }
    if (isWord()) {
        render(mValue.mInt, aOut);
        return;
    }
    const bool lIsOfAKind = Kinds::visit(mType, false, [&](auto aKind) {
        render(aKind.value(mValue), aOut);
        return true;
    });
    if (!lIsOfAKind) {
        aOut = mEmptyCString;
    }
}

/// The kinds most used are written where they stay: digits that were just written are not to be
/// read at once, for a copy, as fast as they are to be written.
ACE_String_Base<char> FlexVar::getValueAsString() const noexcept {
    ACE_String_Base<char> lText;
    if (mType == FlexVar_CString) {
        const CString& lValue = Kinds::CString::value(mValue);
        if (osx::giveRoom(lText, lValue.length() + 1)) {
            osx::fill(lText, lValue.fast_rep(), lValue.length());
        }
    } else if (isWord()) {
        if (osx::giveRoom(lText, kLongestInteger + 1)) {
            osx::fill(lText, [this](char* aRoom) {
                return std::to_chars(aRoom, aRoom + kLongestInteger, mValue.mInt).ptr;
            });
        }
    } else {
        getValueAsString(lText);
    }
    return lText;
}

void FlexVar::getValueAsString(ACE_String_Base<wchar_t>& aOut) const noexcept {
    if (mType == FlexVar_WString) {
        aOut = Kinds::WString::value(mValue);
        return;
    }
    ACE_String_Base<char> lText;
    getValueAsString(lText);
    convert(lText.fast_rep(), lText.length(), aOut);
}

template <class Character>
long FlexVar::setDateFromString(const ACE_String_Base<Character>& aText) noexcept {
    ACE_Date_Time lDate(0);
    long lResult = 0;
    for (const DateField& lField : kDateFields) {
        const long lNumber = numberIn(lField, aText);
        if (lNumber >= lField.lowest && lNumber <= lField.highest) {
            (lDate.*lField.store)(lNumber);
        } else {
            lResult = -1;
        }
    }
    setDateTime(lDate);
    return lResult;
}

template <class String, class Character>
long FlexVar::setValueFromStringCommon(const String& aText) noexcept {
    constexpr long kNeither = 1;
    if (isDate()) {
        return setDateFromString<Character>(aText);
    }
    return Kinds::visit(mType, kNeither, [&](auto aKind) {
        using Kind = decltype(aKind);
        if constexpr (Kind::kIsNumeric) {
            typename Kind::Value lNumber = 0;
            if (!parseNumber(aText, lNumber)) {
                return -1L;
            }
            Kind::member(mValue) = lNumber;
            return 0L;
        } else {
            return kNeither;
        }
    });
}
template OSX_EXPORT long FlexVar::setValueFromStringCommon<ACE_String_Base<char>, char>(
    const ACE_String_Base<char>&) noexcept;
template OSX_EXPORT long FlexVar::setValueFromStringCommon<ACE_String_Base<wchar_t>, wchar_t>(
    const ACE_String_Base<wchar_t>&) noexcept;

template <class Character>
long FlexVar::setBoolFromString(const ACE_String_Base<Character>& aText) noexcept {
    for (const bool lValue : {false, true}) {
        if (aText == wordFor(lValue, Character())) {
            setBool(lValue);
            return 0;
        }
    }
    return -1;
}

template <class Kind, class Character>
long FlexVar::setTextFromString(const ACE_String_Base<Character>& aText) noexcept {
    typename Kind::Value lRoom;
    const typename Kind::Value* const lText = asText(aText, lRoom);
    return lText != nullptr && setText(*lText) ? 0 : -1;
}

template <class Character>
long FlexVar::setObjectIDFromString(const ACE_String_Base<Character>& aText) noexcept {
    ACE_String_Base<char> lRoom;
    const ACE_String_Base<char>* const lText = asText(aText, lRoom);
    if (lText == nullptr) {
        return -1;
    }
    ObjectID lIdentifier;
    lIdentifier.setFromString(*lText);
    setObjectID(lIdentifier);
    return 0;
}

template <class Character>
long FlexVar::setValueFromAnyString(const ACE_String_Base<Character>& aText) noexcept {
    if (aText.empty()) {
        return 0;
    }
    switch (mType) {
        case FlexVar_Bool:
            return setBoolFromString(aText);
        case FlexVar_CString:
            return setTextFromString<Kinds::CString>(aText);
        case FlexVar_WString:
            return setTextFromString<Kinds::WString>(aText);
        case FlexVar_ObjectID:
            return setObjectIDFromString(aText);
        default:
            break;
    }
    const long lResult = setValueFromStringCommon<ACE_String_Base<Character>, Character>(aText);
    return lResult == 0 ? 0 : -1;
}

long FlexVar::setValueFromString(const ACE_String_Base<char>& aText) noexcept {
    return setValueFromAnyString(aText);
}

long FlexVar::setValueFromString(const ACE_String_Base<wchar_t>& aText) noexcept {
    return setValueFromAnyString(aText);
}

void FlexVar::setTypeAndValue(const ACE_String_Base<char>& aText) noexcept {
    constexpr std::string_view kWideMark = "L\"";
    const std::string_view lText = view(aText);
    const auto lHas = [&](std::string_view aMark) { return lText.find(aMark) != lText.npos; };

    if (lHas(kWideMark)) {
        setQuoted<Kinds::WString>(upToQuote(lText, lText.find(kWideMark) + kWideMark.size()));
    } else if (lHas("\"")) {
        setQuoted<Kinds::CString>(upToQuote(lText, lText.find('"') + 1));
    } else if (lHas(".")) {
        const Terminated<char> lNumber(lText);
        if (lNumber.get() != nullptr) {
            setDouble(std::strtod(lNumber.get(), nullptr));
        }
    } else if (lHas("true") || lHas("false")) {
        setBool(lHas("true"));
    } else {
        setLong(osx::readInteger(lText, osx::kDecimal).number);
    }
}

template <class Kind>
void FlexVar::setQuoted(std::string_view aText) noexcept {
    typename Kind::Value lText;
    if (convert(aText.data(), aText.size(), lText)) {
        setText(lText);
    }
}

void FlexVar::dump() const noexcept {
    const osx::NoCancellation lGuard;
    const osx::DiagnosticLine lLine(osx::kFlexVarModule);
    lLine.failure(LM_ERROR, "FlexVar::dump: mType[%s] ", Kinds::name(mType));
    lLine.failure(LM_ERROR, "%s ", getValueAsString().c_str());
    lLine.failure(LM_ERROR, "\n");
}
