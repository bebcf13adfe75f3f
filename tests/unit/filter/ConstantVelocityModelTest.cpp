#include <alg_factory/filter/ConstantVelocityModel.h>
#include <gtest/gtest.h>

namespace {

using algorithm::ConstantVelocityModel;
using algorithm::KalmanFilter;

void expectScaledIdentity(const KalmanFilter::Matrix& matrix, int size, double scale) {
  ASSERT_EQ(matrix.rows(), size);
  ASSERT_EQ(matrix.cols(), size);
  for (int r = 0; r < size; ++r) {
    for (int c = 0; c < size; ++c) EXPECT_EQ(matrix(r, c), r == c ? scale : 0.0) << r << ' ' << c;
  }
}

TEST(ConstantVelocityModel, TimeStepIsANinetiethOfASecond) {
  EXPECT_EQ(ConstantVelocityModel::kTimeStep, 1.0 / 90.0);
}

TEST(ConstantVelocityModel, MatricesAreEmptyUntilBuilt) {
  const ConstantVelocityModel model;
  EXPECT_EQ(model.transition.size(), 0);
  EXPECT_EQ(model.observation.size(), 0);
  EXPECT_EQ(model.processNoise.size(), 0);
  EXPECT_EQ(model.measurementNoise.size(), 0);
  EXPECT_EQ(model.initialCovariance.size(), 0);
}

TEST(ConstantVelocityModel, VelocityMovesThePositionByOneTimeStep) {
  const auto model = ConstantVelocityModel::build(0);
  ASSERT_EQ(model.transition.rows(), 6);
  ASSERT_EQ(model.transition.cols(), 6);
  for (int r = 0; r < 6; ++r) {
    for (int c = 0; c < 6; ++c) {
      const double expected = r == c ? 1.0 : c == r + 3 ? 1.0 / 90.0 : 0.0;
      EXPECT_EQ(model.transition(r, c), expected) << r << ' ' << c;
    }
  }
}

TEST(ConstantVelocityModel, PositionIsObserved) {
  const auto model = ConstantVelocityModel::build(0);
  ASSERT_EQ(model.observation.rows(), 3);
  ASSERT_EQ(model.observation.cols(), 6);
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 6; ++c) EXPECT_EQ(model.observation(r, c), r == c ? 1.0 : 0.0);
  }
}

TEST(ConstantVelocityModel, StartsWithoutUncertainty) {
  const auto model = ConstantVelocityModel::build(1);
  expectScaledIdentity(model.processNoise, 6, 1e-5);
  expectScaledIdentity(model.initialCovariance, 6, 0.0);
}

TEST(ConstantVelocityModel, OnlyModeOneTrustsMeasurementsLess) {
  expectScaledIdentity(ConstantVelocityModel::build(1).measurementNoise, 3, 1e-4);
  for (const int mode : {-2, -1, 0, 2, 100}) {
    SCOPED_TRACE(mode);
    expectScaledIdentity(ConstantVelocityModel::build(mode).measurementNoise, 3, 1e-6);
  }
}

TEST(ConstantVelocityModel, FilterHasTheModelAndIsNotStarted) {
  const auto model = ConstantVelocityModel::build(1);
  const KalmanFilter filter = model.makeFilter();
  EXPECT_EQ(filter.transition(), model.transition);
  EXPECT_EQ(filter.observation(), model.observation);
  EXPECT_EQ(filter.processNoise(), model.processNoise);
  EXPECT_EQ(filter.measurementNoise(), model.measurementNoise);
  EXPECT_EQ(filter.initialCovariance(), model.initialCovariance);
  EXPECT_EQ(filter.timeStep(), 1.0 / 90.0);
  EXPECT_EQ(filter.stateDim(), 6);
  EXPECT_EQ(filter.measurementDim(), 3);
  EXPECT_FALSE(filter.initialized());
  EXPECT_EQ(filter.covariance().size(), 0);
}

}  // namespace
