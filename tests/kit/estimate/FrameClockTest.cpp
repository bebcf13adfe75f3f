#include <alg_kit/estimate/FrameClock.h>
#include <gtest/gtest.h>

namespace estimate {
namespace {

TEST(FrameClock, TakesStampsAcrossTheirWrap) {
  FrameClock clock(90);
  EXPECT_EQ(clock.stamped(0xFFFFFF00u).step, FrameClock::Step::kFirst);
  const auto tick = clock.stamped(0x00000100u);  // 512 microseconds later
  EXPECT_EQ(tick.step, FrameClock::Step::kForward);
  EXPECT_NEAR(tick.elapsed, 512e-6, 1e-12);
  EXPECT_NEAR(clock.now(), 512e-6, 1e-12);
}

TEST(FrameClock, LeavesLateAndRepeatedStampsOut) {
  FrameClock clock(90);
  clock.stamped(1000000);
  clock.stamped(1011111);
  EXPECT_EQ(clock.stamped(1000000).step, FrameClock::Step::kLate);
  EXPECT_EQ(clock.stamped(1011111).step, FrameClock::Step::kLate);
  EXPECT_NEAR(clock.stamped(1022222).elapsed, 0.011111, 1e-12);
}

TEST(FrameClock, BeginsAnewWithADeviceThatDoes) {
  FrameClock clock(90);
  clock.stamped(500000000);
  clock.stamped(500011111);
  const double before = clock.now();
  EXPECT_EQ(clock.stamped(0).step, FrameClock::Step::kFirst);
  EXPECT_GT(clock.now(), before);
}

TEST(FrameClock, CountsPeriodsWithoutAnyTime) {
  FrameClock clock(50);
  for (int i = 0; i < 6; ++i) clock.plain({});
  EXPECT_NEAR(clock.now(), 5 * 0.02, 1e-12);
}

TEST(FrameClock, SeesMissingFramesInArrivalsThatJitter) {
  FrameClock clock(100);
  clock.plain(7.000);
  EXPECT_NEAR(clock.plain(7.013).elapsed, 0.01, 1e-12);
  EXPECT_NEAR(clock.plain(7.019).elapsed, 0.01, 1e-12);
  EXPECT_NEAR(clock.plain(7.051).elapsed, 0.03, 1e-12);  // two packets were lost
}

TEST(FrameClock, KeepsStepOverMinutesOfASlightlyDifferentRate) {
  FrameClock clock(90);
  const double period = 1 / 90.01;
  for (int i = 0; i <= 90 * 600; ++i) clock.plain(i * period);
  EXPECT_NEAR(clock.now(), 600, 1);
}

}  // namespace
}  // namespace estimate
