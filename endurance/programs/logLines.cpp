// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Writes numbered lines to where its options send them (-LogFile, -SysLog), as many as each line of
// its standard input asks for, and says so when they are written. For a negative number it has the
// library write so many lines of its own.
#include <iostream>

#include "ace/Log_Msg.h"
#include "logging/Logging.h"
#include "osx/osx.h"

namespace {

/// @param aNumber the first one. @return the next one.
int writeLines(int aNumber, int aCount) {
    for (int lLine = 0; lLine < aCount; ++lLine) {
        ACE_DEBUG((LM_INFO, "line %d.\n", aNumber + lLine));
    }
    return aNumber + aCount;
}

void causeLines(int aCount) {
    for (int lLine = 0; lLine < aCount; ++lLine) {
        osxReleaseMutex(nullptr);
    }
}

}  // namespace

int main(int aCount, char** aArguments) {
    LogInit(aCount, aArguments, false);
    int lNumber = 0;
    for (int lWanted = 0; std::cin >> lWanted;) {
        if (lWanted < 0) {
            causeLines(-lWanted);
        } else {
            lNumber = writeLines(lNumber, lWanted);
        }
        std::cout << "logged " << lNumber << std::endl;
    }
    return 0;
}
