// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdint>
#include <string>

#include "fuzz/require.h"
#include "types/FlexVar.h"

namespace {

using Narrow = ACE_String_Base<char>;
using Wide = ACE_String_Base<wchar_t>;

constexpr unsigned char kWide = 0x80;
constexpr unsigned char kTypes = 17;

FlexVar start(int aType) {
    switch (aType) {
        case FlexVar::FlexVar_Bool:
            return FlexVar(true);
        case FlexVar::FlexVar_Char:
            return FlexVar('x');
        case FlexVar::FlexVar_UChar:
            return FlexVar(static_cast<unsigned char>(1));
        case FlexVar::FlexVar_Short:
            return FlexVar(static_cast<short>(1));
        case FlexVar::FlexVar_UShort:
            return FlexVar(static_cast<unsigned short>(1));
        case FlexVar::FlexVar_Int:
            return FlexVar(1);
        case FlexVar::FlexVar_UInt:
            return FlexVar(1U);
        case FlexVar::FlexVar_Long:
            return FlexVar(1L);
        case FlexVar::FlexVar_ULong:
            return FlexVar(1UL);
        case FlexVar::FlexVar_Float:
            return FlexVar(1.0F);
        case FlexVar::FlexVar_Double:
            return FlexVar(1.0);
        case FlexVar::FlexVar_CString:
            return FlexVar(Narrow("old"));
        case FlexVar::FlexVar_WString:
            return FlexVar(Wide(L"old"));
        case FlexVar::FlexVar_DateTime:
            return FlexVar(ACE_Date_Time(1, 2, 2003));
        case FlexVar::FlexVar_Blob:
            return FlexVar(Blob());
        case FlexVar::FlexVar_ObjectID:
            return FlexVar(ObjectID());
        default:
            return FlexVar();
    }
}

/// A wide character takes up to three bytes, so that any value within Unicode's range comes up.
Wide wideFrom(const std::uint8_t* aData, std::size_t aSize) {
    std::wstring lText;
    for (std::size_t i = 0; i < aSize; ++i) {
        std::uint32_t lCharacter = aData[i];
        if (lCharacter >= 0xF0 && i + 2 < aSize) {
            lCharacter =
                (lCharacter & 0x0FU) << 16 | std::uint32_t(aData[i + 1]) << 8 | aData[i + 2];
            i += 2;
        }
        lText += static_cast<wchar_t>(lCharacter);
    }
    return Wide(lText.data(), lText.size());
}

long parse(FlexVar& aVar, bool aIsWide, const std::uint8_t* aData, std::size_t aSize) {
    if (aIsWide) {
        return aVar.setValueFromString(wideFrom(aData, aSize));
    }
    return aVar.setValueFromString(Narrow(reinterpret_cast<const char*>(aData), aSize));
}

/// Whether the text of what a text gave can be read again: a Char's is no number, a date's columns
/// are read in base 0, and a Blob takes no text.
bool isReadBack(const FlexVar& aVar) {
    return aVar.getType() > FlexVar::FlexVar_Char && !aVar.isDate() &&
           aVar.getType() != FlexVar::FlexVar_Blob;
}

}  // namespace

// The first byte chooses the type and the width, the rest is the text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    if (aSize == 0) {
        return 0;
    }
    FlexVar lVar = start((aData[0] & ~kWide) % kTypes);
    const FlexVar::Type lType = lVar.getType();
    const FlexVar lOld(lVar);
    const long lResult = parse(lVar, (aData[0] & kWide) != 0, aData + 1, aSize - 1);

    require(lVar.getType() == lType);
    require(lResult == 0 || lResult == -1);
    require(lResult == 0 || lVar.isDate() || lVar == lOld || lType == FlexVar::FlexVar_Blob);
    Wide lWideText;
    lVar.getValueAsString(lWideText);
    const Narrow lText = lVar.getValueAsString();
    if (lResult == 0 && isReadBack(lVar)) {
        FlexVar lAgain(lVar);
        require(lAgain.setValueFromString(lText) == 0);
        require(lAgain.getValueAsString() == lText);
    }
    lVar.isValidDate();
    lVar.hash();
    return 0;
}
