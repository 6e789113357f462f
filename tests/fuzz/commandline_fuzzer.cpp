// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/arguments.h"
#include "fuzz/require.h"
#include "logging/commandLine.h"

namespace {

/// What was applied, in order; an option without a value, or without its value, has "-".
std::vector<std::string> gApplied;

template <char kName>
void apply(const char* aValue) {
    gApplied.push_back(std::string(1, kName) + (aValue == nullptr ? "-" : aValue));
}

constexpr osx::CommandLineOption kOptions[] = {{"-LogFile", true, apply<'f'>},
                                               {"-Debug", false, apply<'d'>},
                                               {"-DebugLevel", true, apply<'l'>}};
constexpr char kNames[] = {'f', 'd', 'l'};

/// @return the index of an option in the table; -1 if the text is none.
int optionOf(const std::string& aText) {
    for (int lIndex = 0; lIndex < 3; ++lIndex) {
        if (::strcasecmp(aText.c_str(), kOptions[lIndex].mName) == 0) {
            return lIndex;
        }
    }
    return -1;
}

/// Walks over the arguments as it is promised. @return those that are kept.
std::vector<std::string> walk(const std::vector<std::string>& aTexts,
                              std::vector<std::string>& aApplied) {
    std::vector<std::string> lKept;
    for (std::size_t lIndex = 0; lIndex < aTexts.size(); ++lIndex) {
        const int lOption = optionOf(aTexts[lIndex]);
        if (lOption == -1) {
            lKept.push_back(aTexts[lIndex]);
            continue;
        }
        std::string lValue = "-";
        if (kOptions[lOption].mTakesValue && ++lIndex < aTexts.size() &&
            aTexts[lIndex].front() != '-') {
            lValue = aTexts[lIndex];
        }
        aApplied.push_back(kNames[lOption] + lValue);
    }
    return lKept;
}

std::vector<std::string> sorted(std::vector<std::string> aTexts) {
    std::sort(aTexts.begin(), aTexts.end());
    return aTexts;
}

}  // namespace

// Options are applied and taken out, all else is kept in its order, and nothing is lost.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    Arguments lArguments(argumentsFrom(aData, aSize,
                                       {"-LogFile", "-Debug", "-DebugLevel", "-logfile", "-DEBUG",
                                        "-debuglevel", "-DebugLevel5", "-", "7", "file.txt"}));
    gApplied.clear();
    int lNumber = lArguments.count();
    osx::applyOptions(lNumber, lArguments.values(), kOptions, std::size(kOptions));
    std::vector<std::string> lApplied;
    const std::vector<std::string> lKept = walk(lArguments.texts(), lApplied);
    char** const lValues = lArguments.values();
    require(gApplied == lApplied);
    require(std::vector<std::string>(lValues, lValues + lNumber) == lKept);
    require(lValues[lArguments.count()] == nullptr);
    require(sorted({lValues, lValues + lArguments.count()}) == sorted(lArguments.texts()));
    return 0;
}
