#include <alg_kit/rig/RigError.h>
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <cstring>

namespace rig {
namespace {

constexpr double kRadians = 3.141592653589793 / 180;

TEST(RigError, NoErrorKeepsTheCalibrationToTheLastBit) {
  const auto c = builtInRig().calibration;
  const auto same = withError(c, RigError{});
  EXPECT_EQ(std::memcmp(&same, &c, sizeof c), 0);
}

TEST(RigError, ABendTurnsTheRotationByItsLengthAboutItsAxis) {
  const auto c = builtInRig().calibration;
  RigError error;
  error.rotation = {0.3, -0.4, 0.25};
  const auto bent = withError(c, error);
  const Eigen::Matrix3d turned = matrixFrom(bent.rotation) * matrixFrom(c.rotation).transpose();
  // sqrt(0.09 + 0.16 + 0.0625) degrees; the trace of a rotation is 1 + 2 cos.
  EXPECT_NEAR(std::acos((turned.trace() - 1) / 2) / kRadians, 0.5590169943749475, 1e-9);
  EXPECT_LT((turned * error.rotation - error.rotation).norm(), 1e-12);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(bent.translation[i], c.translation[i]);
  EXPECT_LT((matrixFrom(bent.fundamental) - fundamentalFrom(bent)).norm(), 1e-15);
}

TEST(RigError, TheDirectionOfTranslationTurnsAndItsLengthStays) {
  const auto c = builtInRig().calibration;
  RigError error;
  error.translation = {0, 0, 1};  // about z: x goes towards y
  const auto bent = withError(c, error);
  const Eigen::Vector3d before(c.translation), after(bent.translation);
  EXPECT_NEAR(after.norm(), before.norm(), 1e-12);
  EXPECT_NEAR(after.x(), std::cos(kRadians) * before.x() - std::sin(kRadians) * before.y(), 1e-12);
  EXPECT_NEAR(after.z(), before.z(), 1e-12);
}

TEST(RigError, FocalLengthsAreLongerByPerCentAndCentresMoveByPixels) {
  const auto c = builtInRig().calibration;
  RigError error;
  error.focal = {1, -2};
  error.leftCentre = {3, 4};
  error.rightCentre = {-5, 6};
  const auto wrong = withError(c, error);
  EXPECT_NEAR(wrong.leftIntrinsics[0], 1.01 * c.leftIntrinsics[0], 1e-9);
  EXPECT_NEAR(wrong.rightIntrinsics[4], 0.98 * c.rightIntrinsics[4], 1e-9);
  EXPECT_NEAR(wrong.leftIntrinsics[2], c.leftIntrinsics[2] + 3, 1e-12);
  EXPECT_NEAR(wrong.leftIntrinsics[5], c.leftIntrinsics[5] + 4, 1e-12);
  EXPECT_NEAR(wrong.rightIntrinsics[2], c.rightIntrinsics[2] - 5, 1e-12);
  EXPECT_NEAR(wrong.rightIntrinsics[5], c.rightIntrinsics[5] + 6, 1e-12);
}

}  // namespace
}  // namespace rig
