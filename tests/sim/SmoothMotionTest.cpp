#include <gtest/gtest.h>
#include <sim/SmoothMotion.h>

#include <cmath>

namespace sim {
namespace {

TEST(SmoothMotion, DefaultStandsStill) {
  const Pose pose = SmoothMotion().at(12.5);
  EXPECT_EQ(pose.position, Eigen::Vector3d::Zero());
  EXPECT_EQ(pose.orientation.coeffs(), Eigen::Quaterniond::Identity().coeffs());
  EXPECT_EQ(SmoothMotion().speedBound(), 0);
}

TEST(SmoothMotion, PositionIsTheSumOfItsSines) {
  SmoothMotion::Sums sums;
  sums.x = {{10, 0.25, 0}, {3, 1, 0}};
  sums.yaw = {{0.5, 0.25, 0}};
  const Pose pose = SmoothMotion(sums).at(1);  // a quarter and a whole period
  EXPECT_NEAR(pose.position.x(), 10, 1e-12);
  EXPECT_NEAR(pose.position.y(), 0, 1e-12);
  const Eigen::Vector3d forward = pose.orientation * Eigen::Vector3d::UnitZ();
  EXPECT_NEAR(forward.x(), std::sin(0.5), 1e-12);
  EXPECT_NEAR(forward.z(), std::cos(0.5), 1e-12);
}

TEST(SmoothMotion, HandheldMotionKeepsItsSpeedBound) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    const auto motion = SmoothMotion::handheld(seed);
    EXPECT_LT(motion.speedBound(), 1000);  // mm/s
    constexpr double kStep = 1e-3;
    for (double t = 0; t < 20; t += 0.01) {
      const double way = (motion.at(t + kStep).position - motion.at(t).position).norm();
      ASSERT_LE(way / kStep, motion.speedBound() + 1e-6) << "seed " << seed << ", t " << t;
    }
  }
}

TEST(SmoothMotion, SeedDecidesTheMotion) {
  EXPECT_EQ(SmoothMotion::handheld(1).at(3).position, SmoothMotion::handheld(1).at(3).position);
  EXPECT_NE(SmoothMotion::handheld(1).at(3).position, SmoothMotion::handheld(2).at(3).position);
}

}  // namespace
}  // namespace sim
