// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A folder for the time of a test.
#ifndef OSX_TESTS_COMMAND_FOLDER_H
#define OSX_TESTS_COMMAND_FOLDER_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace test {

class Folder {
public:
    Folder() {
        std::string lName = std::filesystem::temp_directory_path() / "osx-command-XXXXXX";
        mPath = ::mkdtemp(lName.data());
    }
    ~Folder() {
        std::error_code lError;
        std::filesystem::remove_all(mPath, lError);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& path() const { return mPath; }

    /// Writes a file, and the folders to it. @return its path.
    std::string write(const std::string& aName, const std::string& aText) const {
        const std::filesystem::path lPath = std::filesystem::path(mPath) / aName;
        std::filesystem::create_directories(lPath.parent_path());
        std::ofstream(lPath) << aText;
        return lPath;
    }

private:
    std::string mPath;
};

}  // namespace test

#endif
