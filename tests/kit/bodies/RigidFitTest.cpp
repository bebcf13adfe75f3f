#include <alg_kit/bodies/RigidFit.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>

namespace {

using bodies::RigidMotion;
using Eigen::Vector3d;

const std::array<Vector3d, 4> kFrom = {Vector3d(1, 0, 0), Vector3d(0, 2, 0), Vector3d(0, 0, 3),
                                       Vector3d(1, 1, 1)};

TEST(RigidFit, FindsTheMotionThatWasMade) {
  // A quarter turn about z: (x, y, z) becomes (-y, x, z); then 10, 20, 30 further.
  std::array<Vector3d, 4> to;
  for (std::size_t i = 0; i < 4; ++i)
    to[i] = Vector3d(-kFrom[i].y() + 10, kFrom[i].x() + 20, kFrom[i].z() + 30);
  const std::array<double, 4> weights = {1, 2, 3, 4};
  const RigidMotion motion = bodies::fitRigid(kFrom.data(), to.data(), weights.data(), 4);
  EXPECT_NEAR((motion.position - Vector3d(10, 20, 30)).norm(), 0, 1e-12);
  EXPECT_NEAR(std::abs(motion.orientation.z()), std::sqrt(0.5), 1e-12);
  EXPECT_NEAR((motion * Vector3d(5, 6, 7) - Vector3d(4, 25, 37)).norm(), 0, 1e-12);
}

TEST(RigidFit, NeverMirrors) {
  std::array<Vector3d, 4> mirrored;
  for (std::size_t i = 0; i < 4; ++i)
    mirrored[i] = Vector3d(-kFrom[i].x(), kFrom[i].y(), kFrom[i].z());
  const std::array<double, 4> weights = {1, 1, 1, 1};
  const RigidMotion motion = bodies::fitRigid(kFrom.data(), mirrored.data(), weights.data(), 4);
  EXPECT_NEAR(motion.orientation.toRotationMatrix().determinant(), 1, 1e-12);
  double off = 0;
  for (std::size_t i = 0; i < 4; ++i) off += (motion * kFrom[i] - mirrored[i]).norm();
  EXPECT_GT(off, 0.5);  // no motion takes a body to its mirror image
}

TEST(RigidFit, BelievesHeavyPointsMore) {
  std::array<Vector3d, 4> to = kFrom;
  to[3] += Vector3d(1, 0, 0);
  const auto offOfFirst = [&](double weightOfWrong) {
    const std::array<double, 4> weights = {1, 1, 1, weightOfWrong};
    return (bodies::fitRigid(kFrom.data(), to.data(), weights.data(), 4) * kFrom[0] - to[0]).norm();
  };
  EXPECT_LT(offOfFirst(0.001), 0.01);
  EXPECT_GT(offOfFirst(1), 0.1);
}

TEST(RigidFit, ChangeTurnsInTheFrameThatTheMotionLeadsTo) {
  RigidMotion motion;
  motion.position = {1, 2, 3};
  motion.orientation = Eigen::AngleAxisd(std::acos(0.0), Vector3d::UnitZ());
  Eigen::Matrix<double, 6, 1> change;
  change << 0.5, 0, 0, std::acos(0.0), 0, 0;  // a quarter turn about the outer x
  const RigidMotion changed = bodies::changedBy(motion, change);
  EXPECT_NEAR((changed.position - Vector3d(1.5, 2, 3)).norm(), 0, 1e-12);
  // x goes to y by the first turn, to z by the second.
  EXPECT_NEAR((changed.orientation * Vector3d::UnitX() - Vector3d::UnitZ()).norm(), 0, 1e-12);
}

}  // namespace
