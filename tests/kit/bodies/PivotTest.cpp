#include <alg_kit/bodies/Pivot.h>

#include <tests/kit/bodies/SeenBody.h>

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

namespace {

using bodies::BodyPose;
using bodies::PivotFit;
using bodies::RigidMotion;
using testing_support::builtInCameras;
using testing_support::kNoise;
using testing_support::seen;
using testing_support::sixMarkers;

const Eigen::Vector3d kTip(20, -150, 10);
const Eigen::Vector3d kSpot(30, 80, 1500);

/// Poses of a pointer whose tip stands on the spot, leaning by up to `most` degrees each way.
std::vector<BodyPose> turning(int count, double most, std::uint64_t seed) {
  sim::Random random(seed);
  std::vector<BodyPose> poses;
  for (int i = 0; i < count; ++i) {
    RigidMotion motion;
    const Eigen::Vector3d lean(random.uniform(-most, most), random.uniform(-most, most),
                               random.uniform(-most, most));
    motion.orientation = Eigen::AngleAxisd(lean.norm() / 57.29577951308232, lean.normalized());
    motion.position = kSpot - motion.orientation * kTip;
    const auto pose = bodies::poseOf(sixMarkers(), seen(sixMarkers(), motion, kNoise, random),
                                     builtInCameras(), kNoise);
    if (pose) poses.push_back(*pose);
  }
  return poses;
}

TEST(Pivot, FindsTheTipWithinItsDeviation) {
  const PivotFit fit = bodies::pivotOf(turning(400, 30, 1));
  EXPECT_GT(fit.turned, 30);
  for (int i = 0; i < 3; ++i) {
    EXPECT_LT(std::abs(fit.tip[i] - kTip[i]), 4 * std::sqrt(fit.covariance(i, i)));
    EXPECT_LT(std::sqrt(fit.covariance(i, i)), 0.3);
    EXPECT_NEAR(fit.spot[i], kSpot[i], 0.5);
  }
  EXPECT_LT(fit.residual, 3);
}

TEST(Pivot, ALittleTurnTellsLess) {
  const PivotFit wide = bodies::pivotOf(turning(300, 30, 2));
  const PivotFit narrow = bodies::pivotOf(turning(300, 8, 2));
  EXPECT_GT(narrow.covariance.trace(), 4 * wide.covariance.trace());
}

TEST(Pivot, PosesFarOffAreLeftOut) {
  std::vector<BodyPose> poses = turning(300, 30, 3);
  const std::size_t count = poses.size();
  for (std::size_t i = 0; i < 15; ++i) poses[20 * i].motion.position.x() += 40;
  const PivotFit fit = bodies::pivotOf(poses);
  EXPECT_LE(fit.poses, count - 15);
  EXPECT_NEAR((fit.tip - kTip).norm(), 0, 0.5);
}

TEST(Pivot, BodyThatHardlyTurnsIsRefused) {
  EXPECT_THROW(bodies::pivotOf(turning(300, 2, 4)), std::runtime_error);
  EXPECT_THROW(bodies::pivotOf(turning(9, 30, 5)), std::runtime_error);
}

// A tip that slips by a few millimetres is still a tip; a body in a hand has none.
TEST(Pivot, BodyThatWandersIsRefused) {
  std::vector<BodyPose> slipping = turning(300, 30, 6), wandering = turning(300, 30, 6);
  for (std::size_t i = 0; i < wandering.size(); ++i) {
    const double angle = 0.1 * static_cast<double>(i);
    const Eigen::Vector3d way(std::cos(angle), std::sin(angle), 0);
    slipping[i].motion.position += 1.5 * way;
    wandering[i].motion.position += 50 * way;
  }
  EXPECT_LT((bodies::pivotOf(slipping).tip - kTip).norm(), 3);
  EXPECT_THROW(bodies::pivotOf(wandering), std::runtime_error);
}

}  // namespace
