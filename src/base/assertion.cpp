// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// How a failed assertion is reported, and ends the process.
#include "base/assertion.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "ace/Log_Msg.h"
#include "base/NoCancellation.h"
#include "base/diagnosticLine.h"
#include "base/writeSignals.h"

namespace osx {

namespace {

bool goesToStandardError() {
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    return lLog != nullptr && (lLog->flags() & ACE_Log_Msg::STDERR) != 0;
}

/// Shows the cause on standard error, whatever the log destination.
void tellOnStandardError(const char* aExpression, const char* aModule, int aLine) {
    std::array<char, 300> lText{};
    const int lLength = std::snprintf(lText.data(), lText.size(),
                                      "ACE_ASSERT: file %s, line %d assertion failed for '%s'.\n",
                                      aModule, aLine, aExpression);
    const WriteSignalGuard lGuard;
    [[maybe_unused]] const ssize_t lIgnored =
        ::write(STDERR_FILENO, lText.data(), static_cast<std::size_t>(lLength));
}

}  // namespace

void reportFailedAssertion(const char* aExpression, const char* aModule, int aLine) {
    DiagnosticLine(aModule, aLine)
        .failure(LM_ERROR, "ACE_ASSERT: file %N, line %l assertion failed for '%s'.\n",
                 aExpression);
}

void failAssertion(const char* aExpression, const char* aModule, int aLine) noexcept {
    const NoCancellation lGuard;
    reportFailedAssertion(aExpression, aModule, aLine);
    if (!goesToStandardError()) {
        tellOnStandardError(aExpression, aModule, aLine);
    }
    std::abort();
}

}  // namespace osx
