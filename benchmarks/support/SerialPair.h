// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A serial port without hardware: a pseudo terminal whose near end the library opens as a port.
#ifndef OSX_BENCHMARKS_SUPPORT_SERIALPAIR_H
#define OSX_BENCHMARKS_SUPPORT_SERIALPAIR_H

#include <cstddef>
#include <string>

namespace bench {

/// The near end is found at "/dev/ttyS" and a number that no other process uses, where a link may
/// be made in /dev.
///
/// A pseudo terminal has no counters of a UART, which the library asks for at each read. In this
/// program the question is put to the kernel and answered with success, as a UART's driver does.
class SerialPair {
public:
    SerialPair();
    ~SerialPair();
    SerialPair(const SerialPair&) = delete;
    SerialPair& operator=(const SerialPair&) = delete;

    /// @return the number by which the library opens the near end; 0 if there is no link to it.
    unsigned int port() const { return mLinked ? mNumber + 1 : 0; }
    /// @return the near end's path.
    const std::string& terminal() const { return mTerminal; }
    /// Writes to the far end, and waits until the near end holds the bytes: not more than 4095.
    void send(const void* aBytes, std::size_t aSize) const;

private:
    int mFarEnd;
    std::string mTerminal;
    int mNearEnd;
    unsigned int mNumber;
    bool mLinked;
};

}  // namespace bench

#endif
