#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "ace/OS_NS_stdio.h"
#include "commif/commif.h"
#include "commif/console.h"
#include "commif/formatText.h"
#include "commif/pipeSignal.h"

namespace osx {

ssize_t writeToConsole(const void* aData, std::size_t aLength) noexcept {
    const PipeSignalGuard lGuard;
    // What is still buffered in the stream was printed earlier and has to come out earlier.
    std::fflush(stdout);
    return ::write(STDOUT_FILENO, aData, aLength);
}

}  // namespace osx

namespace {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
/// Prints a format that holds at most one conversion. There are no arguments to convert, so all
/// that a conversion may fetch, its width and precision included, is zero or null, in whatever
/// registers or part of the stack it looks for it.
void printWithZeros(const char* aFormat) {
    ACE_OS::printf(aFormat, 0LL, 0LL, 0LL, 0LL, 0.0, 0.0L);
}
#pragma GCC diagnostic pop

/// What must not be converted without an argument: "%n", which writes through it, and conversions
/// that choose their argument by position.
bool isHarmful(const char* aConversion, char aKind) {
    return aKind == 'n' || std::strchr(aConversion, '$') != nullptr;
}

/// Prints a text as a format once more, conversion by conversion.
void printAsFormat(char* aText) {
    while (char* lConversion = std::strchr(aText, '%')) {
        char* lKind = lConversion + 1 + std::strspn(lConversion + 1, "0123456789$-+ #'I*.hlLqjzt");
        if (*lKind == '\0') {
            break;
        }
        const char lNext = lKind[1];
        lKind[1] = '\0';
        if (isHarmful(lConversion, *lKind)) {
            *lConversion = '\0';
        }
        printWithZeros(aText);
        lKind[1] = lNext;
        aText = lKind + 1;
    }
    printWithZeros(aText);
}

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
    std::array<char, 1024> lText;
    va_list lArguments;
    va_start(lArguments, aFormat);
    osx::formatText(lText, aFormat, lArguments);
    va_end(lArguments);
    const osx::PipeSignalGuard lGuard;
    printAsFormat(lText.data());
    // Nothing may stay behind that the end of the process would write without the guard.
    std::fflush(stdout);
    return 1;
}
