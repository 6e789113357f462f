// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A serial line without hardware: a pseudo terminal that the library opens as one of its ports.
#ifndef OSX_TESTS_COMMIF_SERIALLINE_H
#define OSX_TESTS_COMMIF_SERIALLINE_H

#include <chrono>
#include <string>

#include "support/TcpPeer.h"

namespace test {

/// The driver's own timer counts in tenths of a second.
inline constexpr std::chrono::milliseconds kLongerThanATenth{150};

/// The line's far end is the test's; its near end is to be found at "/dev/ttyS" and a number that
/// no other process uses: through a link where that may be made, else by leading this process's
/// `open` astray.
class SerialLine {
public:
    SerialLine();
    ~SerialLine();
    SerialLine(const SerialLine&) = delete;
    SerialLine& operator=(const SerialLine&) = delete;

    /// @return the number by which `commIfSerialOpen` finds the near end.
    unsigned int port() const { return mNumber + 1; }
    /// @return the path of that port.
    std::string path() const { return "/dev/ttyS" + std::to_string(mNumber); }
    /// @return the near end's own path.
    const std::string& terminal() const { return mTerminal; }

    /// @return the far end.
    int farEnd() const { return mFarEnd.get(); }
    /// Writes to the far end.
    void send(const std::string& aData) const;
    /// Reads exactly that many bytes from the far end. @return them; fewer after 30 s.
    std::string receive(std::size_t aLength) const;
    /// @return whether the near end is open somewhere.
    bool isOpen() const;
    /// Closes the far end, which hangs up the near end.
    void hangUp() { mFarEnd.reset(); }

private:
    Descriptor mFarEnd;
    std::string mTerminal;
    unsigned int mNumber;
    bool mLinked;
};

/// Waits until so many bytes can be read, as the driver hands them on by a thread of its own.
void awaitInput(int aNearEnd, int aLength);

/// @return how many descriptors this process has open.
int openDescriptors();

}  // namespace test

#endif
