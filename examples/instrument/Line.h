// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The line that the instrument speaks on, beside TCP: a serial port or a pseudo terminal.
#ifndef EXAMPLES_INSTRUMENT_LINE_H
#define EXAMPLES_INSTRUMENT_LINE_H

#include <string>

#include "options.h"

namespace instrument {

class Line {
public:
    /// Opens what the options ask for, if anything.
    explicit Line(const Options& aOptions);
    ~Line();

    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// @return false when a line was asked for and could not be opened.
    bool usable() const { return mUsable; }

    void write(const std::string& aText) const;

private:
    void openPty();
    void openSerial(const Options& aOptions);

    bool mUsable = true;
    int mPty = -1;
    int mSerial = -1;
};

}  // namespace instrument

#endif
