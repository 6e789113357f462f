// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cctype>
#include <cstdint>
#include <string>

#include "fuzz/require.h"
#include "nmea/Sentence.h"

namespace {

std::string upper(std::string aText) {
    for (char& lCharacter : aText) {
        lCharacter = static_cast<char>(std::toupper(static_cast<unsigned char>(lCharacter)));
    }
    return aText;
}

}  // namespace

// A line is valid if, and only if, it is the sentence of its body; and no single wrong bit passes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    const std::string lLine(reinterpret_cast<const char*>(aData), aSize);
    const bool lHasBody = lLine.size() > 4 && lLine.front() == '$';
    const std::string lBody = lHasBody ? lLine.substr(1, lLine.size() - 4) : std::string();
    const std::string lSum = lHasBody ? upper(lLine.substr(lLine.size() - 3)) : std::string();
    require(nmea::isValid(lLine) == (lHasBody && nmea::sentence(lBody) == "$" + lBody + lSum));
    std::string lSentence = nmea::sentence(lLine);
    require(nmea::isValid(lSentence) == !lLine.empty());
    if (!lLine.empty()) {
        lSentence[1 + aData[0] % lLine.size()] ^= static_cast<char>(1U << (aData[0] & 7U));
        require(!nmea::isValid(lSentence));
    }
    return 0;
}
