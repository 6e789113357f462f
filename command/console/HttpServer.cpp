// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/HttpServer.h"

#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "common/Failure.h"
#include "console/Workers.h"
#include "devices/DeviceList.h"

namespace command {

namespace {

constexpr std::size_t kConnections = 32;
constexpr std::size_t kLongestBody = 4096;

/// httplib's own choice lets several programs share a port.
void setOptions(socket_t aSocket) {
    const int lYes = 1;
    ::setsockopt(aSocket, SOL_SOCKET, SO_REUSEADDR, &lYes, sizeof lYes);
}

using Setup = std::function<void(httplib::Request&)>;

/// As httplib of Debian 12 has it,
template <class Server>
bool processOne(Server& aServer,
                bool (httplib::Server::*aProcess)(httplib::Stream&, bool, bool&, const Setup&),
                Connection& aConnection) {
    bool lIsClosed = false;
    return (aServer.*aProcess)(aConnection, true, lIsClosed, nullptr);
}

/// and of Debian 13, which wants to be told the addresses.
template <class Server>
bool processOne(Server& aServer,
                bool (httplib::Server::*aProcess)(httplib::Stream&, const std::string&, int,
                                                  const std::string&, int, bool, bool&,
                                                  const Setup&),
                Connection& aConnection) {
    std::string lRemote;
    std::string lLocal;
    int lRemotePort = 0;
    int lLocalPort = 0;
    aConnection.get_remote_ip_and_port(lRemote, lRemotePort);
    aConnection.get_local_ip_and_port(lLocal, lLocalPort);
    bool lIsClosed = false;
    return (aServer.*aProcess)(aConnection, lRemote, lRemotePort, lLocal, lLocalPort, true,
                               lIsClosed, nullptr);
}

}  // namespace

HttpServer::HttpServer(const std::string& aHost, unsigned short aPort)
    : mHost(aHost), mPort(aPort) {
    new_task_queue = [] { return new Workers(kConnections); };
    set_socket_options(setOptions);
    set_payload_max_length(kLongestBody);
}

HttpServer::~HttpServer() {
    end();
}

void HttpServer::start() {
    errno = 0;
    if (!bind()) {
        fail(addressOf(mHost, mPort) + ": cannot listen there" +
             (errno == 0 ? "" : std::string(": ") + std::strerror(errno)));
    }
    mThread = std::thread([this] { listen(); });
}

bool HttpServer::bind() {
    return bind_to_port(mHost, mPort);
}

/// httplib gives up listening when the kernel cannot accept for a moment.
void HttpServer::listen() {
    bool lIsBound = true;
    while (!mHasEnded) {
        if (lIsBound) {
            listen_after_bind();
        }
        if (!mHasEnded) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            lIsBound = bind();
        }
    }
    mIsDone = true;
}

void HttpServer::end() {
    mHasEnded = true;
    mConnections.end();
    // httplib ignores a stop that comes before it listens.
    while (mThread.joinable() && !mIsDone) {
        if (svr_sock_ != INVALID_SOCKET) {
            stop();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (mThread.joinable()) {
        mThread.join();
    }
}

bool HttpServer::process_and_close_socket(socket_t aSocket) {
    try {
        Connection lConnection(aSocket, mConnections);
        return processOne(*this, &HttpServer::process_request, lConnection);
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace command
