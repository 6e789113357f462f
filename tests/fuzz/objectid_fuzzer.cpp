// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdint>

#include "fuzz/require.h"
#include "types/ObjectID.h"

// Any text may be parsed; what it gives prints as 36 characters that give the same again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    ObjectID lID;
    lID.setFromString(ACE_CString(reinterpret_cast<const char*>(aData), aSize));
    require(aSize == 36 || lID.isEmpty());
    require(lID.toString().length() == 36);
    ObjectID lAgain;
    lAgain.setFromString(lID.toString());
    require(lAgain == lID);
    return 0;
}
