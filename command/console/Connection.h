// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A browser's connection, with limits on what it may cost.
#ifndef OSX_COMMAND_CONSOLE_CONNECTION_H
#define OSX_COMMAND_CONSOLE_CONNECTION_H

#include <httplib.h>

#include <array>
#include <chrono>
#include <mutex>
#include <set>
#include <string>

#include "base/Descriptor.h"

namespace command {

/// The connections that are open, so that they can be ended.
class Connections {
public:
    void add(int aSocket);
    void remove(int aSocket);
    /// Shuts down all of them, and each one that is added from now on.
    void end();

private:
    std::mutex mMutex;
    std::set<int> mSockets;
    bool mHasEnded = false;
};

/// Carries one request and its answer. A request has so many bytes and so much time, which httplib
/// of Debian 12 does not see to; an answer goes on while the browser takes some of it now and then.
class Connection : public httplib::Stream {
public:
    Connection(int aSocket, Connections& aAll);
    ~Connection() override;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* aBytes, size_t aSize) override;
    ssize_t write(const char* aBytes, size_t aSize) override;
    void get_remote_ip_and_port(std::string& aAddress, int& aPort) const override;
    void get_local_ip_and_port(std::string& aAddress, int& aPort) const override;
    socket_t socket() const override { return mSocket.get(); }

private:
    bool fill();

    const osx::Descriptor mSocket;
    Connections& mAll;
    const std::chrono::steady_clock::time_point mEnd;  ///< Of reading.
    std::array<char, 4096> mBytes{};
    std::size_t mTaken = 0;
    std::size_t mFilled = 0;
    std::size_t mReceived = 0;  ///< All in all.
};

}  // namespace command

#endif
