// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "board/command.h"

#include <array>
#include <cstdio>
#include <fstream>

namespace test {

std::string outputOf(const std::string& aCommand) {
    std::string lText;
    std::FILE* const lPipe = ::popen(aCommand.c_str(), "re");
    std::array<char, 256> lChunk{};
    while (std::fgets(lChunk.data(), lChunk.size(), lPipe) != nullptr) {
        lText += lChunk.data();
    }
    ::pclose(lPipe);
    if (!lText.empty() && lText.back() == '\n') {
        lText.pop_back();
    }
    return lText;
}

std::string firstLineOf(const std::string& aFile) {
    std::ifstream lStream(aFile);
    std::string lLine;
    std::getline(lStream, lLine);
    return lLine;
}

}  // namespace test
