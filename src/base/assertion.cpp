#include "base/assertion.h"

#include <cstdlib>

#include "base/NoCancellation.h"
#include "base/diagnosticLine.h"

namespace osx {

void reportFailedAssertion(const char* aExpression, const char* aModule, int aLine) {
    DiagnosticLine(aModule, aLine)
        .failure(LM_ERROR, "ACE_ASSERT: file %N, line %l assertion failed for '%s'.\n",
                 aExpression);
}

void failAssertion(const char* aExpression, const char* aModule, int aLine) noexcept {
    const NoCancellation lGuard;
    reportFailedAssertion(aExpression, aModule, aLine);
    std::abort();
}

}  // namespace osx
