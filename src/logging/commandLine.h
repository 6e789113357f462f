// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Takes options out of an application's command line.
#ifndef OSX_LOGGING_COMMANDLINE_H
#define OSX_LOGGING_COMMANDLINE_H

#include <cstddef>

namespace osx {

/// An option and its effect.
struct CommandLineOption {
    const char* mName;  ///< Compared in full, without regard to case.
    bool mTakesValue;
    /// Called with the value, which is null if the next argument is missing or begins with '-', and
    /// for an option that takes none.
    void (*mApply)(const char* aValue);
};

/// Applies the options in a command line, from first to last. The other arguments are moved to the
/// front, in their order, and `aNumber` becomes their number. Options go to the end, and with an
/// option that takes a value the argument that follows it, even if that was no value.
///
/// When memory is short, `errno` is ENOMEM, and nothing is applied or moved.
void applyOptions(int& aNumber, char** aArguments, const CommandLineOption* aOptions,
                  std::size_t aNumberOfOptions);

}  // namespace osx

#endif
