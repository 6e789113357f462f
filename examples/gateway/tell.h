// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the gateway tells whoever watches its standard output.
#ifndef GATEWAY_TELL_H
#define GATEWAY_TELL_H

namespace gateway {

/// Writes a line to standard output, as `printf`, if that takes it at once; else the line is lost.
/// A terminal that has been stopped, or a pipe that nobody reads, would hold up the thread that
/// writes: a timer's callback, and with it every client, or the end of the program.
[[gnu::format(printf, 1, 2)]] void tell(const char* aFormat, ...);

}  // namespace gateway

#endif
