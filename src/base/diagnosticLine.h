// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The one way in which the library writes a diagnostic line.
#ifndef OSX_BASE_DIAGNOSTICLINE_H
#define OSX_BASE_DIAGNOSTICLINE_H

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "ace/ACE.h"
#include "ace/Log_Priority.h"
#include "base/debugLevel.h"

namespace osx {

/// @return whether a trace line of this level is to be written.
inline bool isTraced(unsigned int aLevel) noexcept {
    return getLogLevel() >= aLevel && ACE::debug();
}

/// A line about to be written: who writes it, and the `errno` of the moment.
///
/// Construct it where the line is due, so that it records that source line, and call one of its
/// operations. `errno` is the same afterwards as before.
///
/// A line never ends the process. It is lost when standard error has no reader any more, a file may
/// not grow, or a back end of the application's throws. A line for which there is no memory is
/// written to standard error by the library itself, if lines go there (ACE's flag STDERR). Else it
/// is lost, and the next line for which there is memory stands behind one that tells how many were.
///
/// Writing may be a cancellation point. Where a cancelled thread must not be unwound, as in a
/// destructor, hold a `NoCancellation`.
///
/// Formats are those of `printf`, with "%t", "%N", "%l" and "%T" for the thread, the module, the
/// line and the time, as `ACE_Log_Msg::log` has them. Integers and pointers are handed over as 32
/// bits in both word sizes, so that "%d" and "%x" always fit. A text ("%s") that is too long for
/// the line is cut, so that the rest of the line is still there, and its newline always is.
class DiagnosticLine {
public:
    /// @param aModule name of the source module, with extension; a literal.
    /// @param aLine left to the compiler.
    explicit DiagnosticLine(const char* aModule, int aLine = __builtin_LINE()) noexcept
        : mModule(aModule), mLine(aLine), mErrno(errno) {}

    /// Writes a failure line, whatever the debug level.
    template <class... Arguments>
    void failure(ACE_Log_Priority aPriority, const char* aFormat, Arguments... aArguments) const {
        write(*this, aPriority, kFailure, textLength(aArguments...), aFormat,
              argument(aArguments)...);
    }

    /// Writes a trace line at LM_DEBUG, if lines of this level are wanted.
    template <class... Arguments>
    void trace(unsigned int aLevel, const char* aFormat, Arguments... aArguments) const {
        if (isTraced(aLevel)) {
            write(*this, LM_DEBUG, kTrace, textLength(aArguments...), aFormat,
                  argument(aArguments)...);
        }
    }

    /// Writes a line at LM_DEBUG that reports no failure, whatever the debug level.
    template <class... Arguments>
    void notice(const char* aFormat, Arguments... aArguments) const {
        write(*this, LM_DEBUG, kTrace, textLength(aArguments...), aFormat, argument(aArguments)...);
    }

private:
    static constexpr int kFailure = -1;
    static constexpr int kTrace = 0;

    static const char* argument(const char* aText) noexcept { return aText; }
    static const char* argument(char* aText) noexcept { return aText; }
    static double argument(double aNumber) noexcept { return aNumber; }

    template <class T>
    static std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>, std::uint32_t> argument(
        T aNumber) noexcept {
        return static_cast<std::uint32_t>(aNumber);
    }
    template <class T>
    static std::uint32_t argument(T* aPointer) noexcept {
        return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(aPointer));
    }

    /// @return the length of the texts among the arguments.
    template <class... Arguments>
    static std::size_t textLength(Arguments... aArguments) noexcept {
        return (std::size_t{0} + ... + lengthOf(argument(aArguments)));
    }
    static std::size_t lengthOf(const char* aText) noexcept {
        return aText == nullptr ? sizeof "(null)" : std::strlen(aText);
    }
    template <class Number>
    static std::size_t lengthOf(Number) noexcept {
        return 0;
    }

    /// `aLine` comes by value: with its address taken, a line would cost something even where it is
    /// not written. Cold, so that what leads here is compiled for size.
    [[gnu::cold]] static void write(DiagnosticLine aLine, ACE_Log_Priority aPriority, int aStatus,
                                    std::size_t aTextLength, const char* aFormat, ...);

    const char* mModule;
    int mLine;   ///< In the source.
    int mErrno;  ///< What it was when the line was due, which is what the line tells.
};

}  // namespace osx

#endif
