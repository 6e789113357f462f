// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "calling/Board.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace calling {

Board::Board(const char* aFile) {
    const int lFile = ::open(aFile, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    constexpr std::size_t kSize = kLines * sizeof(Count);
    void* const lMapped =
        lFile == -1 || ::ftruncate(lFile, static_cast<off_t>(kSize)) == -1
            ? MAP_FAILED
            : ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, lFile, 0);
    if (lMapped == MAP_FAILED) {
        std::perror(aFile);
        std::exit(2);
    }
    ::close(lFile);
    mLines = static_cast<Count*>(lMapped);
}

Count& Board::add(const char* aName) {
    if (mUsed + 1 == kLines) {
        std::fputs("no line left on the board\n", stderr);
        std::exit(2);
    }
    Count& lLine = mLines[mUsed++];
    std::snprintf(lLine.name.data(), lLine.name.size(), "%s", aName);
    return lLine;
}

}  // namespace calling
