// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "base/assertion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ace/Log_Msg.h"
#include "support/LogCapture.h"
#include "support/cancellation.h"

TEST(Assertion, ReportHasAcesWordingAndGoesOn) {
    const test::LogCapture lLog;
    osx::reportFailedAssertion("false", "module.cpp", 7);
    const auto lLines = lLog.lines();
    ASSERT_EQ(1U, lLines.size());
    EXPECT_EQ("ACE_ASSERT: file module.cpp, line 7 assertion failed for 'false'.\n",
              lLines[0].text);
    EXPECT_EQ(LM_ERROR, lLines[0].priority);
}

TEST(AssertionDeathTest, FailureAborts) {
    EXPECT_EXIT(osx::failAssertion("result == 0", "module.cpp", 7),
                testing::KilledBySignal(SIGABRT), "assertion failed for 'result == 0'");
}

TEST(AssertionDeathTest, FailureAbortsThoughErrorLinesAreMasked) {
    EXPECT_EXIT(
        {
            ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::PROCESS);
            ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::THREAD);
            osx::failAssertion("result == 0", "module.cpp", 7);
        },
        testing::KilledBySignal(SIGABRT), "");
}

TEST(AssertionDeathTest, FailureAbortsThoughTheThreadIsCancelled) {
    EXPECT_EXIT(test::isCancelledIn([] { osx::failAssertion("result == 0", "module.cpp", 7); }),
                testing::KilledBySignal(SIGABRT), "assertion failed for 'result == 0'");
}

TEST(AssertionDeathTest, FailureIsToldOnStandardErrorThoughLinesGoElsewhere) {
    EXPECT_EXIT(
        {
            ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
            osx::failAssertion("result == 0", "module.cpp", 7);
        },
        testing::KilledBySignal(SIGABRT),
        "ACE_ASSERT: file module.cpp, line 7 assertion failed for 'result == 0'.");
}
