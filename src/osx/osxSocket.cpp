// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The calls of sockets.
//
// A socket's handle points at an `ACE_SOCK_Stream`. That of a connection of a port is a part of its
// handler, which closes and frees it: such a socket is only told to end.
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

#include "ace/INET_Addr.h"
#include "ace/OS_NS_sys_socket.h"
#include "ace/OS_NS_sys_utsname.h"
#include "ace/SOCK_Stream.h"
#include "ace/Sock_Connect.h"
#include "base/NoCancellation.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"
#include "base/moduleNames.h"
#include "osx/osx.h"
#include "ports/PortConnection.h"
#include "sockets/socketConnect.h"
#include "sockets/socketTransfer.h"

using osx::DiagnosticLine;

namespace {

constexpr auto kFailed = static_cast<unsigned long>(-1);
constexpr std::chrono::milliseconds kConnectLimit(100);
constexpr std::size_t kAddressSize = 16;
constexpr std::size_t kHostnameSize = 1024;

/// Writes a failure line. @return the result of a call that failed.
unsigned long failed(ACE_Log_Priority aPriority, const char* aText, int aLine = __builtin_LINE()) {
    DiagnosticLine(osx::kOsxModule, aLine).failure(aPriority, aText);
    return kFailed;
}

ACE_SOCK_Stream& streamOf(void* aSocket) {
    return *static_cast<ACE_SOCK_Stream*>(aSocket);
}

unsigned long unableToConnect(int aError) {
    errno = aError;
    return failed(LM_DEBUG, "%t osxOpenSocket: unable to connect \n");
}

/// @return the first IPv4 address that is not 127.0.0.1, or else the first one; null if there is
/// none.
const ACE_INET_Addr* chooseAddress(const ACE_INET_Addr* aList, std::size_t aCount) {
    const ACE_INET_Addr* lChosen = nullptr;
    for (std::size_t lIndex = 0; lIndex < aCount; ++lIndex) {
        const ACE_INET_Addr& lAddress = aList[lIndex];
        if (lAddress.get_type() != AF_INET) {
            continue;
        }
        if (lAddress.get_ip_address() != INADDR_LOOPBACK) {
            return &lAddress;
        }
        if (lChosen == nullptr) {
            lChosen = &lAddress;
        }
    }
    return lChosen;
}

/// Finds the machine's own address.
/// @param aStore called with the address, unless there is none.
/// @return the result of the call: a failure if the addresses cannot be listed.
template <class Store>
unsigned long findOwnAddress(Store aStore) {
    std::size_t lCount = 0;
    ACE_INET_Addr* lList = nullptr;
    if (ACE::get_ip_interfaces(lCount, lList) == -1) {
        return failed(LM_ERROR, "%t osxGetIpAddr: ACE_Sock_Connect::get_ip_interfaces failed. \n");
    }
    const std::unique_ptr<ACE_INET_Addr[]> lAddresses(lList);
    if (const ACE_INET_Addr* const lAddress = chooseAddress(lList, lCount)) {
        aStore(*lAddress);
    }
    return 0;
}

}  // namespace

unsigned long osxStartupSockets() {
    ACE_OS::socket_init(1, 1);
    return 0;
}

unsigned long osxCloseSockets() {
    return static_cast<unsigned long>(ACE_OS::socket_fini());
}

unsigned long osxGetLastNetworkError() {
    return 0;
}

unsigned long osxOpenSocket(void*& aSocket, const char* aAddress) {
    std::unique_ptr<ACE_SOCK_Stream> lStream = osx::allocate<ACE_SOCK_Stream>();
    if (lStream == nullptr) {
        return failed(LM_DEBUG, "%t osxOpenSocket: lSOCK_Stream == 0 \n");
    }
    ACE_INET_Addr lAddress;
    if (const int lError = osx::parseAddress(aAddress, lAddress)) {
        return unableToConnect(lError);
    }
    osx::Connected lConnected = osx::connectSocket(lAddress, kConnectLimit);
    if (!lConnected.socket) {
        return unableToConnect(lConnected.error);
    }
    lStream->set_handle(lConnected.socket.release());
    aSocket = lStream.release();
    errno = 0;  // not what the steps of connecting left there
    return 0;
}

void* osxConnectByNumber(unsigned long aIpAddr, unsigned short aPort) {
    std::array<char, 32> lAddress{};
    std::snprintf(lAddress.data(), lAddress.size(), "%lu.%lu.%lu.%lu:%u", aIpAddr & 0xFF,
                  aIpAddr >> 8 & 0xFF, aIpAddr >> 16 & 0xFF, aIpAddr >> 24 & 0xFF,
                  static_cast<unsigned int>(aPort));
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, lAddress.data()) != 0) {
        return reinterpret_cast<void*>(kFailed);
    }
    return lSocket;
}

unsigned long osxSocketSend(void* aSocket, const void* aBuf, unsigned long aLen) {
    if (aSocket == nullptr) {
        return failed(LM_DEBUG, "%t osxSocketSend: lSOCK_Stream == 0 \n");
    }
    if (const int lError = osx::sendAll(streamOf(aSocket).get_handle(), aBuf, aLen)) {
        errno = lError;
        osx::tellUnsent(aLen);
        return kFailed;
    }
    return 0;
}

unsigned long osxSocketSend(void* aSocket, const iovec* aVec, int aCount) {
    if (aSocket == nullptr) {
        return failed(LM_DEBUG, "%t osxSocketSend: lSOCK_Stream == 0 \n");
    }
    if (const int lError = osx::sendAll(streamOf(aSocket).get_handle(), aVec, aCount)) {
        errno = lError;  // the only sign: the result does not tell
    }
    return 0;
}

unsigned long osxSocketRecv(void* aSocket, void* aBuf, unsigned long aLen,
                            unsigned long& aReceived) {
    if (aSocket == nullptr) {
        return failed(LM_DEBUG, "%t osxSocketRecv: lSOCK_Stream == 0 \n");
    }
    const osx::Received lCame = osx::receiveAll(streamOf(aSocket).get_handle(), aBuf, aLen);
    if (lCame.error != 0) {
        errno = lCame.error;
    }
    aReceived = static_cast<unsigned long>(lCame.length);
    return aReceived == aLen ? 0 : kFailed;
}

unsigned long osxCloseSocket(void* aSocket) {
    if (aSocket == nullptr) {
        return failed(LM_DEBUG, "%t osxCloseSocket: lSOCK_Stream == 0 \n");
    }
    const osx::NoCancellation lGuard;
    if (!osx::PortConnection::end(aSocket)) {
        streamOf(aSocket).close();
    }
    return 0;
}

unsigned long osxCloseSocketAndRelease(void*& aSocket) {
    if (aSocket == nullptr) {
        return failed(LM_DEBUG, "%t osxCloseSocketAndRelease: lSOCK_Stream == 0 \n");
    }
    const osx::NoCancellation lGuard;
    if (!osx::PortConnection::end(aSocket)) {
        const std::unique_ptr<ACE_SOCK_Stream> lStream(&streamOf(aSocket));
        lStream->close();
    }
    aSocket = nullptr;
    return 0;
}

unsigned long osxGetPeername(void* aSocket, unsigned long& aIpAddr) {
    if (aSocket == nullptr) {
        return failed(LM_ERROR, "%t osxGetPeername: lSOCK_Stream == 0 \n");
    }
    ACE_INET_Addr lAddress;
    if (streamOf(aSocket).get_remote_addr(lAddress) == -1) {
        return failed(LM_ERROR, "%t osxGetPeername: get_remote_addr failed \n");
    }
    aIpAddr = lAddress.get_ip_address();
    return 0;
}

unsigned long osxGetIpAddr(unsigned long& aIpAddr) {
    return findOwnAddress(
        [&aIpAddr](const ACE_INET_Addr& aAddress) { aIpAddr = aAddress.get_ip_address(); });
}

unsigned long osxGetIpAddr(char* aText) {
    return findOwnAddress(
        [aText](const ACE_INET_Addr& aAddress) { aAddress.get_host_addr(aText, kAddressSize); });
}

unsigned long osxGetIpAddr(ACE_String_Base<char>& aText) {
    std::array<char, kAddressSize> lText{};
    const unsigned long lResult = osxGetIpAddr(lText.data());
    if (lText.front() != '\0') {
        aText.set(lText.data(), true);
    }
    return lResult;
}

unsigned long osxGetHostname(char* aHost, unsigned long aLen) {
    if (aHost == nullptr) {
        return failed(LM_ERROR, "%t osxGetHostname: aHost == 0 \n");
    }
    ACE_utsname lName;
    if (aLen > 0 && ACE_OS::uname(&lName) != -1) {
        const std::size_t lLength = strnlen(lName.nodename, aLen - 1);
        std::memcpy(aHost, lName.nodename, lLength);
        aHost[lLength] = '\0';
    }
    return 0;
}

unsigned long osxGetHostname(ACE_String_Base<char>& aHost) {
    std::array<char, kHostnameSize> lHost{};
    const unsigned long lResult = osxGetHostname(lHost.data(), lHost.size());
    aHost.set(lHost.data(), true);
    return lResult;
}
