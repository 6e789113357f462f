// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Makes lines of bytes.
#ifndef EXAMPLES_GATEWAY_LINEASSEMBLER_H
#define EXAMPLES_GATEWAY_LINEASSEMBLER_H

#include <string>

namespace gateway {

class LineAssembler {
public:
    /// The longest line kept; NMEA 0183 allows 82 characters. What goes beyond is not a sentence,
    /// and its rest is skipped up to the next line end.
    static constexpr std::size_t kLongestLine = 256;

    /// @return true when the byte completes a line, which `line` then gives without its end.
    bool add(unsigned char aByte);

    const std::string& line() const { return mLine; }

    /// Forgets an unfinished line, as when the instrument was lost in the middle of it.
    void clear();

private:
    std::string mLine;
    bool mComplete = false;
};

}  // namespace gateway

#endif
