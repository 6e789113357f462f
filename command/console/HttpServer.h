// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// httplib's server, with limits on its connections.
#ifndef OSX_COMMAND_CONSOLE_HTTPSERVER_H
#define OSX_COMMAND_CONSOLE_HTTPSERVER_H

#include <httplib.h>

#include <atomic>
#include <string>
#include <thread>

#include "console/Connection.h"

namespace command {

/// Each connection carries one request.
class HttpServer : public httplib::Server {
public:
    HttpServer(const std::string& aHost, unsigned short aPort);
    ~HttpServer() override;

    /// Listens from here on. Fails if it cannot.
    void start();

    /// Ends all connections, and returns when no request is being answered any more.
    void end();

private:
    bool bind();
    void listen();
    bool process_and_close_socket(socket_t aSocket) override;

    const std::string mHost;
    const unsigned short mPort;
    Connections mConnections;
    std::atomic<bool> mHasEnded{false};
    std::atomic<bool> mIsDone{false};
    std::thread mThread;
};

}  // namespace command

#endif
