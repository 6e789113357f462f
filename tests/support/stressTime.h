/// @file
/// How long a test that stresses something goes on.
#ifndef OSX_TESTS_SUPPORT_STRESSTIME_H
#define OSX_TESTS_SUPPORT_STRESSTIME_H

#include <chrono>
#include <cstdlib>

namespace test {

/// @return what `OSX_STRESS_SECONDS` in the environment says; without it a test's own time, which
///         is short.
inline std::chrono::seconds stressTime(std::chrono::seconds aOwnTime) {
    const char* const lSeconds = std::getenv("OSX_STRESS_SECONDS");
    return lSeconds == nullptr ? aOwnTime : std::chrono::seconds(std::atol(lSeconds));
}

}  // namespace test

#endif
