// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A command line made of a fuzzer's input, and programs that end instead of returning.
#ifndef OSX_TESTS_FUZZ_ARGUMENTS_H
#define OSX_TESTS_FUZZ_ARGUMENTS_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// Arguments, with the null pointer behind them, as `main` gets them.
class Arguments {
public:
    explicit Arguments(std::vector<std::string> aTexts) : mTexts(std::move(aTexts)) {
        for (std::string& lText : mTexts) {
            mPointers.push_back(lText.data());
        }
        mPointers.push_back(nullptr);
    }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    int count() const { return static_cast<int>(mTexts.size()); }
    char** values() { return mPointers.data(); }
    const std::vector<std::string>& texts() const { return mTexts; }

private:
    std::vector<std::string> mTexts;
    std::vector<char*> mPointers;
};

/// @param aWords names that a command line is likely to have.
/// @return a program's name and arguments: a byte below the number of words stands for that word,
///         another one for a text of its own; a byte of 0xFF joins two.
inline std::vector<std::string> argumentsFrom(const std::uint8_t* aData, std::size_t aSize,
                                              const std::vector<std::string>& aWords) {
    std::vector<std::string> lTexts{"program"};
    bool lJoin = false;
    for (std::size_t lIndex = 0; lIndex < aSize; ++lIndex) {
        const std::uint8_t lByte = aData[lIndex];
        if (lByte == 0xFF) {
            lJoin = true;
            continue;
        }
        std::string lText = lByte < aWords.size() ? aWords[lByte] : std::string();
        while (lText.empty() && lIndex < aSize && aData[lIndex] >= ' ' && aData[lIndex] < 0x7F) {
            lText += static_cast<char>(aData[lIndex++]);
        }
        if (std::exchange(lJoin, false)) {
            lTexts.back() += lText;
        } else {
            lTexts.push_back(lText);
        }
    }
    return lTexts;
}

#endif
