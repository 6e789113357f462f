// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "LineAssembler.h"
#include "fuzz/require.h"

namespace {

using gateway::LineAssembler;

/// @return the lines of a text that ends with a line end, as the assembler is to give them.
std::vector<std::string> linesOf(const std::string& aText) {
    std::vector<std::string> lLines;
    std::size_t lBegin = 0;
    for (std::size_t lEnd = 0; (lEnd = aText.find('\n', lBegin)) != std::string::npos;) {
        std::string lLine =
            aText.substr(lBegin, std::min(lEnd - lBegin, LineAssembler::kLongestLine));
        if (!lLine.empty() && lLine.back() == '\r') {
            lLine.pop_back();
        }
        if (!lLine.empty()) {
            lLines.push_back(lLine);
        }
        lBegin = lEnd + 1;
    }
    return lLines;
}

}  // namespace

// Any bytes give the lines that they have, and no line is longer than it may be.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    LineAssembler lAssembler;
    std::vector<std::string> lLines;
    for (std::size_t lIndex = 0; lIndex < aSize; ++lIndex) {
        if (lAssembler.add(aData[lIndex])) {
            lLines.push_back(lAssembler.line());
        }
        require(lAssembler.line().size() <= LineAssembler::kLongestLine);
    }
    require(lLines == linesOf(std::string(reinterpret_cast<const char*>(aData), aSize)));
    lAssembler.clear();
    require(!lAssembler.add('\n'));
    return 0;
}
