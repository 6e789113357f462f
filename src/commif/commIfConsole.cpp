// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The console functions, which use the process's standard input and output directly and not through
// a descriptor. All but `commfprintf` write past the stream `stdout`.
#include "commif/commIfConsole.h"

#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/writeSignals.h"
#include "commif/commif.h"
#include "commif/formatText.h"
#include "commif/printAgain.h"

namespace osx {

ssize_t writeToConsole(const void* aData, std::size_t aLength) {
    const WriteSignalGuard lGuard;
    return ::write(STDOUT_FILENO, aData, aLength);
}

}  // namespace osx

namespace {

/// Holds a stream's own lock, so that other threads' output does not come in between.
class StreamLock {
public:
    explicit StreamLock(FILE* aStream) : mStream(aStream) { ::flockfile(mStream); }
    ~StreamLock() { ::funlockfile(mStream); }
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;

private:
    FILE* const mStream;
};

}  // namespace

int commfgetc(int) {
    char lCharacter = 0;
    static_cast<void>(!::read(STDIN_FILENO, &lCharacter, 1));
    return static_cast<signed char>(lCharacter);
}

int commfputc(int aCharacter, int) {
    const char lCharacter = static_cast<char>(aCharacter);
    osx::writeToConsole(&lCharacter, 1);
    return 1;
}

int commfputs(char* aText, int) {
    if (aText != nullptr) {
        osx::writeToConsole(aText, std::strlen(aText));
    }
    return 1;
}

int commfprintf(int, const char* aFormat, ...) {
    std::array<char, osx::kPrintedSize> lText;
    va_list lArguments;
    va_start(lArguments, aFormat);
    osx::formatText(lText, aFormat, lArguments);
    va_end(lArguments);
    const osx::WriteSignalGuard lGuard;
    const StreamLock lLock(stdout);
    osx::printAgain(lText.data());
    // What stayed in the stream would be written at the end of the process, without the guard.
    std::fflush(stdout);
    return 1;
}
