#include <array>
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

unsigned long unableToConnect() {
    DiagnosticLine(osx::kOsxModule).failure(LM_DEBUG, "%t osxOpenSocket: unable to connect \n");
    return kFailed;
}

/// @param[out] aFound whether there is an address at all.
/// @return whether the addresses could be listed; a line tells if not.
bool findOwnAddress(ACE_INET_Addr& aAddress, bool& aFound) {
    std::size_t lCount = 0;
    ACE_INET_Addr* lList = nullptr;
    if (ACE::get_ip_interfaces(lCount, lList) == -1) {
        DiagnosticLine(osx::kOsxModule)
            .failure(LM_ERROR, "%t osxGetIpAddr: ACE_Sock_Connect::get_ip_interfaces failed. \n");
        return false;
    }
    const std::unique_ptr<ACE_INET_Addr[]> lAddresses(lList);
    aFound = false;
    for (std::size_t lIndex = 0; lIndex < lCount; ++lIndex) {
        const ACE_INET_Addr& lAddress = lAddresses[lIndex];
        if (lAddress.get_type() != AF_INET) {
            continue;
        }
        const bool lIsLoopback = lAddress.get_ip_address() == INADDR_LOOPBACK;
        if (!aFound || !lIsLoopback) {
            aAddress = lAddress;
            aFound = true;
        }
        if (!lIsLoopback) {
            break;
        }
    }
    return true;
}

}  // namespace

void osx::tellUnsent(unsigned long aLen) {
    DiagnosticLine(osx::kOsxModule)
        .failure(LM_DEBUG, "%t osxSocketSend: lNrOfBytesSend[%d] != aLen[%d] \n", -1, aLen);
}

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
    std::unique_ptr<ACE_SOCK_Stream> lStream(osx::allocate<ACE_SOCK_Stream>());
    if (lStream == nullptr) {
        DiagnosticLine(osx::kOsxModule).failure(LM_DEBUG, "%t osxOpenSocket: lSOCK_Stream == 0 \n");
        return kFailed;
    }
    ACE_INET_Addr lAddress;
    if (!osx::parseAddress(aAddress, lAddress)) {
        return unableToConnect();
    }
    const ACE_HANDLE lHandle = osx::connectSocket(lAddress, kConnectLimit);
    if (lHandle == ACE_INVALID_HANDLE) {
        return unableToConnect();
    }
    lStream->set_handle(lHandle);
    aSocket = lStream.release();
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
    auto* const lStream =
        DiagnosticLine(osx::kOsxModule)
            .object<ACE_SOCK_Stream>(aSocket, LM_DEBUG, "%t osxSocketSend: lSOCK_Stream == 0 \n");
    if (lStream == nullptr) {
        return kFailed;
    }
    if (osx::sendAll(lStream->get_handle(), aBuf, aLen) == -1) {
        osx::tellUnsent(aLen);
        return kFailed;
    }
    return 0;
}

unsigned long osxSocketSend(void* aSocket, const iovec* aVec, int aCount) {
    auto* const lStream =
        DiagnosticLine(osx::kOsxModule)
            .object<ACE_SOCK_Stream>(aSocket, LM_DEBUG, "%t osxSocketSend: lSOCK_Stream == 0 \n");
    if (lStream == nullptr) {
        return kFailed;
    }
    osx::sendAll(lStream->get_handle(), aVec, aCount);
    return 0;
}

unsigned long osxSocketRecv(void* aSocket, void* aBuf, unsigned long aLen,
                            unsigned long& aReceived) {
    auto* const lStream =
        DiagnosticLine(osx::kOsxModule)
            .object<ACE_SOCK_Stream>(aSocket, LM_DEBUG, "%t osxSocketRecv: lSOCK_Stream == 0 \n");
    if (lStream == nullptr) {
        return kFailed;
    }
    aReceived = static_cast<unsigned long>(osx::receiveAll(lStream->get_handle(), aBuf, aLen));
    return aReceived == aLen ? 0 : kFailed;
}

unsigned long osxCloseSocket(void* aSocket) {
    auto* const lStream =
        DiagnosticLine(osx::kOsxModule)
            .object<ACE_SOCK_Stream>(aSocket, LM_DEBUG, "%t osxCloseSocket: lSOCK_Stream == 0 \n");
    if (lStream == nullptr) {
        return kFailed;
    }
    const osx::NoCancellation lGuard;
    if (!osx::PortConnection::end(aSocket)) {
        lStream->close();
    }
    return 0;
}

unsigned long osxCloseSocketAndRelease(void*& aSocket) {
    auto* const lStream =
        DiagnosticLine(osx::kOsxModule)
            .object<ACE_SOCK_Stream>(aSocket, LM_DEBUG,
                                     "%t osxCloseSocketAndRelease: lSOCK_Stream == 0 \n");
    if (lStream == nullptr) {
        return kFailed;
    }
    const osx::NoCancellation lGuard;
    if (!osx::PortConnection::end(aSocket)) {
        lStream->close();
        delete lStream;
    }
    aSocket = nullptr;
    return 0;
}

unsigned long osxGetPeername(void* aSocket, unsigned long& aIpAddr) {
    auto* const lStream =
        DiagnosticLine(osx::kOsxModule)
            .object<ACE_SOCK_Stream>(aSocket, LM_ERROR, "%t osxGetPeername: lSOCK_Stream == 0 \n");
    if (lStream == nullptr) {
        return kFailed;
    }
    ACE_INET_Addr lAddress;
    if (lStream->get_remote_addr(lAddress) == -1) {
        DiagnosticLine(osx::kOsxModule)
            .failure(LM_ERROR, "%t osxGetPeername: get_remote_addr failed \n");
        return kFailed;
    }
    aIpAddr = lAddress.get_ip_address();
    return 0;
}

unsigned long osxGetIpAddr(unsigned long& aIpAddr) {
    ACE_INET_Addr lAddress;
    bool lFound = false;
    if (!findOwnAddress(lAddress, lFound)) {
        return kFailed;
    }
    if (lFound) {
        aIpAddr = lAddress.get_ip_address();
    }
    return 0;
}

unsigned long osxGetIpAddr(char* aText) {
    ACE_INET_Addr lAddress;
    bool lFound = false;
    if (!findOwnAddress(lAddress, lFound)) {
        return kFailed;
    }
    if (lFound) {
        lAddress.get_host_addr(aText, kAddressSize);
    }
    return 0;
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
        DiagnosticLine(osx::kOsxModule).failure(LM_ERROR, "%t osxGetHostname: aHost == 0 \n");
        return kFailed;
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
