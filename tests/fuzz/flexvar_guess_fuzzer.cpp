// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdint>

#include "fuzz/require.h"
#include "types/FlexVar.h"

// Any text has a type and a value; the same text gives the same, also from the string held.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    const ACE_String_Base<char> lText(reinterpret_cast<const char*>(aData), aSize);
    FlexVar lVar;
    lVar.setTypeAndValue(lText);
    const FlexVar::Type lType = lVar.getType();
    require(lType == FlexVar::FlexVar_Bool || lType == FlexVar::FlexVar_Long ||
            lType == FlexVar::FlexVar_Double || lVar.isString());
    FlexVar lAgain(lText);
    lAgain.setTypeAndValue(lAgain.getCString());
    require(lAgain.getType() == lType);
    require(lAgain.getValueAsString() == lVar.getValueAsString());
    return 0;
}
