// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A command line as `main` gets it.
#ifndef OSX_TESTS_LOGGING_ARGUMENTS_H
#define OSX_TESTS_LOGGING_ARGUMENTS_H

#include <string>
#include <utility>
#include <vector>

#include "logging/Logging.h"

namespace test {

class Arguments {
public:
    explicit Arguments(std::vector<std::string> aTexts) : mTexts(std::move(aTexts)) {
        for (std::string& lText : mTexts) {
            mPointers.push_back(lText.data());
        }
        mPointers.push_back(nullptr);
        mNumber = static_cast<int>(mTexts.size());
    }

    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    /// Has the options taken out. @return this.
    Arguments& init(bool aNetworkLogging = false) {
        LogInit(mNumber, mPointers.data(), aNetworkLogging);
        return *this;
    }

    /// @return the arguments that were kept.
    std::vector<std::string> kept() const {
        return {mPointers.begin(), mPointers.begin() + mNumber};
    }

    /// @return the whole vector.
    std::vector<std::string> all() const { return {mPointers.begin(), mPointers.end() - 1}; }

private:
    std::vector<std::string> mTexts;
    std::vector<char*> mPointers;
    int mNumber = 0;
};

}  // namespace test

#endif
