// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What every server here is told, and what it answers. Usage of each: PROGRAM PORT THREADS WORK
///
/// The work is one of
///  - `echo`: sends back what comes, read as the interface suggests;
///  - `pieces`: the same, read and sent 2 KiB at a time and without delay, as the library does;
///  - `available`: the same by a callback that reads for itself (the library alone);
///  - `mixed`: the same beside a handler of the application's own (those with ACE's reactor);
///  - `masked`: `echo` with the library's lines below errors masked;
///  - `lines`: `echo` with two lines for each connection (libuv alone), as the library has them;
///  - `http`: answers each request with a short page.
#ifndef OSX_BENCHMARKS_ECHO_SERVICE_H
#define OSX_BENCHMARKS_ECHO_SERVICE_H

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdlib>
#include <string_view>

class Service {
public:
    Service() = default;
    explicit Service(char** aArguments)
        : mPort(static_cast<unsigned short>(std::atoi(aArguments[1]))),
          mThreads(std::atoi(aArguments[2])),
          mWork(aArguments[3]),
          mPieces(is("pieces")),
          mHttp(is("http")) {}

    unsigned short port() const { return mPort; }
    int threads() const { return mThreads; }
    bool is(std::string_view aWork) const { return mWork == aWork; }

    /// @return how many bytes to read at most, where `aOwn` would be usual.
    std::size_t readSize(std::size_t aOwn) const { return mPieces ? kPiece : aOwn; }

    /// To be called with each accepted connection.
    void prepare(int aSocket) const {
        if (mPieces) {
            const int lOn = 1;
            ::setsockopt(aSocket, IPPROTO_TCP, TCP_NODELAY, &lOn, sizeof lOn);
        }
    }

    /// @return what to send for what came; empty while a request is not complete. The load
    /// generator sends a request at a time, and only after the answer to the one before.
    std::string_view answer(std::string_view aCame) const {
        if (!mHttp) {
            return aCame;
        }
        return aCame.size() >= kEnd.size() && aCame.substr(aCame.size() - kEnd.size()) == kEnd
                   ? kPage
                   : std::string_view();
    }

private:
    static constexpr std::size_t kPiece = 2048;
    static constexpr std::string_view kEnd = "\r\n\r\n";
    static constexpr std::string_view kPage =
        "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 13\r\n\r\nHello, world\n";

    unsigned short mPort = 0;
    int mThreads = 1;
    std::string_view mWork;
    bool mPieces = false;
    bool mHttp = false;
};

#endif
