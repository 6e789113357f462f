// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The variant: construction, assignment, setters, getters, hash. What is computed in the header is
// in FlexVarInline.h. What differs between the kinds is chosen by overloads, which `Kinds::visit`
// reaches; so no list of the kinds stands here.
#include "types/FlexVar.h"

#include <cstddef>
#include <cstdint>

#include "base/NoCancellation.h"
#include "base/assertion.h"
#include "base/diagnosticLine.h"
#include "types/FlexVarKinds.h"
#include "types/heldObject.h"

using osx::DiagnosticLine;
using osx::kFlexVarModule;

const ACE_String_Base<char> FlexVar::mEmptyCString;
const ACE_String_Base<wchar_t> FlexVar::mEmptyWString;
const ACE_Date_Time FlexVar::mEmptyACE_Date_Time;
const ObjectID FlexVar::mEmptyObjectID;
// Printed when the library is loaded, so that no later print, of any thread, writes to it.
[[maybe_unused]] static const ACE_CString& gTextOfEmpty = FlexVar::mEmptyObjectID.toString();
const ACE_String_Base<char> FlexVar::mCStrBoolTrue("true");
const ACE_String_Base<char> FlexVar::mCStrBoolFalse("false");
const ACE_String_Base<wchar_t> FlexVar::mWStrBoolTrue(L"true");
const ACE_String_Base<wchar_t> FlexVar::mWStrBoolFalse(L"false");
// Not made at its first use: a child that is forked meanwhile could not exit.
static const Blob kEmptyBlob;

namespace osx {

template <>
OSX_HIDDEN const ACE_String_Base<char>& emptyValue() noexcept {
    return FlexVar::mEmptyCString;
}
template <>
OSX_HIDDEN const ACE_String_Base<wchar_t>& emptyValue() noexcept {
    return FlexVar::mEmptyWString;
}
template <>
OSX_HIDDEN const ACE_Date_Time& emptyValue() noexcept {
    return FlexVar::mEmptyACE_Date_Time;
}
template <>
OSX_HIDDEN const ObjectID& emptyValue() noexcept {
    return FlexVar::mEmptyObjectID;
}
template <>
OSX_HIDDEN const Blob& emptyValue() noexcept {
    return kEmptyBlob;
}

}  // namespace osx

namespace {

constexpr char kNoTypeName[] = "No FlexVar type";
constexpr std::size_t kPrefixLength = sizeof "FlexVar_" - 1;  // what the lines leave out

template <class Value>
unsigned int hashOf(Value aValue) noexcept {
    static_assert(std::is_integral_v<Value>, "an integer, whose sign is extended");
    return static_cast<unsigned int>(aValue);
}
unsigned int hashOf(bool) noexcept {
    return 0;
}
/// The low 32 bits of `ACE::hash_pjw`, which are alike in both word sizes, without its branch for
/// each byte: it clears the highest four bits then, which here the next shift drops.
unsigned int hashOfBytes(const char* aBytes, std::size_t aCount) noexcept {
    constexpr std::uint32_t kResult = 0x0FFFFFFF;
    std::uint32_t lHash = 0;
    for (std::size_t lIndex = 0; lIndex < aCount; ++lIndex) {
        const std::uint32_t lSum = (lHash << 4) + static_cast<std::uint32_t>(aBytes[lIndex] * 13);
        lHash = lSum ^ (lSum >> 24 & 0xF0);
    }
    return lHash & kResult;
}
template <class Character>
unsigned int hashOf(const ACE_String_Base<Character>& aValue) noexcept {
    return hashOfBytes(reinterpret_cast<const char*>(aValue.fast_rep()),
                       aValue.length() * sizeof(Character));
}
unsigned int hashOf(const ACE_Date_Time& aValue) noexcept {
    return static_cast<unsigned int>(aValue.minute());
}
unsigned int hashOf(const Blob&) noexcept {
    return 0;
}
unsigned int hashOf(const ObjectID& aValue) noexcept {
    return aValue.hash();
}

}  // namespace

const char* FlexVar::Kinds::name(Type aType) noexcept {
    return visit(aType, kNoTypeName, [](auto aKind) { return aKind.name; });
}

// Construction and assignment.

template <class Kind>
void FlexVar::constructCopy(const typename Kind::Value& aValue) noexcept {
    if (auto lCopy = osx::copyOf(aValue)) {
        mType = Kind::kType;
        Kind::member(mValue) = lCopy.release();
    }
}

FlexVar::FlexVar(const ACE_String_Base<char>& aValue) noexcept : FlexVar() {
    constructCopy<Kinds::CString>(aValue);
}
FlexVar::FlexVar(const ACE_String_Base<wchar_t>& aValue) noexcept : FlexVar() {
    constructCopy<Kinds::WString>(aValue);
}
FlexVar::FlexVar(const ACE_Date_Time& aValue) noexcept : FlexVar() {
    constructCopy<Kinds::DateTime>(aValue);
}
FlexVar::FlexVar(const Blob& aValue) noexcept : FlexVar() {
    constructCopy<Kinds::BlobKind>(aValue);
}
FlexVar::FlexVar(const ObjectID& aValue) noexcept : FlexVar() {
    constructCopy<Kinds::ObjectIDKind>(aValue);
}

void FlexVar::copyObjectOf(const FlexVar& aOther) noexcept {
    forget();
    if (aOther.mType == FlexVar_CString && aOther.mValue.mCString != nullptr) {
        constructCopy<Kinds::CString>(*aOther.mValue.mCString);
        return;
    }
    Kinds::visit(aOther.mType, [&](auto aKind) {
        using Kind = decltype(aKind);
        if constexpr (Kind::kIsObject) {
            if (Kind::member(aOther.mValue) == nullptr) {
                mType = Kind::kType;
            } else {
                constructCopy<Kind>(*Kind::member(aOther.mValue));
            }
        }
    });
}

/// @return whether the held object can take the other's value: both are of one kind, and each has
///         its object. One that got no memory for it holds null.
bool FlexVar::keepsObjectFor(const FlexVar& aOther) const noexcept {
    return holdsObject() && mType == aOther.mType && mValue.mBits != 0 && aOther.mValue.mBits != 0;
}

FlexVar& FlexVar::assignObjectOf(const FlexVar& aOther) noexcept {
    if (this == &aOther) {
        return *this;
    }
    if (keepsObjectFor(aOther)) {
        Kinds::visit(mType, [&](auto aKind) {
            if constexpr (decltype(aKind)::kIsObject) {
                osx::assign(*aKind.member(mValue), *aKind.member(aOther.mValue));
            }
        });
        return *this;
    }
    FlexVar lCopy(aOther);
    if (lCopy.mType == aOther.mType) {
        replaceBy(lCopy);
    }
    return *this;
}

FlexVar& FlexVar::moveObjectOf(FlexVar& aOther) noexcept {
    if (!keepsObjectFor(aOther)) {
        replaceBy(aOther);
        return *this;
    }
    const bool lTaken = Kinds::visit(mType, false, [&](auto aKind) {
        if constexpr (decltype(aKind)::kIsObject) {
            return osx::take(*aKind.member(mValue), *aKind.member(aOther.mValue));
        }
        return false;
    });
    if (lTaken) {
        aOther.destroyObject();
        aOther.forget();
    }
    return *this;
}

void FlexVar::destroyObject() noexcept {
    if (mType == FlexVar_CString) {  // the kind of most objects comes first
        osx::destroy(mValue.mCString);
        return;
    }
    Kinds::visit(mType, [&](auto aKind) {
        if constexpr (decltype(aKind)::kIsObject) {
            osx::destroy(aKind.member(mValue));
        }
    });
}

// Setters.

void FlexVar::traceChange(Type aFrom, Type aTo) noexcept {
    const osx::NoCancellation lGuard;
    const DiagnosticLine lLine(kFlexVarModule);
    if (aFrom == FlexVar_NoType) {
        lLine.trace(kTraceLevel, "%t FlexVar::dataTypeCanged: Initialized to type [%s]\n",
                    Kinds::name(aTo));
    } else {
        lLine.trace(kTraceLevel, "%t FlexVar::dataTypeCanged: From type [%s], To type [%s]\n",
                    Kinds::name(aFrom), Kinds::name(aTo));
    }
}

bool FlexVar::dataTypeCanged(Type aFrom, Type aTo) const noexcept {
    if (aFrom == aTo) {
        return false;
    }
    if (osx::isTraced(kTraceLevel)) {
        traceChange(aFrom, aTo);
    }
    return true;
}

void FlexVar::changeType(Type aType) noexcept {
    dataTypeCanged(mType, aType);
    deleteAllPointersExcept(FlexVar_NoType);
    mType = aType;
}

/// The copy is made before the old value goes: the argument may lie in it, and memory may be short.
template <class Kind>
bool FlexVar::setCopy(const typename Kind::Value& aValue) noexcept {
    if (mType == Kind::kType && Kind::member(mValue) != nullptr) {
        return osx::assign(*Kind::member(mValue), aValue);
    }
    auto lCopy = osx::copyOf(aValue);
    if (lCopy == nullptr) {
        return false;
    }
    changeType(Kind::kType);
    Kind::member(mValue) = lCopy.release();
    return true;
}

bool FlexVar::setText(const ACE_String_Base<char>& aText) noexcept {
    return setCopy<Kinds::CString>(aText);
}
bool FlexVar::setText(const ACE_String_Base<wchar_t>& aText) noexcept {
    return setCopy<Kinds::WString>(aText);
}

FlexVar& FlexVar::setCString(const ACE_String_Base<char>& aValue) noexcept {
    setText(aValue);
    return *this;
}
FlexVar& FlexVar::setWString(const ACE_String_Base<wchar_t>& aValue) noexcept {
    setText(aValue);
    return *this;
}
FlexVar& FlexVar::setDateTime(const ACE_Date_Time& aValue) noexcept {
    setCopy<Kinds::DateTime>(aValue);
    return *this;
}
FlexVar& FlexVar::setBlob(const Blob& aValue) noexcept {
    setCopy<Kinds::BlobKind>(aValue);
    return *this;
}
FlexVar& FlexVar::setObjectID(const ObjectID& aValue) noexcept {
    setCopy<Kinds::ObjectIDKind>(aValue);
    return *this;
}

template <class Kind>
FlexVar& FlexVar::setOwned(typename Kind::Value* aValue) noexcept {
    if (aValue == nullptr) {
        const osx::NoCancellation lGuard;
        DiagnosticLine(kFlexVarModule)
            .failure(LM_ERROR, "FlexVar::set%s: Null pointer for aValue!\n",
                     Kinds::name(Kind::kType) + kPrefixLength);
        osx::reportFailedAssertion("false", kFlexVarModule);
    }
    if (mType != Kind::kType || Kind::member(mValue) != aValue) {
        changeType(Kind::kType);
        Kind::member(mValue) = aValue;
    }
    return *this;
}

FlexVar& FlexVar::setCString(ACE_String_Base<char>* aValue) noexcept {
    return setOwned<Kinds::CString>(aValue);
}
FlexVar& FlexVar::setWString(ACE_String_Base<wchar_t>* aValue) noexcept {
    return setOwned<Kinds::WString>(aValue);
}
FlexVar& FlexVar::setDateTime(ACE_Date_Time* aValue) noexcept {
    return setOwned<Kinds::DateTime>(aValue);
}
FlexVar& FlexVar::setBlob(Blob* aValue) noexcept {
    return setOwned<Kinds::BlobKind>(aValue);
}
FlexVar& FlexVar::setObjectID(ObjectID* aValue) noexcept {
    return setOwned<Kinds::ObjectIDKind>(aValue);
}

// Getters.

void FlexVar::reportMismatch(const char* aVerb, Type aWanted) const noexcept {
    if (!osx::isTraced(kTraceLevel)) {
        return;
    }
    const osx::NoCancellation lGuard;
    const DiagnosticLine lLine(kFlexVarModule);
    const char* const lName = Kinds::name(aWanted) + kPrefixLength;
    constexpr const char* kNone = nullptr;
    const char* const lFallback =
        Kinds::visit(aWanted, kNone, [](auto aKind) { return aKind.fallback; });
    if (lFallback != nullptr) {
        lLine.trace(kTraceLevel,
                    "%t FlexVar::%s%s: It is only allowed to call this method if it is a %s, "
                    "returning %s\n",
                    aVerb, lName, lName, lFallback);
    } else {
        lLine.trace(kTraceLevel,
                    "%t FlexVar::%s%s: It is only allowed to call this method if it is a %s, "
                    "so do a check before you call this method!\nType = %d\n",
                    aVerb, lName, lName, mType);
    }
}

// Programs that were built with the headers of 1.1.0 call these, which are inline now. Their
// addresses, taken here, have the library keep them.
template <class Result>
using Getter = Result (FlexVar::*)() const noexcept;
[[gnu::used]] const Getter<const ACE_String_Base<char>&> kGetCString = &FlexVar::getCString;
[[gnu::used]] const Getter<const ACE_String_Base<wchar_t>&> kGetWString = &FlexVar::getWString;
[[gnu::used]] const Getter<const ACE_Date_Time&> kGetDateTime = &FlexVar::getDateTime;
[[gnu::used]] const Getter<const ObjectID&> kGetObjectID = &FlexVar::getObjectID;
[[gnu::used]] const Getter<Blob*> kGetBlob = &FlexVar::getBlob;

template <class Kind>
int FlexVar::copyObjectOut(typename Kind::Value& aValue) const noexcept {
    if (mType != Kind::kType) {
        return -1;
    }
    aValue = Kind::value(mValue);
    return 0;
}

int FlexVar::getCString(ACE_String_Base<char>& aValue) const noexcept {
    return copyObjectOut<Kinds::CString>(aValue);
}
int FlexVar::getWString(ACE_String_Base<wchar_t>& aValue) const noexcept {
    return copyObjectOut<Kinds::WString>(aValue);
}
int FlexVar::getDateTime(ACE_Date_Time& aValue) const noexcept {
    return copyObjectOut<Kinds::DateTime>(aValue);
}
int FlexVar::getObjectID(ObjectID& aValue) const noexcept {
    return copyObjectOut<Kinds::ObjectIDKind>(aValue);
}

Blob* FlexVar::releaseBlob() noexcept {
    if (mType != FlexVar_Blob) {
        reportMismatch("release", FlexVar_Blob);
        return nullptr;
    }
    Blob* const lBlob = mValue.mBlob;
    forget();
    return lBlob;
}

// Queries.

ACE_String_Base<char> FlexVar::getTypeName() const noexcept {
    return getTypeName(mType);
}

ACE_String_Base<char> FlexVar::getTypeName(Type aType) noexcept {
    ACE_String_Base<char> lName;
    lName = Kinds::name(aType);
    return lName;
}

unsigned int FlexVar::hashOfOther() const noexcept {
    if (mType == FlexVar_CString) {  // the kind of most keys of tables comes first
        return hashOf(Kinds::CString::value(mValue));
    }
    return Kinds::visit(mType, 0U, [&](auto aKind) {
        const auto& lValue = aKind.value(mValue);
        if constexpr (std::is_floating_point_v<typename decltype(aKind)::Value>) {
            return FlexVar(static_cast<double>(lValue)).hash();
        } else {
            return hashOf(lValue);
        }
    });
}
