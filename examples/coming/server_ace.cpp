// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <csignal>
#include <cstdlib>

#include "ace/INET_Addr.h"
#include "ace/Reactor.h"
#include "ace/SOCK_Acceptor.h"
#include "ace/SOCK_Stream.h"

class Connection : public ACE_Event_Handler {
public:
    ACE_SOCK_Stream& stream() { return mStream; }
    ACE_HANDLE get_handle() const override { return mStream.get_handle(); }

    int handle_input(ACE_HANDLE) override {
        char lData[2048];
        const ssize_t lLength = mStream.recv(lData, sizeof lData);
        if (lLength <= 0) {
            return -1;
        }
        return mStream.send_n(lData, static_cast<std::size_t>(lLength)) == lLength ? 0 : -1;
    }

    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
        mStream.close();
        delete this;
        return 0;
    }

private:
    ACE_SOCK_Stream mStream;
};

class Port : public ACE_Event_Handler {
public:
    bool open(unsigned short aNumber) {
        return mAcceptor.open(ACE_INET_Addr(aNumber), 1) == 0 &&
               ACE_Reactor::instance()->register_handler(this, ACCEPT_MASK) == 0;
    }
    ACE_HANDLE get_handle() const override { return mAcceptor.get_handle(); }

    int handle_input(ACE_HANDLE) override {
        auto* const lConnection = new Connection;
        if (mAcceptor.accept(lConnection->stream()) == -1 ||
            ACE_Reactor::instance()->register_handler(lConnection, READ_MASK) == -1) {
            lConnection->stream().close();
            delete lConnection;
        }
        return 0;
    }

    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override { return mAcceptor.close(); }

private:
    ACE_SOCK_Acceptor mAcceptor;
};

int main(int aCount, char** aArguments) {
    std::signal(SIGPIPE, SIG_IGN);  // a client that has gone would end the program
    Port lPort;
    const unsigned long lNumber = aCount > 1 ? std::strtoul(aArguments[1], nullptr, 10) : 7009;
    if (!lPort.open(static_cast<unsigned short>(lNumber))) {
        return 1;
    }
    return ACE_Reactor::instance()->run_reactor_event_loop();
}
