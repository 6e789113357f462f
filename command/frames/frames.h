// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// `osx frames`.
#ifndef OSX_COMMAND_FRAMES_FRAMES_H
#define OSX_COMMAND_FRAMES_FRAMES_H

#include <cstddef>
#include <string>

namespace command {

struct FramesOptions {
    std::string address;  ///< "host:port".
    bool hex = false;     ///< Bytes in hexadecimal rather than as text.
    bool json = false;
    std::size_t limit = 1024UL * 1024;  ///< Bytes of a block; a longer one ends its connection.
    unsigned long count = 0;            ///< How many to show; 0 for all that come.
};

/// Shows the blocks that a port broadcasts. @return the exit status.
int frames(const FramesOptions& aOptions);

}  // namespace command

#endif
