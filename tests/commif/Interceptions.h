// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Makes calls beneath the device channels give what they give only on a machine in trouble.
#ifndef OSX_TESTS_COMMIF_INTERCEPTIONS_H
#define OSX_TESTS_COMMIF_INTERCEPTIONS_H

#include <optional>

namespace test {

/// What intercepted calls return; those without a value do their work.
struct Forced {
    std::optional<unsigned int> msgRecv;
    std::optional<unsigned int> msgSend;
    std::optional<unsigned long> lastNetworkError;
    bool statFails = false;
    bool cancelsAtClose = false;  ///< Whoever calls `close` is cancelled there.
    /// How many calls of `copy_file_range` copy, each no more than 1000 bytes; those after them
    /// give `kernelCopyEnd`: 0, or -1 with ENOSYS.
    std::optional<int> kernelCopies = {};
    int kernelCopyEnd = -1;
};

/// Forces results while it lives. One at a time.
class Interception {
public:
    explicit Interception(const Forced& aForced);
    ~Interception();
    Interception(const Interception&) = delete;
    Interception& operator=(const Interception&) = delete;

    /// @return how many more calls of `copy_file_range` would copy.
    int kernelCopiesLeft() const;
};

/// @return how often the process has looked for pending signals so far.
int signalLooks();

}  // namespace test

#endif
