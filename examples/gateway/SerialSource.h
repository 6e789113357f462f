// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// An instrument on a serial line.
#ifndef EXAMPLES_GATEWAY_SERIALSOURCE_H
#define EXAMPLES_GATEWAY_SERIALSOURCE_H

#include <array>

#include "Source.h"
#include "commif/commif.h"

namespace gateway {

class SerialSource : public Source {
public:
    /// @param aPort number of the port, from 1: port 1 is /dev/ttyS0.
    /// @param aParity 0 none, 1 odd, 2 even.
    SerialSource(unsigned int aPort, unsigned int aBaudRate, unsigned char aParity);
    ~SerialSource() override;

    SerialSource(const SerialSource&) = delete;
    SerialSource& operator=(const SerialSource&) = delete;

    Result read(unsigned char& aByte) override;

    /// Nothing to do: a read ends by itself within its time-out.
    void interrupt() override {}

private:
    bool open();
    Result fill();
    Result readChunk(unsigned long aCount, unsigned long aTimeoutMs);

    commIfDevParams_t mParameters;
    int mDescriptor = -1;
    std::array<unsigned char, 256> mChunk;
    unsigned long mFilled = 0;
    unsigned long mUsed = 0;
};

}  // namespace gateway

#endif
