// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "sysinfo/sysinfo.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "client/Session.h"
#include "common/Failure.h"
#include "common/Output.h"
#include "common/text.h"
#include "devices/DeviceList.h"
#include "record/entry.h"

namespace command {

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::size_t kLongestLine = 8192;
constexpr std::size_t kLongestReport = 100;

/// @return whether what follows the "*" is the sum of what is between it and the "$".
bool hasItsSum(std::string_view aLine) {
    const std::size_t lStar = aLine.rfind('*');
    if (aLine.empty() || aLine.front() != '$' || lStar == std::string_view::npos) {
        return false;
    }
    unsigned int lSum = 0;
    for (const char lByte : aLine.substr(1, lStar - 1)) {
        lSum ^= static_cast<unsigned char>(lByte);
    }
    std::array<char, 4> lText{};
    std::snprintf(lText.data(), lText.size(), "%02X", lSum & 0xFFU);
    return aLine.substr(lStar + 1) == lText.data();
}

std::string memoryText(long aKb) {
    return aKb < 0 ? "unknown" : std::to_string(aKb) + " kB";
}

class Reporter : public Consumer {
public:
    Reporter(const SysinfoOptions& aOptions, Output& aOutput, Stop& aStop)
        : mOptions(aOptions), mOutput(aOutput), mStop(aStop) {}

    bool take(const Event& aEvent) override {
        if (aEvent.kind == Kind::kUnreachable || aEvent.kind == Kind::kDisconnected) {
            mTrouble = markText(aEvent);
        }
        const auto lFigures =
            aEvent.kind == Kind::kLine ? figuresIn(aEvent.text) : std::optional<Figures>();
        if (!lFigures) {
            return true;
        }
        mHasReport = true;
        mOutput.write((mOptions.json ? asJson(*lFigures, aEvent) : asText(*lFigures, aEvent)) +
                      "\n");
        return mOptions.follow;
    }

    void rest() override {
        mOutput.flush();
        mOutput.look();
        if (!mHasReport && steady_clock::now() - mStart > seconds(mOptions.waitS)) {
            mStop.ask();
        }
    }

    bool hasReport() const { return mHasReport; }
    const std::string& trouble() const { return mTrouble; }

private:
    static std::string asText(const Figures& aFigures, const Event& aEvent) {
        std::array<char, 40> lLoad{};
        std::snprintf(lLoad.data(), lLoad.size(), "%.2f", aFigures.load);
        return forPeople(aEvent.time) + " load " + (aFigures.load < 0 ? "unknown" : lLoad.data()) +
               ", memory " + memoryText(aFigures.totalKb) + ", free " + memoryText(aFigures.freeKb);
    }

    static std::string asJson(const Figures& aFigures, const Event& aEvent) {
        const auto lKnown = [](auto aNumber) {
            return aNumber < 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(aNumber);
        };
        nlohmann::ordered_json lObject;
        lObject["time"] = forPrograms(aEvent.time);
        lObject["load"] = lKnown(aFigures.load);
        lObject["totalKb"] = lKnown(aFigures.totalKb);
        lObject["freeKb"] = lKnown(aFigures.freeKb);
        return lObject.dump();
    }

    const SysinfoOptions& mOptions;
    Output& mOutput;
    Stop& mStop;
    const steady_clock::time_point mStart = steady_clock::now();
    bool mHasReport = false;
    std::string mTrouble;
};

/// Takes a number from the front of a text, and what stands behind it.
/// @return whether both were there.
template <class Number>
bool take(std::string_view& aText, Number& aNumber, char aNext) {
    const char* const lEnd = aText.data() + aText.size();
    const auto [lBehind, lError] = std::from_chars(aText.data(), lEnd, aNumber);
    if (lError != std::errc{} || lBehind == lEnd || *lBehind != aNext) {
        return false;
    }
    aText.remove_prefix(static_cast<std::size_t>(lBehind - aText.data()) + 1);
    return true;
}

}  // namespace

std::optional<Figures> figuresIn(std::string_view aLine) {
    if (aLine.size() > kLongestReport || !hasItsSum(aLine)) {
        return std::nullopt;
    }
    constexpr std::string_view kStart = "$PGWS,";
    if (aLine.substr(0, kStart.size()) != kStart) {
        return std::nullopt;
    }
    aLine.remove_prefix(kStart.size());
    Figures lFigures{};
    const bool lIsWhole = take(aLine, lFigures.load, ',') && take(aLine, lFigures.totalKb, ',') &&
                          take(aLine, lFigures.freeKb, '*') && aLine.size() == 2;
    return lIsWhole && std::isfinite(lFigures.load) ? std::optional(lFigures) : std::nullopt;
}

std::optional<Figures> figuresInLog(std::string_view aLine) {
    constexpr std::string_view kBefore = "gateway: load and memory [";
    const std::size_t lStart = aLine.find(kBefore);
    if (lStart == std::string_view::npos || aLine.back() != ']') {
        return std::nullopt;
    }
    aLine.remove_prefix(lStart + kBefore.size());
    aLine.remove_suffix(1);
    return figuresIn(aLine);
}

int sysinfo(const SysinfoOptions& aOptions) {
    const Device lDevice = parseDevice(aOptions.address, 0);
    Stop lStop;
    Output lOutput(&lStop);
    Reporter lReporter(aOptions, lOutput, lStop);
    Session lSession(lStop, kLongestLine);
    lSession.add(addressOf(lDevice.host, lDevice.port),
                 std::make_unique<LineSplitter>(kLongestLine));
    lSession.run(lReporter);
    if (!lReporter.hasReport()) {
        fail(aOptions.address + ": no report came" +
             (lReporter.trouble().empty() ? "" : "; " + lReporter.trouble()));
    }
    return kDone;
}

}  // namespace command
