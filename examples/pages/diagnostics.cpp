// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdlib>

#include "ace/Log_Msg.h"
#include "logging/Logging.h"
#include "osx/osx.h"

static void work(const void*) {
    ACE_DEBUG((LM_DEBUG, "%t working\n"));
    if (getLogLevel() >= 5) {
        ACE_DEBUG((LM_DEBUG, "%t working on the details\n"));
    }
}

int main(int aCount, char** aArguments) {
    if (aCount > 1) {
        setDebugLevelPortNumber(std::strtol(aArguments[1], nullptr, 10));  // not 12311
    }
    LogInit(aCount, aArguments, true);  // takes its options out
    void* lTimer = osxCreateTimer(work, nullptr, 200, 1);
    const int lResult = osxRunReactor();
    osxDestroyTimer(lTimer);
    LogDeinit();  // the clients get what was logged before
    return lResult;
}
