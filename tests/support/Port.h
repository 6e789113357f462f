// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Ports of the library's, registered for the time of a test.
#ifndef OSX_TESTS_SUPPORT_PORT_H
#define OSX_TESTS_SUPPORT_PORT_H

#include "osx/osx.h"
#include "support/LogCapture.h"
#include "support/RunningReactor.h"
#include "support/TcpPeer.h"

namespace test {

/// What a port is registered with; null for nothing.
struct PortCallbacks {
    osxNewConnectionFnc_t opened = nullptr;
    osxDataAvailFnc_t available = nullptr;
    osxNewDataFnc_t data = nullptr;
    osxClosedConnectionFnc_t closed = nullptr;
};

/// Sends back what comes.
void echo(void* aSocket, void*&, unsigned char* aData, unsigned long aLength);

inline constexpr PortCallbacks kEcho{nullptr, nullptr, &echo, nullptr};

/// Registered from construction on, on a free port unless told otherwise; unregistered at the end
/// of its life. Whoever runs the reactor serves it.
class Port {
public:
    explicit Port(PortCallbacks aCallbacks = {}, void* aUserData = nullptr,
                  unsigned short aNumber = freePort());
    ~Port();
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    TcpPeer connect() const { return TcpPeer::connect(mNumber); }
    unsigned short number() const { return mNumber; }
    /// @return the port's handle; null once it is unregistered.
    void*& handle() { return mHandle; }

private:
    unsigned short mNumber;
    void* mHandle = nullptr;
};

/// The first base of what writes lines: the capture is there before it and after it.
struct CaughtLog {
    LogCapture log;
};

/// A port of any kind with the log's lines caught, served by loop threads. The threads end first.
template <class PortType = Port, int kThreads = 1>
class Served : public CaughtLog, public PortType {
public:
    using PortType::PortType;

private:
    RunningReactor mLoop{kThreads};
};

}  // namespace test

#endif
