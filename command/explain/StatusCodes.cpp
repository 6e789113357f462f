// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "explain/StatusCodes.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>

#include "common/text.h"
#include "explain/embedded.h"

namespace command {

namespace {

constexpr std::string_view kIdentifier =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";
constexpr std::string_view kResult = "@retval ";

bool startsWith(std::string_view aText, std::string_view aStart) {
    return aText.substr(0, aStart.size()) == aStart;
}

std::string_view firstWord(std::string_view aText) {
    return aText.substr(0, aText.find_first_not_of(kIdentifier));
}

/// Reads "constexpr int NAME = 5;  ///< Meaning." @return whether it is that, of a status.
bool readConstant(std::string_view aLine, StatusCode& aCode) {
    const std::size_t lEqual = aLine.find(" = ");
    const std::size_t lEnd = aLine.find(';');
    const std::size_t lMeaning = aLine.find("///< ");
    if (!startsWith(aLine, "constexpr ") || lEqual == std::string_view::npos ||
        lEnd == std::string_view::npos || lMeaning == std::string_view::npos) {
        return false;
    }
    const std::size_t lName = aLine.rfind(' ', lEqual - 1) + 1;
    aCode.name = aLine.substr(lName, lEqual - lName);
    const auto lNumber = toNumber(aLine.substr(lEqual + 3, lEnd - lEqual - 3), 0, 0xFFFFFFFFUL);
    const std::string& lText = aCode.name;
    const bool lIsStatus = lText.find("_ERR_") != std::string::npos ||
                           (lText.size() > 3 && lText.substr(lText.size() - 3) == "_OK");
    aCode.number = lNumber.value_or(0);
    aCode.meaning = trimmed(aLine.substr(lMeaning + 5));
    return lNumber.has_value() && lIsStatus;
}

/// One line after another of a header; knows the comment that precedes a function.
class HeaderReader {
public:
    HeaderReader(std::vector<StatusCode>& aCodes, std::string aHeader)
        : mCodes(aCodes), mHeader(std::move(aHeader)) {}

    void read(std::string_view aLine) {
        StatusCode lCode;
        const std::string_view lText = trimmed(aLine);
        if (readConstant(lText, lCode)) {
            lCode.header = mHeader;
            mCodes.push_back(lCode);
        } else if (startsWith(lText, "///")) {
            readComment(trimmed(lText.substr(3)));
        } else {
            readDeclaration(lText);
        }
    }

private:
    void readComment(std::string_view aText) {
        if (startsWith(aText, kResult)) {
            aText.remove_prefix(kResult.size());
            mResults.push_back({std::string(firstWord(aText)),
                                std::string(trimmed(aText.substr(firstWord(aText).size())))});
            mIsInResult = true;
        } else if (aText.empty() || aText.front() == '@') {
            mIsInResult = false;
        } else if (mIsInResult) {
            mResults.back().why += " " + std::string(aText);
        }
    }

    void readDeclaration(std::string_view aText) {
        const std::size_t lParenthesis = aText.find('(');
        if (!mResults.empty() && lParenthesis != std::string_view::npos) {
            const std::size_t lBefore = aText.find_last_not_of(kIdentifier, lParenthesis - 1);
            const std::string lFunction(aText.substr(lBefore + 1, lParenthesis - lBefore - 1));
            for (const Result& lResult : mResults) {
                for (StatusCode& lCode : mCodes) {
                    if (lCode.name == lResult.code) {
                        lCode.givers.push_back({lFunction, lResult.why});
                    }
                }
            }
        }
        mResults.clear();
        mIsInResult = false;
    }

    struct Result {
        std::string code;
        std::string why;
    };

    std::vector<StatusCode>& mCodes;
    std::string mHeader;
    std::vector<Result> mResults;
    bool mIsInResult = false;
};

void readCatalogue(std::vector<StatusCode>& aCodes) {
    for (const YAML::Node& lEntry : YAML::Load(std::string(kCodeCatalogue))) {
        for (StatusCode& lCode : aCodes) {
            if (lCode.name == lEntry["code"].as<std::string>()) {
                lCode.toDo = trimmed(lEntry["do"].as<std::string>());
            }
        }
    }
}

}  // namespace

std::vector<StatusCode> statusCodesIn(std::string_view aText, const std::string& aHeader) {
    std::vector<StatusCode> lCodes;
    HeaderReader lReader(lCodes, aHeader);
    while (!aText.empty()) {
        const std::size_t lEnd = std::min(aText.find('\n'), aText.size() - 1);
        lReader.read(aText.substr(0, lEnd));
        aText.remove_prefix(lEnd + 1);
    }
    return lCodes;
}

std::vector<StatusCode> allStatusCodes() {
    std::vector<StatusCode> lCodes = statusCodesIn(kOsxHeader, "osx/osx.h");
    for (StatusCode& lCode : statusCodesIn(kCommIfHeader, "commif/commif.h")) {
        lCodes.push_back(std::move(lCode));
    }
    readCatalogue(lCodes);
    return lCodes;
}

}  // namespace command
