// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The pieces of programs on a page.
#ifndef OSX_TESTS_EXAMPLES_QUOTES_H
#define OSX_TESTS_EXAMPLES_QUOTES_H

#include <string>
#include <vector>

#include "support/files.h"

namespace test {

/// A block of C++ on a page, and the file that the comment above it names: `<!-- step1.cpp -->`.
struct Quote {
    std::string file;
    std::string text;
};

/// @return all blocks of C++; the name of the file is empty where no comment stands.
inline std::vector<Quote> quotesOn(const std::string& aPage) {
    const std::string lFence = "```cpp\n";
    const std::string lPage = contentsOf(aPage);
    std::vector<Quote> lQuotes;
    for (std::size_t lAt = lPage.find(lFence); lAt != std::string::npos;) {
        const std::size_t lBegin = lAt + lFence.size();
        const std::size_t lEnd = lPage.find("```", lBegin);
        Quote lQuote{"", lPage.substr(lBegin, lEnd - lBegin)};
        const std::size_t lName = lPage.rfind("<!-- ", lAt);
        if (lName != std::string::npos && lPage.find(" -->\n", lName) + 5 == lAt) {
            lQuote.file = lPage.substr(lName + 5, lAt - lName - 10);
        }
        lQuotes.push_back(lQuote);
        lAt = lPage.find(lFence, lEnd);
    }
    return lQuotes;
}

}  // namespace test

#endif
