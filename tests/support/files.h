// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Files as a whole.
#ifndef OSX_TESTS_SUPPORT_FILES_H
#define OSX_TESTS_SUPPORT_FILES_H

#include <fstream>
#include <iterator>
#include <string>

namespace test {

/// @return all that a file holds; nothing of one that cannot be read.
inline std::string contentsOf(const std::string& aPath) {
    std::ifstream lFile(aPath);
    return {std::istreambuf_iterator<char>(lFile), std::istreambuf_iterator<char>()};
}

/// @return what a source holds below the lines that name its licence, as a page shows it.
inline std::string programIn(const std::string& aPath) {
    const std::string lSource = contentsOf(aPath);
    std::size_t lBegin = 0;
    while (lSource.compare(lBegin, 8, "// SPDX-") == 0) {
        lBegin = lSource.find('\n', lBegin) + 1;
    }
    return lSource.substr(lBegin > 0 ? lBegin + 1 : 0);  // and an empty line
}

}  // namespace test

#endif
