// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Where the instrument's bytes come from.
#ifndef EXAMPLES_GATEWAY_SOURCE_H
#define EXAMPLES_GATEWAY_SOURCE_H

namespace gateway {

class Source {
public:
    enum class Result {
        kByte,     ///< A byte was read.
        kNothing,  ///< None came for a while; ask again.
        kLost      ///< The instrument is not there; ask again later.
    };

    virtual ~Source() = default;

    /// Reads the next byte, connecting first where that is needed. Called by the reader's task.
    virtual Result read(unsigned char& aByte) = 0;

    /// Ends a read under way. Called by another thread, once, when the gateway stops.
    virtual void interrupt() = 0;
};

}  // namespace gateway

#endif
