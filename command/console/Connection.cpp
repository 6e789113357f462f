// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/Connection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace command {

namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestRequest{10};
constexpr std::size_t kMostBytes = 32768;
constexpr int kWriteMs = 30000;

bool waitFor(int aSocket, short aWhat, int aMs) {
    pollfd lPoll{aSocket, aWhat, 0};
    return ::poll(&lPoll, 1, aMs) == 1;
}

void readAddress(const sockaddr_in& aFrom, std::string& aAddress, int& aPort) {
    std::array<char, INET_ADDRSTRLEN> lText{};
    if (::inet_ntop(AF_INET, &aFrom.sin_addr, lText.data(), lText.size()) != nullptr) {
        aAddress = lText.data();
        aPort = ntohs(aFrom.sin_port);
    }
}

}  // namespace

void Connections::add(int aSocket) {
    const std::lock_guard lLock(mMutex);
    mSockets.insert(aSocket);
    if (mHasEnded) {
        ::shutdown(aSocket, SHUT_RDWR);
    }
}

void Connections::remove(int aSocket) {
    const std::lock_guard lLock(mMutex);
    mSockets.erase(aSocket);
}

void Connections::end() {
    const std::lock_guard lLock(mMutex);
    mHasEnded = true;
    for (const int lSocket : mSockets) {
        ::shutdown(lSocket, SHUT_RDWR);
    }
}

Connection::Connection(int aSocket, Connections& aAll)
    : mSocket(aSocket), mAll(aAll), mEnd(steady_clock::now() + kLongestRequest) {
    mAll.add(aSocket);
}

Connection::~Connection() {
    // What the browser still sends must not turn the end of the answer into a reset.
    ::shutdown(mSocket.get(), SHUT_WR);
    while (mReceived < kMostBytes && steady_clock::now() < mEnd && fill()) {
        mTaken = mFilled;
    }
    mAll.remove(mSocket.get());
}

bool Connection::is_readable() const {
    return mTaken < mFilled || waitFor(mSocket.get(), POLLIN, 0);
}

bool Connection::is_writable() const {
    return waitFor(mSocket.get(), POLLOUT, kWriteMs);
}

bool Connection::fill() {
    const auto lLeft = duration_cast<milliseconds>(mEnd - steady_clock::now()).count();
    if (mReceived >= kMostBytes || lLeft <= 0 ||
        !waitFor(mSocket.get(), POLLIN, static_cast<int>(lLeft))) {
        return false;
    }
    const ssize_t lCount = ::recv(mSocket.get(), mBytes.data(), mBytes.size(), MSG_DONTWAIT);
    mTaken = 0;
    mFilled = static_cast<std::size_t>(std::max<ssize_t>(lCount, 0));
    mReceived += mFilled;
    return mFilled > 0;
}

ssize_t Connection::read(char* aBytes, size_t aSize) {
    if (mTaken == mFilled && !fill()) {
        return -1;
    }
    const std::size_t lCount = std::min(aSize, mFilled - mTaken);
    std::memcpy(aBytes, mBytes.data() + mTaken, lCount);
    mTaken += lCount;
    return static_cast<ssize_t>(lCount);
}

ssize_t Connection::write(const char* aBytes, size_t aSize) {
    if (!is_writable()) {
        return -1;
    }
    return ::send(mSocket.get(), aBytes, aSize, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void Connection::get_remote_ip_and_port(std::string& aAddress, int& aPort) const {
    sockaddr_in lFrom{};
    socklen_t lSize = sizeof lFrom;
    if (::getpeername(mSocket.get(), reinterpret_cast<sockaddr*>(&lFrom), &lSize) == 0) {
        readAddress(lFrom, aAddress, aPort);
    }
}

void Connection::get_local_ip_and_port(std::string& aAddress, int& aPort) const {
    sockaddr_in lFrom{};
    socklen_t lSize = sizeof lFrom;
    if (::getsockname(mSocket.get(), reinterpret_cast<sockaddr*>(&lFrom), &lSize) == 0) {
        readAddress(lFrom, aAddress, aPort);
    }
}

}  // namespace command
