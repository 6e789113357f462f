// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/longForm.h"

namespace {

/// Ends a test that hangs, well before CTest's own limit, with a core to look at.
constexpr std::chrono::seconds kWatchdog(180);
constexpr std::chrono::seconds kLongestRound(10);

class Watchdog : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        const auto lAsked =
            2 * test::stressTime(std::chrono::seconds(0)) + test::rounds(0) * kLongestRound;
        ::alarm(static_cast<unsigned int>((kWatchdog + lAsked).count()));
    }
    void OnTestEnd(const testing::TestInfo&) override { ::alarm(0); }
};

}  // namespace

int main(int aCount, char** aArguments) {
    testing::InitGoogleTest(&aCount, aArguments);
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    testing::UnitTest::GetInstance()->listeners().Append(new Watchdog);
    return RUN_ALL_TESTS();
}
