// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <array>
#include <memory>
#include <string_view>

#include "ace/Log_Msg.h"
#include "echo/idleHandler.h"
#include "echo/service.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace {

constexpr std::size_t kMessage = 64;  // of the rows with a data-available callback

Service gService;

unsigned long answer(void* aSocket, std::string_view aCame) {
    const std::string_view lAnswer = gService.answer(aCame);
    return lAnswer.empty() ? 0 : osxSocketSend(aSocket, lAnswer.data(), lAnswer.size());
}

void newData(void* aSocket, void*&, unsigned char* aData, unsigned long aLength) {
    answer(aSocket, {reinterpret_cast<const char*>(aData), aLength});
}

long available(void* aSocket, void*&) {
    std::array<char, kMessage> lMessage;
    unsigned long lReceived = 0;
    if (osxSocketRecv(aSocket, lMessage.data(), lMessage.size(), lReceived) != 0) {
        return -1;
    }
    return answer(aSocket, {lMessage.data(), lMessage.size()}) == 0 ? 0 : -1;
}

}  // namespace

int main(int, char** aArguments) {
    gService = Service(aArguments);
    OSX_Reactor* lReactor = ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor->initReactor();
    if (gService.is("masked")) {
        ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::THREAD);
        ACE_Log_Msg::instance()->priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
    }
    std::unique_ptr<IdleHandler> lOwn;
    if (gService.is("mixed")) {
        lOwn = std::make_unique<IdleHandler>();
    }
    void* lPort = nullptr;
    osxRegisterPort(lPort, gService.port(), nullptr, gService.is("available") ? available : nullptr,
                    newData, nullptr, nullptr);
    for (int lThread = 1; lThread < gService.threads(); ++lThread) {
        lReactor->startExtraReactorThread();
    }
    return osxRunReactor();
}
