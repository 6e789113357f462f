// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// An instrument that is reached by TCP. One that is silent for too long is taken for lost, though
/// its connection stands: it may hang, or have started anew behind a link that was down.
#ifndef EXAMPLES_GATEWAY_TCPSOURCE_H
#define EXAMPLES_GATEWAY_TCPSOURCE_H

#include <atomic>
#include <string>

#include "Source.h"
#include "osx/osx.h"

namespace gateway {

class TcpSource : public Source {
public:
    /// @param aAddress "host:port".
    /// @param aSilenceLimitMs after how much silence it is connected to anew; 0 for never.
    TcpSource(std::string aAddress, unsigned int aSilenceLimitMs);
    ~TcpSource() override;

    TcpSource(const TcpSource&) = delete;
    TcpSource& operator=(const TcpSource&) = delete;

    Result read(unsigned char& aByte) override;
    void interrupt() override;

private:
    static void silenceTimer(const void* aSource);

    bool connect();
    void disconnect();
    void lookForSilence();
    void endRead();

    std::string mAddress;
    void* mSocket = nullptr;
    bool mInterrupted = false;
    /// Guards `mSocket` as seen by other threads than the reader's, and `mInterrupted`.
    osxCriticalSection_t mSection;

    unsigned int mSilenceLimitMs;
    std::atomic<bool> mHeard{false};  ///< Something came since the last look.
    int mSilentLooks = 0;
    void* mSilenceTimer = nullptr;
};

}  // namespace gateway

#endif
