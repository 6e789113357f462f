#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <cstdlib>
#include <memory>
#include <thread>

namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;

class Connection : public std::enable_shared_from_this<Connection> {
public:
    explicit Connection(tcp::socket aSocket) : mSocket(std::move(aSocket)) {}
    void read() {
        mSocket.async_read_some(
            boost::asio::buffer(mBuffer),
            [lSelf = shared_from_this()](const error_code& aError, std::size_t aSize) {
                if (!aError) {
                    lSelf->write(aSize);
                }
            });
    }

private:
    void write(std::size_t aSize) {
        boost::asio::async_write(
            mSocket, boost::asio::buffer(mBuffer, aSize),
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
            std::make_shared<Connection>(std::move(aSocket))->read();
        }
        accept(aAcceptor);
    });
}

}  // namespace

int main(int, char** aArguments) {
    const int lThreads = std::atoi(aArguments[2]);
    boost::asio::io_context lContext(lThreads);
    const auto lPort = static_cast<unsigned short>(std::atoi(aArguments[1]));
    tcp::acceptor lAcceptor(lContext, tcp::endpoint(tcp::v4(), lPort));
    accept(lAcceptor);
    for (int lThread = 1; lThread < lThreads; ++lThread) {
        std::thread([&] { lContext.run(); }).detach();
    }
    lContext.run();
    return 0;
}
