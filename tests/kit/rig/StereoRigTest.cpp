#include <alg_kit/rig/StereoRig.h>
#include <gtest/gtest.h>
#include <sim/Random.h>

#include <Eigen/Dense>

namespace rig {
namespace {

// A pinhole projection: what the library's undistorted pixels are.
Eigen::Vector3d pinhole(const double (&k)[9], const Eigen::Vector3d& p) {
  return {k[0] * p.x() / p.z() + k[2], k[4] * p.y() / p.z() + k[5], 1};
}

TEST(StereoRig, PointsSeenByBothCamerasLieOnEachOthersLines) {
  const auto& c = builtInRig().calibration;
  const Eigen::Matrix3d F = matrixFrom(c.fundamental);
  sim::Random random(11);
  for (int i = 0; i < 1000; ++i) {
    const Eigen::Vector3d p_R(random.uniform(-800, 800), random.uniform(-600, 600),
                              random.uniform(600, 3500));
    const Eigen::Vector3d left = pinhole(c.leftIntrinsics, rightToLeft(c, p_R));
    const Eigen::Vector3d right = pinhole(c.rightIntrinsics, p_R);
    const Eigen::Vector3d line = F * left;
    EXPECT_LT(std::abs(right.dot(line)) / line.head<2>().norm(), 1e-9);
    const Eigen::Vector3d leftLine = F.transpose() * right;
    EXPECT_LT(std::abs(left.dot(leftLine)) / leftLine.head<2>().norm(), 1e-9);
  }
}

TEST(StereoRig, FundamentalMatrixOfASidewaysPairKeepsRows) {
  const auto c = makeCalibration({400, 400, 320, 240}, {0, 0, 0, 0}, {400, 400, 320, 240},
                                 {0, 0, 0, 0}, Eigen::Matrix3d::Identity(), {-100, 0, 0});
  // The line of (x, y) is row y: 0 X + 1 Y - y = 0 up to a factor.
  const Eigen::Vector3d line = matrixFrom(c.fundamental) * Eigen::Vector3d(123, 45, 1);
  EXPECT_NEAR(line.x() / line.y(), 0, 1e-12);
  EXPECT_NEAR(line.z() / line.y(), -45, 1e-9);
}

TEST(StereoRig, FundamentalMatrixHasUnitNormAndRankTwo) {
  const Eigen::Matrix3d F = matrixFrom(builtInRig().calibration.fundamental);
  EXPECT_NEAR(F.norm(), 1, 1e-12);
  const Eigen::Vector3d values = F.jacobiSvd().singularValues();
  EXPECT_LT(values[2], 1e-12);
  EXPECT_GT(values[1], 1e-6);
}

TEST(StereoRig, TranslationIsTheLeftCentreInTheRightFrame) {
  const auto& c = builtInRig().calibration;
  const Eigen::Vector3d centre = leftToRight(c, Eigen::Vector3d::Zero());
  EXPECT_EQ(centre, Eigen::Vector3d(-100.3, 0.8, -1.6));
}

TEST(StereoRig, FrameChangesAreInverseToEachOther) {
  const auto& c = builtInRig().calibration;
  const Eigen::Vector3d p(123, -456, 789);
  EXPECT_LT((rightToLeft(c, leftToRight(c, p)) - p).norm(), 1e-9);
  const Eigen::Matrix3d R = matrixFrom(c.rotation);
  EXPECT_LT((R * R.transpose() - Eigen::Matrix3d::Identity()).norm(), 1e-12);
}

TEST(StereoRig, MatricesAreStoredRowByRow) {
  double rows[9];
  Eigen::Matrix3d matrix;
  matrix << 1, 2, 3, 4, 5, 6, 7, 8, 9;
  storeMatrix(matrix, rows);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(rows[i], i + 1);
  EXPECT_EQ(matrixFrom(rows), matrix);
}

TEST(StereoRig, MirroringNegatesYAndZ) {
  EXPECT_EQ(mirrored({1, 2, 3}), Eigen::Vector3d(1, -2, -3));
}

}  // namespace
}  // namespace rig
