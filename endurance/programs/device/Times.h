// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// How long something took, many times: any thread notes, without memory that grows.
#ifndef ENDURANCE_DEVICE_TIMES_H
#define ENDURANCE_DEVICE_TIMES_H

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>

namespace device {

class Times {
public:
    void note(std::chrono::nanoseconds aTime) {
        const double lMicroseconds = std::chrono::duration<double, std::micro>(aTime).count();
        const double lStep = std::log(std::max(lMicroseconds, 1.0)) / std::log(kRatio);
        ++mCounts.at(std::min(static_cast<std::size_t>(lStep), mCounts.size() - 1));
    }

    /// @return how many times were noted.
    unsigned long count() const {
        unsigned long lTotal = 0;
        for (const std::atomic<unsigned long>& lCount : mCounts) {
            lTotal += lCount;
        }
        return lTotal;
    }

    /// @return microseconds that this part of the times did not exceed, to one in twenty.
    double quantile(double aPart) const {
        const auto lMost = static_cast<double>(count()) - 1;
        auto lLeft = static_cast<unsigned long>(std::max(aPart * lMost, 0.0));
        std::size_t lStep = 0;
        while (lStep + 1 < mCounts.size() && lLeft >= mCounts.at(lStep)) {
            lLeft -= mCounts.at(lStep++);
        }
        return std::pow(kRatio, static_cast<double>(lStep + 1));
    }

    void clear() {
        for (std::atomic<unsigned long>& lCount : mCounts) {
            lCount = 0;
        }
    }

private:
    static constexpr double kRatio = 1.05;
    static constexpr std::size_t kSteps = 400;  // up to five minutes

    std::array<std::atomic<unsigned long>, kSteps> mCounts{};
};

}  // namespace device

#endif
