// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <memory>
#include <string_view>
#include <thread>

#include "echo/service.h"

namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;

Service gService;

class Connection : public std::enable_shared_from_this<Connection> {
public:
    explicit Connection(tcp::socket aSocket) : mSocket(std::move(aSocket)) {}
    void read() {
        mSocket.async_read_some(
            boost::asio::buffer(mBuffer.data(), gService.readSize(mBuffer.size())),
            [lSelf = shared_from_this()](const error_code& aError, std::size_t aSize) {
                if (!aError) {
                    lSelf->answer({lSelf->mBuffer.data(), aSize});
                }
            });
    }

private:
    void answer(std::string_view aCame) {
        const std::string_view lAnswer = gService.answer(aCame);
        if (lAnswer.empty()) {
            read();
            return;
        }
        boost::asio::async_write(
            mSocket, boost::asio::buffer(lAnswer.data(), lAnswer.size()),
            [lSelf = shared_from_this()](const error_code& aError, std::size_t) {
                if (!aError) {
                    lSelf->read();
                }
            });
    }

    tcp::socket mSocket;
    std::array<char, 16384> mBuffer{};
};

void accept(tcp::acceptor& aAcceptor) {
    aAcceptor.async_accept([&](const error_code& aError, tcp::socket aSocket) {
        if (!aError) {
            gService.prepare(aSocket.native_handle());
            std::make_shared<Connection>(std::move(aSocket))->read();
        }
        accept(aAcceptor);
    });
}

}  // namespace

int main(int, char** aArguments) {
    gService = Service(aArguments);
    boost::asio::io_context lContext(gService.threads());
    tcp::acceptor lAcceptor(lContext, tcp::endpoint(tcp::v4(), gService.port()));
    accept(lAcceptor);
    for (int lThread = 1; lThread < gService.threads(); ++lThread) {
        std::thread([&] { lContext.run(); }).detach();
    }
    lContext.run();
    return 0;
}
