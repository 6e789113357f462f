#include "TcpSource.h"

#include <utility>

#include "ace/SOCK_Stream.h"

namespace gateway {

TcpSource::TcpSource(std::string aAddress) : mAddress(std::move(aAddress)) {
    osxInitializeCriticalSection(&mSection);
}

TcpSource::~TcpSource() {
    disconnect();
    osxDeleteCriticalSection(&mSection);
}

Source::Result TcpSource::read(unsigned char& aByte) {
    if (mSocket == nullptr && !connect()) {
        return Result::lost;
    }
    unsigned long lReceived = 0;
    if (osxSocketRecv(mSocket, &aByte, 1, lReceived) == 0) {
        return Result::byte;
    }
    disconnect();
    return Result::lost;
}

bool TcpSource::connect() {
    void* lSocket = nullptr;
    if (osxOpenSocket(lSocket, mAddress.c_str()) != 0) {
        return false;
    }
    osxEnterCriticalSection(&mSection);
    mSocket = lSocket;
    const bool lInterrupted = mInterrupted;
    osxLeaveCriticalSection(&mSection);
    return !lInterrupted;
}

void TcpSource::disconnect() {
    osxEnterCriticalSection(&mSection);
    if (mSocket != nullptr) {
        osxCloseSocketAndRelease(mSocket);
    }
    osxLeaveCriticalSection(&mSection);
}

void TcpSource::interrupt() {
    osxEnterCriticalSection(&mSection);
    mInterrupted = true;
    if (mSocket != nullptr) {
        // The reader waits in a receive without limit: it ends when the connection does.
        static_cast<ACE_SOCK_Stream*>(mSocket)->close_reader();
    }
    osxLeaveCriticalSection(&mSection);
}

}  // namespace gateway
