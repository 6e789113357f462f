// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The other end of a TCP connection, made of plain system calls so that the tests do not lean on
/// what they test.
#ifndef OSX_TESTS_SUPPORT_TCPPEER_H
#define OSX_TESTS_SUPPORT_TCPPEER_H

#include <chrono>
#include <string>
#include <utility>

#include "base/Descriptor.h"

namespace test {

/// @return a TCP port of the loopback interface that was free a moment ago.
unsigned short freePort();

/// Waits for something to read, or the end of it. @return whether that came within 30 s.
bool waitForInput(int aDescriptor);

/// @return whether a TCP socket sends small pieces at once.
bool sendsWithoutDelay(int aDescriptor);

/// @return the descriptor of this process that is the other end of a loopback connection; -1 if
/// none is.
int otherEndOf(int aDescriptor);

using osx::Descriptor;

/// A connected stream with a limit of 30 s on whatever it waits for.
class TcpPeer {
public:
    TcpPeer() = default;
    explicit TcpPeer(Descriptor aSocket) : mSocket(std::move(aSocket)) {}

    /// Connects to a port of the loopback interface.
    /// @param aReceiveBuffer in bytes; 0 for the kernel's choice. @return a peer; see `connected`.
    static TcpPeer connect(unsigned short aPort, int aReceiveBuffer = 0);

    /// The same with a socket that was made before, with options of its own.
    static TcpPeer connectWith(Descriptor aSocket, unsigned short aPort);

    /// The same, for up to 30 s, with a program that may not listen yet.
    static TcpPeer connectOnceItListens(unsigned short aPort, int aReceiveBuffer = 0);

    bool connected() const { return mSocket.get() >= 0; }
    int descriptor() const { return mSocket.get(); }

    /// @return whether everything was taken by the kernel.
    bool send(const std::string& aData);

    /// Reads exactly that many bytes. @return them; fewer when the stream ended or the limit
    /// passed.
    std::string receive(std::size_t aLength);

    /// @return whether a text comes back.
    bool isEchoed(const std::string& aText = "x") {
        return send(aText) && receive(aText.size()) == aText;
    }

    /// Reads until a text has come. @return all read so far, including what follows the text.
    std::string receiveUntil(const std::string& aText);

    /// @return whether the other side closes (or resets) before the limit; reads what comes before.
    bool waitForClose();

    /// Closes in the ordinary way.
    void close() { mSocket.reset(); }

    /// Closes with a reset, as a crashed peer does.
    void reset();

private:
    Descriptor mSocket;
};

/// A listening socket on a free port of the loopback interface.
class TcpListener {
public:
    explicit TcpListener(int aBacklog = 16);
    unsigned short port() const { return mPort; }
    std::string address() const { return "127.0.0.1:" + std::to_string(mPort); }
    /// Waits for one connection, up to 30 s.
    TcpPeer accept();
    int descriptor() const { return mSocket.get(); }

private:
    Descriptor mSocket;
    unsigned short mPort = 0;
};

}  // namespace test

#endif
