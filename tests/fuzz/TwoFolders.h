// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Two folders that are to stay alike: one used through the library, one by plain system calls.
#ifndef OSX_TESTS_FUZZ_TWOFOLDERS_H
#define OSX_TESTS_FUZZ_TWOFOLDERS_H

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "fuzz/require.h"

class TwoFolders {
public:
    /// In memory, where there is such a file system. The process works in the first folder.
    TwoFolders() {
        const bool lInMemory = ::access("/dev/shm", W_OK) == 0;
        mRoot = lInMemory ? "/dev/shm" : std::filesystem::temp_directory_path().string();
        mRoot += "/osx-fuzz-XXXXXX";
        require(::mkdtemp(mRoot.data()) != nullptr);
        require(::mkdir(ours().c_str(), 0700) == 0 && ::mkdir(plain().c_str(), 0700) == 0);
        require(::chdir(ours().c_str()) == 0);
        mPlain = ::open(plain().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }
    ~TwoFolders() {
        ::close(mPlain);
        std::error_code lIgnored;
        std::filesystem::remove_all(mRoot, lIgnored);
    }
    TwoFolders(const TwoFolders&) = delete;
    TwoFolders& operator=(const TwoFolders&) = delete;

    std::string ours() const { return mRoot + "/ours"; }
    std::string plain() const { return mRoot + "/plain"; }
    /// @return a descriptor of the second one.
    int plainDescriptor() const { return mPlain; }

    void requireAlike() const { require(contentOf(ours()) == contentOf(plain())); }

    void empty() const {
        for (const std::string& lFolder : {ours(), plain()}) {
            for (const auto& lEntry : std::filesystem::directory_iterator(lFolder)) {
                std::filesystem::remove(lEntry.path());
            }
        }
    }

private:
    static std::map<std::string, std::string> contentOf(const std::string& aFolder) {
        std::map<std::string, std::string> lContent;
        for (const auto& lEntry : std::filesystem::directory_iterator(aFolder)) {
            std::ifstream lFile(lEntry.path(), std::ios::binary);
            lContent[lEntry.path().filename().string()] = {std::istreambuf_iterator<char>(lFile),
                                                           std::istreambuf_iterator<char>()};
        }
        return lContent;
    }

    std::string mRoot;
    int mPlain = -1;
};

#endif
