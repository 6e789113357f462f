#include <gtest/gtest.h>
#include <unistd.h>

namespace {

/// Ends a test that hangs, well before CTest's own limit, with a core to look at.
constexpr unsigned int kWatchdogSeconds = 180;

class Watchdog : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { ::alarm(kWatchdogSeconds); }
    void OnTestEnd(const testing::TestInfo&) override { ::alarm(0); }
};

}  // namespace

int main(int aCount, char** aArguments) {
    testing::InitGoogleTest(&aCount, aArguments);
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    testing::UnitTest::GetInstance()->listeners().Append(new Watchdog);
    return RUN_ALL_TESTS();
}
