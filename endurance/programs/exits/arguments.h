// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the program was told: a way out, what its threads do meanwhile, and its ports.
#ifndef OSX_ENDURANCE_EXITS_ARGUMENTS_H
#define OSX_ENDURANCE_EXITS_ARGUMENTS_H

#include <unistd.h>

#include <atomic>
#include <string>

namespace exits {

/// What the program ends with, whichever way it takes.
constexpr int kStatus = 7;

/// Ports of this machine, which the caller has chosen.
struct Ports {
    unsigned short busy = 0;    ///< Where connections come and go all the time.
    unsigned short ending = 0;  ///< Whose callback ends the process.
};

/// Whether a child that is forked now may end by `exit`. Not once the process is about to end: in
/// the child's copy the C library's lock of `exit` may be held, for ever. Nor once another thread
/// uses an object that `exit` destroys.
inline std::atomic<bool> gChildMayExit{true};

inline void print(const std::string& aText) {
    [[maybe_unused]] const ssize_t lIgnored = ::write(STDOUT_FILENO, aText.data(), aText.size());
}

}  // namespace exits

#endif
