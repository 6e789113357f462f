// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdlib>

#include "ace/Log_Msg.h"
#include "logging/Logging.h"
#include "logging/RedirectService.h"
#include "osx/osx.h"

static void work(const void*) {
    ACE_DEBUG((LM_DEBUG, "%t working\n"));
}

int main(int aCount, char** aArguments) {
    RedirectService& lService = *getRedirectService();
    lService.setPortNumber(aCount > 1 ? std::strtol(aArguments[1], nullptr, 10)
                                      : RedirectService::kDefaultPort);
    if (lService.init() != 0) {  // opens the port, and starts the worker
        return 1;
    }
    ACE_Log_Msg::msg_backend(&lService);
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::CUSTOM);
    void* lTimer = osxCreateTimer(work, nullptr, 200, 1);
    const int lResult = osxRunReactor();
    osxDestroyTimer(lTimer);
    lService.shutdown();
    return lResult;
}
