// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/queries.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

#include "common/Failure.h"
#include "common/text.h"
#include "level/LevelRequest.h"

namespace command {

namespace {

constexpr unsigned long kMostItems = 1000;
constexpr std::size_t kMostWords = 50;
constexpr std::size_t kLongestPattern = 200;
constexpr unsigned long kMostRepeated = 1000;
/// The highest that a browser counts to.
constexpr std::uint64_t kHighestNumber = 1ULL << 53U;

std::optional<std::uint64_t> numberOf(const httplib::Request& aRequest, const char* aName) {
    if (!aRequest.has_param(aName)) {
        return std::nullopt;
    }
    const std::string lText = aRequest.get_param_value(aName);
    const char* const lEnd = lText.data() + lText.size();
    std::uint64_t lNumber = 0;
    const auto [lStop, lError] = std::from_chars(lText.data(), lEnd, lNumber);
    if (lError != std::errc() || lStop != lEnd || lNumber > kHighestNumber) {
        failInput("'" + std::string(aName) + "' is no number");
    }
    return lNumber;
}

std::vector<std::string> wordsIn(const std::string& aText) {
    std::vector<std::string> lWords;
    std::string_view lRest = aText;
    while (!lRest.empty()) {
        const std::size_t lEnd = lRest.find(',');
        std::string lWord(trimmed(lRest.substr(0, lEnd)));
        std::transform(lWord.begin(), lWord.end(), lWord.begin(), [](char aByte) {
            return aByte >= 'A' && aByte <= 'Z' ? static_cast<char>(aByte - 'A' + 'a') : aByte;
        });
        if (!lWord.empty()) {
            lWords.push_back(lWord);
        }
        lRest.remove_prefix(lEnd == std::string_view::npos ? lRest.size() : lEnd + 1);
    }
    if (lWords.size() > kMostWords) {
        failInput("'words' are too many");
    }
    return lWords;
}

/// The C library compiles repetitions by copying what is repeated: x{99}{99}{99} would take all
/// memory. What a former group found again ("\1") may take for ever to be looked for.
void refuseCostly(const std::string& aExpression) {
    if (aExpression.size() > kLongestPattern) {
        failInput("the expression is too long");
    }
    unsigned long lCopies = 1;
    for (std::size_t lAt = 0; lAt < aExpression.size(); ++lAt) {
        const char lByte = aExpression[lAt];
        const char lNext = lAt + 1 < aExpression.size() ? aExpression[lAt + 1] : '\0';
        if (lByte == '\\' && lNext >= '0' && lNext <= '9') {
            failInput("the expression refers to a former part of itself");
        }
        if (lByte >= '0' && lByte <= '9' && lAt > 0 &&
            (aExpression[lAt - 1] == '{' || aExpression[lAt - 1] == ',')) {
            const std::size_t lEnd = aExpression.find_first_not_of("0123456789", lAt);
            const auto lCount = toNumber(
                std::string_view(aExpression).substr(lAt, std::min(lEnd, aExpression.size()) - lAt),
                0, kMostRepeated);
            lCopies *= std::max(lCount.value_or(kMostRepeated + 1), 1UL);
            if (lCopies > kMostRepeated) {
                failInput("the expression repeats too much");
            }
        }
    }
}

}  // namespace

HistoryQuery historyQueryOf(const httplib::Request& aRequest) {
    HistoryQuery lQuery;
    lQuery.before = numberOf(aRequest, "before");
    lQuery.after = numberOf(aRequest, "after");
    if (const auto lAt = numberOf(aRequest, "at")) {
        lQuery.at = static_cast<std::int64_t>(*lAt);
    }
    const std::uint64_t lLimit = numberOf(aRequest, "limit").value_or(lQuery.limit);
    if (lLimit < 1 || lLimit > kMostItems) {
        failInput("'limit' is no number from 1 to " + std::to_string(kMostItems));
    }
    lQuery.limit = static_cast<std::size_t>(lLimit);
    const std::size_t lDevices = aRequest.get_param_value_count("device");
    if (lDevices > kMostDevices) {
        failInput("more than " + std::to_string(kMostDevices) + " devices");
    }
    for (std::size_t lDevice = 0; lDevice < lDevices; ++lDevice) {
        lQuery.devices.push_back(aRequest.get_param_value("device", lDevice));
    }
    lQuery.words = wordsIn(aRequest.get_param_value("words"));
    const std::string lGrep = aRequest.get_param_value("grep");
    if (!lGrep.empty()) {
        refuseCostly(lGrep);
        lQuery.pattern = std::make_unique<Pattern>(lGrep);
    }
    return lQuery;
}

FigureQuery figureQueryOf(const httplib::Request& aRequest) {
    FigureQuery lQuery;
    lQuery.since = static_cast<std::int64_t>(numberOf(aRequest, "since").value_or(0));
    if (aRequest.has_param("device")) {
        lQuery.device = aRequest.get_param_value("device");
    }
    return lQuery;
}

LevelQuery levelQueryOf(const std::string& aBody, const DeviceBoard& aBoard) {
    const auto lObject = nlohmann::json::parse(aBody, nullptr, false);
    if (!lObject.is_object() || !lObject.contains("device") || !lObject["device"].is_string() ||
        !lObject.contains("level") || !lObject["level"].is_number_unsigned()) {
        failInput(R"(the body has to be {"device":"name","level":N})");
    }
    const auto lDevice = aBoard.find(lObject["device"].get<std::string>());
    if (!lDevice) {
        failInput("there is no such device");
    }
    const auto lLevel = lObject["level"].get<std::uint64_t>();
    if (lLevel > kHighestLevel) {
        failInput("no level: those from 0 to 9 differ");
    }
    return {*lDevice, static_cast<unsigned long>(lLevel)};
}

}  // namespace command
