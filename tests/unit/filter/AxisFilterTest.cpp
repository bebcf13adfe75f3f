#include <alg_factory/filter/AxisFilter.h>
#include <alg_factory/filter/ConstantVelocityModel.h>
#include <alg_factory/filter/KalmanFilter.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace algorithm {
namespace {

using Matrix = KalmanFilter::Matrix;
using Vector = KalmanFilter::Vector;

template <typename A, typename B>
bool sameBits(const A& a, const B& b) {
  return a.rows() == b.rows() && a.cols() == b.cols() &&
         std::memcmp(a.data(), b.data(), sizeof(double) * static_cast<std::size_t>(a.size())) == 0;
}

void expectSameBits(const KalmanFilter& a, const KalmanFilter& b) {
  EXPECT_TRUE(sameBits(a.transition(), b.transition()));
  EXPECT_TRUE(sameBits(a.observation(), b.observation()));
  EXPECT_TRUE(sameBits(a.processNoise(), b.processNoise()));
  EXPECT_TRUE(sameBits(a.measurementNoise(), b.measurementNoise()));
  EXPECT_TRUE(sameBits(a.covariance(), b.covariance()));
  EXPECT_TRUE(sameBits(a.gain(), b.gain()));
  EXPECT_TRUE(sameBits(a.initialCovariance(), b.initialCovariance()));
  EXPECT_TRUE(sameBits(a.identity(), b.identity()));
  EXPECT_TRUE(sameBits(a.state(), b.state()));
  EXPECT_TRUE(sameBits(a.predictedState(), b.predictedState()));
  EXPECT_EQ(a.measurementDim(), b.measurementDim());
  EXPECT_EQ(a.stateDim(), b.stateDim());
  EXPECT_EQ(a.time(), b.time());
  EXPECT_EQ(a.startTime(), b.startTime());
  EXPECT_EQ(a.timeStep(), b.timeStep());
  EXPECT_EQ(a.initialized(), b.initialized());
}

/// The same filter, made to run densely: an update that replaces the transition leaves the
/// per-axis path for good.
class DensePair {
 public:
  explicit DensePair(const KalmanFilter& filter) : perAxis(filter), dense(filter) {
    const Vector y = Vector::Zero(3);
    perAxis.update(y);
    dense.update(y, dense.timeStep(), dense.transition());
    EXPECT_TRUE(perAxis.runsPerAxis());
    EXPECT_FALSE(dense.runsPerAxis());
  }
  void init(const Vector& x0) {
    perAxis.init(0.0, x0);
    dense.init(0.0, x0);
  }
  void update(const Vector& y) {
    perAxis.update(y);
    dense.update(y);
  }
  KalmanFilter perAxis, dense;
};

KalmanFilter filterOf(double step, double q, double r, double p) {
  Matrix transition = Matrix::Identity(6, 6);
  transition.topRightCorner(3, 3) = step * Matrix::Identity(3, 3);
  return KalmanFilter(step, transition, Matrix::Identity(3, 6), q * Matrix::Identity(6, 6),
                      r * Matrix::Identity(3, 3), p * Matrix::Identity(6, 6));
}

class AxisFilterOfMode : public testing::TestWithParam<int> {};

TEST_P(AxisFilterOfMode, GivesTheBitsOfTheDenseProductsOverTenThousandUpdates) {
  DensePair pair(ConstantVelocityModel::build(GetParam()).makeFilter());
  std::mt19937_64 random(7);
  std::normal_distribution<double> noise;
  pair.init(Eigen::Vector3d(100.0, -200.0, 1500.0));
  expectSameBits(pair.perAxis, pair.dense);
  for (int n = 0; n < 10000; ++n) {
    if (n % 997 == 0) pair.init(Eigen::Vector3d(noise(random), noise(random), noise(random)));
    const double t = n / 90.0;
    pair.update(Eigen::Vector3d(300 * std::sin(t) + noise(random), -200 * std::cos(0.7 * t),
                                1500 + 100 * t * (n % 2) + noise(random)));
    if (n < 100 || n % 100 == 0) expectSameBits(pair.perAxis, pair.dense);
    ASSERT_FALSE(HasFailure()) << "after update " << n;
  }
  expectSameBits(pair.perAxis, pair.dense);
}

INSTANTIATE_TEST_SUITE_P(AllModes, AxisFilterOfMode, testing::Values(0, 1));

TEST(AxisFilter, GivesTheBitsOfTheDenseProductsForOtherFactors) {
  const std::uint64_t seed = 11;
  RecordProperty("seed", static_cast<int>(seed));
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> exponent(-8.0, 8.0);
  for (int model = 0; model < 50; ++model) {
    const auto factor = [&] { return std::pow(10.0, exponent(random)); };
    DensePair pair(filterOf(factor(), model % 5 == 0 ? 0.0 : factor(), factor(),
                            model % 3 == 0 ? 0.0 : factor()));
    for (int n = 0; n < 100; ++n) {
      pair.update(Eigen::Vector3d(exponent(random), -factor(), n % 7 == 0 ? -0.0 : factor()));
    }
    expectSameBits(pair.perAxis, pair.dense);
    ASSERT_FALSE(HasFailure()) << "model " << model << ", seed " << seed;
  }
}

TEST(AxisFilter, KeepsTheSignsOfZeros) {
  DensePair pair(ConstantVelocityModel::build(0).makeFilter());
  pair.init(Eigen::Vector3d(-0.0, 0.0, -0.0));
  for (int n = 0; n < 5; ++n) pair.update(Eigen::Vector3d(-0.0, -0.0, 0.0));
  expectSameBits(pair.perAxis, pair.dense);
}

TEST(AxisFilter, SpreadsWhatIsNotFiniteAsTheDenseProductsDo) {
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const double bad : {inf, -inf, nan, 1.7e308, -1.7e308}) {
    DensePair pair(ConstantVelocityModel::build(0).makeFilter());
    pair.init(Eigen::Vector3d(1, 2, 3));
    pair.update(Eigen::Vector3d(1, 2, 3));
    pair.update(Eigen::Vector3d(1, bad, 3));
    pair.update(Eigen::Vector3d(1, -bad, 3));
    pair.update(Eigen::Vector3d(1, 2, 3));
    for (int i = 0; i < 6; ++i) {
      const double a = pair.perAxis.state()(i);
      const double b = pair.dense.state()(i);
      // The payload of a not-a-number is left to the processor.
      EXPECT_TRUE((std::isnan(a) && std::isnan(b)) || a == b) << bad << " entry " << i;
    }
    EXPECT_TRUE(sameBits(pair.perAxis.covariance(), pair.dense.covariance()));
  }
}

TEST(AxisFilter, RecognisesTheSystemsModelOnly) {
  EXPECT_TRUE(ConstantVelocityModel::build(0).makeFilter().runsPerAxis());
  EXPECT_TRUE(ConstantVelocityModel::build(1).makeFilter().runsPerAxis());

  const auto runsPerAxis = [](auto change) {
    ConstantVelocityModel model = ConstantVelocityModel::build(0);
    change(model);
    return model.makeFilter().runsPerAxis();
  };
  EXPECT_FALSE(runsPerAxis([](auto& m) { m.transition(0, 4) = 0.1; }));
  EXPECT_FALSE(runsPerAxis([](auto& m) { m.transition(0, 3) = 0.02; }));
  EXPECT_FALSE(runsPerAxis([](auto& m) { m.transition(5, 5) = 0.9; }));
  EXPECT_FALSE(runsPerAxis([](auto& m) { m.observation(1, 1) = 2.0; }));
  EXPECT_FALSE(runsPerAxis([](auto& m) { m.observation(0, 3) = 1.0; }));
  EXPECT_FALSE(runsPerAxis([](auto& m) { m.processNoise(2, 1) = 1e-6; }));
  EXPECT_FALSE(runsPerAxis([](auto& m) { m.processNoise(3, 3) = 1e-4; }));
  EXPECT_FALSE(runsPerAxis([](auto& m) { m.measurementNoise(1, 1) = 1e-3; }));
  EXPECT_FALSE(runsPerAxis([](auto& m) { m.initialCovariance(4, 4) = 1.0; }));
  EXPECT_FALSE(runsPerAxis([](auto& m) { m.processNoise *= -1.0; }));
  EXPECT_FALSE(runsPerAxis([](auto& m) { m.measurementNoise.setZero(); }));

  const Matrix one = Matrix::Identity(1, 1);
  EXPECT_FALSE(KalmanFilter(1.0, one, one, one, one, one).runsPerAxis());
}

TEST(AxisFilter, CovarianceAndGainAreEmptyBeforeTheyAreComputed) {
  KalmanFilter filter = ConstantVelocityModel::build(0).makeFilter();
  EXPECT_EQ(filter.covariance().size(), 0);
  EXPECT_EQ(filter.gain().size(), 0);
  filter.init();
  EXPECT_EQ(filter.covariance().size(), 36);
  EXPECT_EQ(filter.gain().size(), 0);
  filter.update(Eigen::Vector3d(1, 2, 3));
  EXPECT_EQ(filter.gain().rows(), 6);
  EXPECT_EQ(filter.gain().cols(), 3);
}

}  // namespace
}  // namespace algorithm
