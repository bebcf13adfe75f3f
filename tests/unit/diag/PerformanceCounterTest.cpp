#include <alg_factory/diag/PerformanceCounter.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <thread>

namespace {

using qor::performanceCounter;
using qor::performanceFrequency;

TEST(PerformanceCounter, NeverGoesBack) {
  std::int64_t last = performanceCounter();
  EXPECT_GT(last, 0);
  for (int i = 0; i < 100000; ++i) {
    const std::int64_t now = performanceCounter();
    ASSERT_GE(now, last);
    last = now;
  }
}

TEST(PerformanceCounter, FrequencyIsFixedAndFineEnoughForMicroseconds) {
  EXPECT_GE(performanceFrequency(), 1000000);
  EXPECT_EQ(performanceFrequency(), performanceFrequency());
}

TEST(PerformanceCounter, CountsAsManyTicksASecondAsItSays) {
  using Clock = std::chrono::steady_clock;
  const auto outerStart = Clock::now();
  const std::int64_t start = performanceCounter();
  const auto innerStart = Clock::now();
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  const auto innerEnd = Clock::now();
  const std::int64_t end = performanceCounter();
  const auto outerEnd = Clock::now();

  const double seconds =
      static_cast<double>(end - start) / static_cast<double>(performanceFrequency());
  const double slack = 0.001;  // two clocks need not tick at the very same rate
  EXPECT_GE(seconds, std::chrono::duration<double>(innerEnd - innerStart).count() - slack);
  EXPECT_LE(seconds, std::chrono::duration<double>(outerEnd - outerStart).count() + slack);
}

}  // namespace
