// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "ace/SString.h"
#include "types/FlexVar.h"

static void print(const FlexVar& aValue) {
    std::printf("%s %s\n", aValue.getTypeName().c_str(), aValue.getValueAsString().c_str());
}

int main() {
    FlexVar lSetting(9600);  // an Int, as the argument is an int
    print(lSetting);
    long lRate = 0;
    if (lSetting.getLong(lRate) != 0) {
        std::puts("an Int is not a Long");
    }
    lSetting.setCString(ACE_CString("ttyS0"));  // from now on a CString
    print(lSetting);
    return 0;
}
