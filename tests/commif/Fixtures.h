// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the tests of the device channels share.
#ifndef OSX_TESTS_COMMIF_FIXTURES_H
#define OSX_TESTS_COMMIF_FIXTURES_H

#include <string>
#include <vector>

#include "commif/commif.h"
#include "support/TcpPeer.h"

namespace test {

/// A directory of its own, removed with all that is in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& name() const { return mName; }
    /// @return the path of an entry.
    std::string path(const std::string& aEntry) const { return mName + "/" + aEntry; }
    /// Writes a file. @return its path.
    std::string file(const std::string& aEntry, const std::string& aContent) const;

private:
    std::string mName;
};

/// @return what is in a file.
std::string contentOf(const std::string& aPath);

/// Sends standard output to a file while it lives.
class ConsoleCapture {
public:
    ConsoleCapture();
    ~ConsoleCapture();
    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;

    /// @return all that was printed or written so far.
    std::string text() const;
    /// @return the same without what the stream `stdout` still holds.
    std::string written() const;

private:
    TempDir mDir;
    int mFormer;
};

/// Replaces one of the process's descriptors while it lives.
class Redirection {
public:
    Redirection(int aDescriptor, int aBy);
    ~Redirection();
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

private:
    int mDescriptor;
    int mFormer;
};

/// @return parameters of an open, all other bytes zero.
commIfDevParams_t consoleParams();
commIfDevParams_t fileParams(const std::string& aName, unsigned int aOpenMode);
commIfDevParams_t msgParams(unsigned int aSize, unsigned int aReadTimeout);
commIfDevParams_t netParams(void* aSocket, unsigned int aTextMode = 0);

/// A descriptor that is closed at the end of its life, unless the test closed it.
class Channel {
public:
    explicit Channel(commIfDevParams_t aParams, const char* aQueueName = nullptr);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    int desc() const { return mDesc; }
    int status() const { return mStatus; }
    int close();

private:
    int mDesc = -1;
    int mStatus;
};

/// The library's end and the other end of one TCP connection.
class Connection {
public:
    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void* socket() const { return mSocket; }
    TcpPeer& peer() { return mPeer; }

private:
    TcpListener mListener;
    void* mSocket = nullptr;
    TcpPeer mPeer;
};

/// @return the bytes of a text, as the calls take them.
unsigned char* bytes(std::string& aText);

/// @return the open descriptors of the process, in order.
std::vector<int> descriptorsInUse();

}  // namespace test

#endif
