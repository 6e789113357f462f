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

}  // namespace test

#endif
