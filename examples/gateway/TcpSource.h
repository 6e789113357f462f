/// @file
/// An instrument that is reached by TCP.
#ifndef EXAMPLES_GATEWAY_TCPSOURCE_H
#define EXAMPLES_GATEWAY_TCPSOURCE_H

#include <string>

#include "Source.h"
#include "osx/osx.h"

namespace gateway {

class TcpSource : public Source {
public:
    /// @param aAddress "host:port".
    explicit TcpSource(std::string aAddress);
    ~TcpSource() override;

    TcpSource(const TcpSource&) = delete;
    TcpSource& operator=(const TcpSource&) = delete;

    Result read(unsigned char& aByte) override;
    void interrupt() override;

private:
    bool connect();
    void disconnect();

    std::string mAddress;
    void* mSocket = nullptr;
    bool mInterrupted = false;
    /// Guards `mSocket` as seen by `interrupt`, and `mInterrupted`.
    osxCriticalSection_t mSection;
};

}  // namespace gateway

#endif
