// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The pieces of programs and other files on a page.
#ifndef OSX_TESTS_EXAMPLES_QUOTES_H
#define OSX_TESTS_EXAMPLES_QUOTES_H

#include <string>
#include <vector>

#include "support/files.h"

namespace test {

/// A fenced block on a page, and the file that the comment above it names:
/// `<!-- step1.cpp -->`.
struct Quote {
    std::string file;
    std::string text;
};

/// @return all of them; the name of the file is empty where no comment stands.
inline std::vector<Quote> quotesOn(const std::string& aPage) {
    const std::string lPage = contentsOf(aPage);
    std::vector<Quote> lQuotes;
    for (std::size_t lFence = lPage.find("\n```"); lFence != std::string::npos;) {
        const std::size_t lBegin = lPage.find('\n', lFence + 1) + 1;
        const std::size_t lEnd = lPage.find("\n```", lBegin) + 1;
        Quote lQuote{"", lPage.substr(lBegin, lEnd - lBegin)};
        const std::size_t lName = lPage.rfind("<!-- ", lFence);
        if (lName != std::string::npos && lPage.find(" -->\n", lName) + 4 == lFence) {
            lQuote.file = lPage.substr(lName + 5, lFence - lName - 9);
        }
        lQuotes.push_back(lQuote);
        lFence = lPage.find("\n```", lEnd);
    }
    return lQuotes;
}

}  // namespace test

#endif
