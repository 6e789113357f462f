// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A GPS receiver that never left the desk: it sails a circle and tells where it is.
#ifndef EXAMPLES_INSTRUMENT_RECEIVER_H
#define EXAMPLES_INSTRUMENT_RECEIVER_H

#include <string>

namespace instrument {

class Receiver {
public:
    /// @param aCorruptEvery spoil every Nth sentence; 0 for none.
    explicit Receiver(unsigned int aCorruptEvery) : mCorruptEvery(aCorruptEvery) {}

    /// @return the next sentence, with its line end. Fixes and courses take turns.
    std::string next();

    unsigned int count() const { return mCount; }

private:
    unsigned int mCorruptEvery;
    unsigned int mCount = 0;
};

}  // namespace instrument

#endif
