#include <alg_kit/calibration/CalibrationHealth.h>
#include <alg_kit/rig/RigError.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sim/Simulator.h>
#include <tests/support/SeenPairs.h>

#include <Eigen/Dense>
#include <map>

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

/// Twenty seconds; the rig bends from `first` to `last` in so many steps.
std::vector<ObservedPair> session(const rig::RigError& first, const rig::RigError& last,
                                  double noise = 0.05, int steps = 10, int count = 3000) {
  std::vector<ObservedPair> pairs;
  for (int step = 0; step < steps; ++step) {
    auto rig = rig::builtInRig();
    const double share = (step + 0.5) / steps;
    rig.calibration = rig::withError(rig.calibration, (1 - share) * first + share * last);
    const auto some = support::pairsAllOver(rig, static_cast<std::size_t>(count / steps), noise,
                                            50 + static_cast<unsigned>(step));
    for (std::size_t i = 0; i < some.size(); ++i) {
      pairs.push_back(some[i]);
      pairs.back().time =
          20.0 / steps * (step + static_cast<double>(i) / static_cast<double>(some.size()));
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

// No one pair of cameras explains such a recording; that it drifts is still the first thing to say.
TEST(CalibrationHealth, ADriftThatNoCalibrationExplainsIsADriftToo) {
  const auto health = healthOf(given(), session({}, bend(3), 0.05, 100));
  EXPECT_FALSE(health.refinement.refusal.empty());
  EXPECT_EQ(health.verdict, HealthVerdict::kDrifts);
  EXPECT_THAT(health.text, HasSubstr("the residual goes from 0.4"));
}

// Two seconds of three objects' paths show a tilt in the residual, and fit it with turns anyhow.
TEST(CalibrationHealth, ADriftIsToldByItsResidualsWhereTheTurnsAreUncertain) {
  sim::SimulatorOptions options;
  options.blobs.pixelNoise = 0.05;
  options.drift.rotation = {0.5, 0, 0};
  options.driftSeconds = 20;
  const sim::Simulator simulator(rig::builtInRig(), sim::Scene::moving(0), options);
  std::vector<ObservedPair> pairs;
  for (std::int64_t frame = 0; frame < 1800; ++frame) {
    std::map<int, ObservedPair> seen;  // every id is one marker's
    for (const sim::BlobRecord& blob : simulator.frame(frame).blobs) {
      ObservedPair& pair = seen[blob.id];
      auto& point = blob.camera == rig::Camera::kLeft ? pair.left : pair.right;
      point = {static_cast<double>(blob.sumX) / blob.weight,
               static_cast<double>(blob.sumY) / blob.weight};
      pair.leftDiameter = pair.rightDiameter = 8;
      pair.id = blob.id;
      pair.time = static_cast<double>(frame) / 90;
    }
    for (const auto& [id, pair] : seen) pairs.push_back(pair);
  }
  const auto health = healthOf(given(), pairs);
  EXPECT_EQ(health.verdict, HealthVerdict::kDrifts);
  EXPECT_THAT(health.text, HasSubstr("the residual goes from 0.1"));
}

// A tenth of few pairs would tell nothing.
TEST(CalibrationHealth, FewPairsAreTakenInFewerStretches) {
  const auto health = healthOf(given(), session({}, bend(1), 0.05, 100, 900));
  EXPECT_EQ(health.trend.size(), 6u);
  EXPECT_EQ(health.verdict, HealthVerdict::kDrifts);
}

TEST(CalibrationHealth, SaysWhatARecordingCannotTell) {
  const auto health = healthOf(given(), {});
  EXPECT_EQ(health.verdict, HealthVerdict::kUnknown);
  EXPECT_THAT(health.text, HasSubstr("does not tell"));
  EXPECT_THAT(health.unseen.at(0), HasSubstr("baseline"));
}

}  // namespace
}  // namespace calibration
