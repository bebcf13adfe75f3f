#include <alg_kit/calibration/CalibrationHealth.h>
#include <alg_kit/rig/RigError.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tests/support/SeenPairs.h>

#include <Eigen/Dense>

namespace calibration {
namespace {

using ::testing::HasSubstr;

LoadedCalibration given() {
  LoadedCalibration loaded;
  const auto rig = rig::builtInRig();
  loaded.calibration = rig.calibration;
  loaded.unit = "mm";
  loaded.width = rig.width;
  loaded.height = rig.height;
  return loaded;
}

/// Twenty seconds; the rig bends from `first` to `last` in ten steps.
std::vector<ObservedPair> session(const rig::RigError& first, const rig::RigError& last,
                                  double noise = 0.05) {
  std::vector<ObservedPair> pairs;
  for (int step = 0; step < 10; ++step) {
    auto rig = rig::builtInRig();
    const double share = (step + 0.5) / 10;
    rig.calibration = rig::withError(rig.calibration, (1 - share) * first + share * last);
    const auto some = support::pairsAllOver(rig, 300, noise, 50 + static_cast<unsigned>(step));
    for (std::size_t i = 0; i < some.size(); ++i) {
      pairs.push_back(some[i]);
      pairs.back().time = 2 * step + 2.0 * static_cast<double>(i) / 300;
    }
  }
  return pairs;
}

rig::RigError bend(double degrees) {
  rig::RigError error;
  error.rotation = degrees * Eigen::Vector3d(0.6, 0, 0.8);
  return error;
}

TEST(CalibrationHealth, AGoodCalibrationHolds) {
  const auto health = healthOf(given(), session({}, {}));
  EXPECT_EQ(health.verdict, HealthVerdict::kGood) << health.text;
  ASSERT_EQ(health.trend.size(), 10u);
  for (const HealthPoint& point : health.trend)
    EXPECT_LT(point.rotation, 6 * point.rotationDeviation);
}

TEST(CalibrationHealth, AStaleOneIsNamedWithItsAngleAndWhatRefiningBrings) {
  const auto health = healthOf(given(), session(bend(0.6), bend(0.6)));
  EXPECT_EQ(health.verdict, HealthVerdict::kStale);
  EXPECT_THAT(health.text,
              HasSubstr("stale: about 0.6 degrees; refining would bring the residual"));
  ASSERT_EQ(health.trend.size(), 10u);
  for (const HealthPoint& point : health.trend) {
    EXPECT_NEAR(point.rotation, 0.6, 0.05);
    EXPECT_GT(point.residual, 5 * point.residualRefined);
  }
}

// Blobs without noise tell of angles that matter to nobody.
TEST(CalibrationHealth, WithoutNoiseATenthOfAMillimetreDecides) {
  const auto tiny = healthOf(given(), session(bend(0.00005), bend(0.00005), 1e-5));
  EXPECT_TRUE(tiny.refinement.changed);
  EXPECT_EQ(tiny.verdict, HealthVerdict::kGood) << tiny.text;
  const auto small = healthOf(given(), session(bend(0.1), bend(0.1), 1e-4));
  EXPECT_EQ(small.verdict, HealthVerdict::kStale) << small.text;
}

TEST(CalibrationHealth, ADriftIsACurve) {
  const auto health = healthOf(given(), session({}, bend(0.5)));
  EXPECT_EQ(health.verdict, HealthVerdict::kDrifts);
  ASSERT_EQ(health.trend.size(), 10u);
  for (std::size_t i = 0; i < 10; ++i)
    EXPECT_NEAR(health.trend[i].rotation, 0.5 * (static_cast<double>(i) + 0.5) / 10, 0.03) << i;
  EXPECT_GT(health.trend[9].residual, 4 * health.trend[0].residual);
}

TEST(CalibrationHealth, SaysWhatARecordingCannotTell) {
  const auto health = healthOf(given(), {});
  EXPECT_EQ(health.verdict, HealthVerdict::kUnknown);
  EXPECT_THAT(health.text, HasSubstr("does not tell"));
  EXPECT_THAT(health.unseen.at(0), HasSubstr("baseline"));
}

}  // namespace
}  // namespace calibration
