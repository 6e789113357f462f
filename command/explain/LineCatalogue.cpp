// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "explain/LineCatalogue.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>

#include "common/Pattern.h"
#include "common/text.h"
#include "explain/embedded.h"

namespace command {

namespace {

/// Longer than any line of the library's.
constexpr std::size_t kLongestText = 4096;

std::string_view expressionFor(char aConversion) {
    switch (aConversion) {
        case 't':
        case 'l':
        case 'u':
            return "[0-9]+";
        case 'd':
            return "-?[0-9]+";
        case 'x':
            return "[0-9a-fA-F]+";
        case 'f':
            return "-?[0-9.]+";
        default:
            return ".*";
    }
}

/// A format's text and its conversions, one call each.
template <class TakeText, class TakeConversion>
void forEachPart(std::string_view aFormat, TakeText aTakeText, TakeConversion aTakeConversion) {
    for (std::size_t lAt = 0; lAt < aFormat.size(); ++lAt) {
        if (aFormat[lAt] != '%' || lAt + 1 == aFormat.size()) {
            aTakeText(aFormat[lAt]);
            continue;
        }
        const std::size_t lLetter = aFormat.find_first_not_of('l', lAt + 1);
        const bool lIsLength = lLetter != std::string_view::npos &&
                               (aFormat[lLetter] == 'u' || aFormat[lLetter] == 'd');
        lAt = lIsLength ? lLetter : lAt + 1;
        aTakeConversion(aFormat[lAt]);
    }
}

std::size_t ownWordsOf(std::string_view aFormat) {
    std::size_t lCount = 0;
    forEachPart(aFormat, [&lCount](char) { ++lCount; }, [](char) {});
    return lCount;
}

/// Sources and devices differ in the number of spaces alone.
std::string withSingleSpaces(std::string_view aText) {
    std::string lText;
    for (const char lByte : trimmed(aText.substr(0, kLongestText))) {
        const char lNext = lByte == '\t' || lByte == '\n' || lByte == '\r' ? ' ' : lByte;
        if (lNext != ' ' || lText.empty() || lText.back() != ' ') {
            lText += lNext;
        }
    }
    return lText;
}

}  // namespace

std::string expressionOf(std::string_view aFormat) {
    constexpr std::string_view kThread = "%t ";
    constexpr std::string_view kSpecial = "\\^$.[]|()*+?{}";
    if (aFormat.substr(0, kThread.size()) == kThread) {
        aFormat.remove_prefix(kThread.size());
    }
    std::string lExpression;
    forEachPart(
        aFormat,
        [&](char aByte) {
            if (kSpecial.find(aByte) != std::string_view::npos) {
                lExpression += '\\';
            }
            lExpression += aByte;
        },
        [&](char aConversion) { lExpression += expressionFor(aConversion); });
    return lExpression;
}

std::vector<KnownLine> allLines() {
    std::vector<KnownLine> lLines;
    for (const YAML::Node& lEntry : YAML::Load(std::string(kLineCatalogue))) {
        KnownLine lLine;
        lLine.format = lEntry["line"].as<std::string>();
        lLine.from = lEntry["from"].as<std::vector<std::string>>();
        lLine.when = lEntry["when"].as<std::string>();
        lLine.why = trimmed(lEntry["why"].as<std::string>());
        lLine.toDo = trimmed(lEntry["do"].as<std::string>());
        lLines.push_back(lLine);
    }
    return lLines;
}

std::vector<KnownLine> linesLike(std::string_view aText, const std::vector<KnownLine>& aLines) {
    const std::string lText = withSingleSpaces(aText);
    std::vector<KnownLine> lBest;
    std::size_t lMostWords = 0;
    for (const KnownLine& lLine : aLines) {
        const std::size_t lWords = ownWordsOf(lLine.format);
        if (lWords < lMostWords || !Pattern(expressionOf(lLine.format)).isIn(lText)) {
            continue;
        }
        if (lWords > lMostWords) {
            lBest.clear();
            lMostWords = lWords;
        }
        lBest.push_back(lLine);
    }
    return lBest;
}

}  // namespace command
