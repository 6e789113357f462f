// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <array>
#include <memory>
#include <string_view>
#include <thread>

#include "ace/INET_Addr.h"
#include "ace/Reactor.h"
#include "ace/SOCK_Acceptor.h"
#include "ace/SOCK_Stream.h"
#include "ace/TP_Reactor.h"
#include "echo/idleHandler.h"
#include "echo/service.h"

namespace {

Service gService;

class Connection : public ACE_Event_Handler {
public:
    ACE_SOCK_Stream mStream;

    ACE_HANDLE get_handle() const override { return mStream.get_handle(); }
    int handle_input(ACE_HANDLE) override {
        std::array<char, 16384> lBuffer;
        const ssize_t lSize = mStream.recv(lBuffer.data(), gService.readSize(lBuffer.size()));
        return lSize > 0 && answer({lBuffer.data(), static_cast<std::size_t>(lSize)}) ? 0 : -1;
    }
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
        mStream.close();
        delete this;
        return 0;
    }

private:
    bool answer(std::string_view aCame) const {
        const std::string_view lAnswer = gService.answer(aCame);
        return lAnswer.empty() || mStream.send_n(lAnswer.data(), lAnswer.size()) > 0;
    }
};

class Port : public ACE_Event_Handler {
public:
    explicit Port(unsigned short aPort) : mAcceptor(ACE_INET_Addr(aPort), 1, PF_UNSPEC, 1024) {}
    ACE_HANDLE get_handle() const override { return mAcceptor.get_handle(); }
    int handle_input(ACE_HANDLE) override {
        auto* lConnection = new Connection;
        mAcceptor.accept(lConnection->mStream);
        gService.prepare(lConnection->get_handle());
        return ACE_Reactor::instance()->register_handler(lConnection, ACE_Event_Handler::READ_MASK);
    }

private:
    ACE_SOCK_Acceptor mAcceptor;
};

}  // namespace

int main(int, char** aArguments) {
    gService = Service(aArguments);
    ACE_Reactor::instance(new ACE_Reactor(new ACE_TP_Reactor, true), true);
    Port lPort(gService.port());
    ACE_Reactor::instance()->register_handler(&lPort, ACE_Event_Handler::ACCEPT_MASK);
    std::unique_ptr<IdleHandler> lOwn;
    if (gService.is("mixed")) {
        lOwn = std::make_unique<IdleHandler>();
    }
    for (int lThread = 1; lThread < gService.threads(); ++lThread) {
        std::thread([] { ACE_Reactor::instance()->run_reactor_event_loop(); }).detach();
    }
    return ACE_Reactor::instance()->run_reactor_event_loop();
}
