// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "types/FlexVarSamples.h"

#include <cstring>

namespace test {

namespace {

unsigned char gBytes[] = {1, 0xAB, 3};
unsigned char gOtherBytes[] = {2, 0xAB, 3};

ObjectID identifier(const char* aText) {
    ObjectID lIdentifier;
    lIdentifier.setFromString(ACE_String_Base<char>(aText));
    return lIdentifier;
}

bool isSameBlob(const Blob* aLeft, const Blob* aRight) {
    if (aLeft == nullptr || aRight == nullptr) {
        return aLeft == aRight;
    }
    return aLeft->getSize() == aRight->getSize() &&
           std::memcmp(aLeft->getData(), aRight->getData(),
                       static_cast<std::size_t>(aLeft->getSize())) == 0;
}

template <class Value>
std::function<int(const FlexVar&)> copyOutBy(int (FlexVar::*aGetter)(Value&) const noexcept) {
    return [aGetter](const FlexVar& aVar) {
        Value lValue = Value();
        return (aVar.*aGetter)(lValue);
    };
}

template <class Value, class Setter, class Result>
Sample sample(FlexVar::Type aType, const char* aName, const char* aFallback, Value aValue,
              Value aGreater, FlexVar& (FlexVar::*aSetter)(Setter) noexcept,
              Result (FlexVar::*aGetter)() const noexcept, std::remove_reference_t<Result> aDefault,
              std::function<int(const FlexVar&)> aCopyOut) {
    return {aType,
            aName,
            FlexVar(aValue),
            FlexVar(aGreater),
            aFallback,
            [=](FlexVar& aVar) { (aVar.*aSetter)(aValue); },
            [=](const FlexVar& aVar) { return (aVar.*aGetter)() == aDefault; },
            std::move(aCopyOut)};
}

Sample none() {
    return {FlexVar::FlexVar_NoType, "NoType", FlexVar(), FlexVar(), "", nullptr, nullptr, nullptr};
}

Sample dateTime() {
    const ACE_Date_Time lDate(31, 12, 2008, 23, 59, 58, 123456, 3);
    return {
        FlexVar::FlexVar_DateTime,
        "DateTime",
        FlexVar(lDate),
        FlexVar(ACE_Date_Time(1, 1, 2009)),
        "EmptyACE_Date_Time",
        [=](FlexVar& aVar) { aVar.setDateTime(lDate); },
        [](const FlexVar& aVar) { return &aVar.getDateTime() == &FlexVar::mEmptyACE_Date_Time; },
        [](const FlexVar& aVar) {
            ACE_Date_Time lOut;
            return aVar.getDateTime(lOut);
        }};
}

Sample blob() {
    const Blob lBlob(gBytes, sizeof gBytes, false);
    return {FlexVar::FlexVar_Blob,
            "Blob",
            FlexVar(lBlob),
            FlexVar(Blob(gOtherBytes, sizeof gOtherBytes, false)),
            "",
            [=](FlexVar& aVar) { aVar.setBlob(lBlob); },
            [](const FlexVar& aVar) { return aVar.getBlob() == nullptr; },
            nullptr};
}

std::vector<Sample> allSamples() {
    using V = FlexVar;
    using Narrow = ACE_String_Base<char>;
    using Wide = ACE_String_Base<wchar_t>;
    const ObjectID lFirst = identifier("01020304-0506-1708-090a-0b0c0d0e0f10");
    const ObjectID lSecond = identifier("11020304-0506-1708-090a-0b0c0d0e0f10");
    return {
        none(),
        sample(V::FlexVar_Bool, "Bool", "false", true, true, &V::setBool, &V::getBool, false,
               copyOutBy<bool>(&V::getBool)),
        sample(V::FlexVar_Char, "Char", "0", 'a', 'b', &V::setChar, &V::getChar, '\0',
               copyOutBy<char>(&V::getChar)),
        sample<unsigned char>(V::FlexVar_UChar, "UChar", "0", 200, 201, &V::setUChar, &V::getUChar,
                              0, copyOutBy<unsigned char>(&V::getUChar)),
        sample<short>(V::FlexVar_Short, "Short", "0", -300, 300, &V::setShort, &V::getShort, 0,
                      copyOutBy<short>(&V::getShort)),
        sample<unsigned short>(V::FlexVar_UShort, "UShort", "0", 60000, 60001, &V::setUShort,
                               &V::getUShort, 0, copyOutBy<unsigned short>(&V::getUShort)),
        sample(V::FlexVar_Int, "Int", "0", -70000, 70000, &V::setInt, &V::getInt, 0,
               copyOutBy<int>(&V::getInt)),
        sample(V::FlexVar_UInt, "UInt", "0", 4000000000U, 4000000001U, &V::setUInt, &V::getUInt, 0U,
               copyOutBy<unsigned int>(&V::getUInt)),
        sample(V::FlexVar_Long, "Long", "0", -80000L, 80000L, &V::setLong, &V::getLong, 0L,
               copyOutBy<long>(&V::getLong)),
        sample(V::FlexVar_ULong, "ULong", "0", 4100000000UL, 4100000001UL, &V::setULong,
               &V::getULong, 0UL, copyOutBy<unsigned long>(&V::getULong)),
        sample(V::FlexVar_Float, "Float", "0", -1.5F, 1.5F, &V::setFloat, &V::getFloat, 0.0F,
               copyOutBy<float>(&V::getFloat)),
        sample(V::FlexVar_Double, "Double", "0", -2.25, 2.25, &V::setDouble, &V::getDouble, 0.0,
               copyOutBy<double>(&V::getDouble)),
        sample<Narrow, const Narrow&, const Narrow&>(
            V::FlexVar_CString, "CString", "EmptyCString", Narrow("abc"), Narrow("abd"),
            &V::setCString, &V::getCString, Narrow(), copyOutBy<Narrow>(&V::getCString)),
        sample<Wide, const Wide&, const Wide&>(
            V::FlexVar_WString, "WString", "EmptyWString", Wide(L"wide"), Wide(L"wife"),
            &V::setWString, &V::getWString, Wide(), copyOutBy<Wide>(&V::getWString)),
        dateTime(),
        blob(),
        sample<ObjectID, const ObjectID&, const ObjectID&>(
            V::FlexVar_ObjectID, "ObjectID", "", lFirst, lSecond, &V::setObjectID, &V::getObjectID,
            ObjectID(), copyOutBy<ObjectID>(&V::getObjectID)),
    };
}

}  // namespace

const std::vector<Sample>& samples() {
    static const std::vector<Sample> lSamples = allSamples();
    return lSamples;
}

ACE_String_Base<char> narrow(const std::string& aText) {
    return ACE_String_Base<char>(aText.data(), aText.size());
}

ACE_String_Base<wchar_t> wide(const std::wstring& aText) {
    return ACE_String_Base<wchar_t>(aText.data(), aText.size());
}

bool isSame(const FlexVar& aLeft, const FlexVar& aRight) {
    if (aLeft.getType() != aRight.getType()) {
        return false;
    }
    if (aLeft.getType() == FlexVar::FlexVar_Blob) {
        return isSameBlob(aLeft.getBlob(), aRight.getBlob());
    }
    return aLeft == aRight;
}

}  // namespace test
