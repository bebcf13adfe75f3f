#include <alg_factory/filter/ConstantVelocityModel.h>
#include <alg_factory/filter/KalmanFilter.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <random>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using algorithm::ConstantVelocityModel;
using algorithm::KalmanFilter;
using Matrix = KalmanFilter::Matrix;
using Vector = KalmanFilter::Vector;

constexpr double kDt = 1.0 / 90.0;

Vector vec(std::initializer_list<double> values) {
  Vector v(static_cast<Eigen::Index>(values.size()));
  Eigen::Index i = 0;
  for (const double value : values) v[i++] = value;
  return v;
}

Matrix scalar(double value) {
  return Matrix::Constant(1, 1, value);
}

KalmanFilter scalarFilter(double a, double c, double q, double r, double p0) {
  return KalmanFilter(0.5, scalar(a), scalar(c), scalar(q), scalar(r), scalar(p0));
}

KalmanFilter positionFilter(int mode = 0) {
  return ConstantVelocityModel::build(mode).makeFilter();
}

void expectSame(const KalmanFilter& a, const KalmanFilter& b) {
  EXPECT_EQ(a.transition(), b.transition());
  EXPECT_EQ(a.observation(), b.observation());
  EXPECT_EQ(a.processNoise(), b.processNoise());
  EXPECT_EQ(a.measurementNoise(), b.measurementNoise());
  EXPECT_EQ(a.initialCovariance(), b.initialCovariance());
  EXPECT_EQ(a.identity(), b.identity());
  ASSERT_EQ(a.covariance().size(), b.covariance().size());
  EXPECT_EQ(a.covariance(), b.covariance());
  ASSERT_EQ(a.gain().size(), b.gain().size());
  EXPECT_EQ(a.gain(), b.gain());
  EXPECT_EQ(a.state(), b.state());
  EXPECT_EQ(a.predictedState(), b.predictedState());
  EXPECT_EQ(a.measurementDim(), b.measurementDim());
  EXPECT_EQ(a.stateDim(), b.stateDim());
  EXPECT_EQ(a.startTime(), b.startTime());
  EXPECT_EQ(a.time(), b.time());
  EXPECT_EQ(a.timeStep(), b.timeStep());
  EXPECT_EQ(a.initialized(), b.initialized());
}

// The textbook recursion on plain arrays; the inverse by Gauss-Jordan elimination.
using Rows = std::vector<std::vector<double>>;

Rows rowsOf(const Matrix& m) {
  Rows rows(static_cast<std::size_t>(m.rows()));
  for (Eigen::Index r = 0; r < m.rows(); ++r) {
    for (Eigen::Index c = 0; c < m.cols(); ++c)
      rows[static_cast<std::size_t>(r)].push_back(m(r, c));
  }
  return rows;
}

Rows times(const Rows& a, const Rows& b) {
  Rows product(a.size(), std::vector<double>(b[0].size(), 0.0));
  for (std::size_t r = 0; r < a.size(); ++r) {
    for (std::size_t k = 0; k < b.size(); ++k) {
      for (std::size_t c = 0; c < b[0].size(); ++c) product[r][c] += a[r][k] * b[k][c];
    }
  }
  return product;
}

Rows plus(Rows a, const Rows& b, double factor = 1.0) {
  for (std::size_t r = 0; r < a.size(); ++r) {
    for (std::size_t c = 0; c < a[0].size(); ++c) a[r][c] += factor * b[r][c];
  }
  return a;
}

Rows transposed(const Rows& a) {
  Rows t(a[0].size(), std::vector<double>(a.size()));
  for (std::size_t r = 0; r < a.size(); ++r) {
    for (std::size_t c = 0; c < a[0].size(); ++c) t[c][r] = a[r][c];
  }
  return t;
}

Rows inverted(Rows a) {
  const std::size_t n = a.size();
  Rows inverse(n, std::vector<double>(n, 0.0));
  for (std::size_t i = 0; i < n; ++i) inverse[i][i] = 1.0;
  for (std::size_t i = 0; i < n; ++i) {
    std::size_t pivot = i;
    for (std::size_t r = i; r < n; ++r) {
      if (std::abs(a[r][i]) > std::abs(a[pivot][i])) pivot = r;
    }
    std::swap(a[i], a[pivot]);
    std::swap(inverse[i], inverse[pivot]);
    const double scale = a[i][i];
    for (std::size_t c = 0; c < n; ++c) {
      a[i][c] /= scale;
      inverse[i][c] /= scale;
    }
    for (std::size_t r = 0; r < n; ++r) {
      if (r == i) continue;
      const double factor = a[r][i];
      for (std::size_t c = 0; c < n; ++c) {
        a[r][c] -= factor * a[i][c];
        inverse[r][c] -= factor * inverse[i][c];
      }
    }
  }
  return inverse;
}

struct Textbook {
  Rows A, C, Q, R, P, x, K;

  void update(const Rows& y) {
    x = times(A, x);
    P = plus(times(times(A, P), transposed(A)), Q);
    K = times(times(P, transposed(C)), inverted(plus(times(times(C, P), transposed(C)), R)));
    x = plus(x, times(K, plus(y, times(C, x), -1.0)));
    P = plus(P, times(times(K, C), P), -1.0);
  }
};

void expectNear(const Matrix& actual, const Rows& expected, double tolerance) {
  ASSERT_EQ(static_cast<std::size_t>(actual.rows()), expected.size());
  ASSERT_EQ(static_cast<std::size_t>(actual.cols()), expected[0].size());
  for (std::size_t r = 0; r < expected.size(); ++r) {
    for (std::size_t c = 0; c < expected[0].size(); ++c) {
      EXPECT_NEAR(actual(static_cast<Eigen::Index>(r), static_cast<Eigen::Index>(c)),
                  expected[r][c], tolerance)
          << r << ' ' << c;
    }
  }
}

Matrix randomMatrix(std::mt19937& random, int rows, int cols, double scale) {
  std::uniform_real_distribution<double> entry(-scale, scale);
  Matrix m(rows, cols);
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c) m(r, c) = entry(random);
  }
  return m;
}

TEST(KalmanFilter, HasNoVirtualFunctions) {
  EXPECT_FALSE(std::is_polymorphic_v<KalmanFilter>);
}

TEST(KalmanFilter, DefaultConstructedFilterIsEmpty) {
  const KalmanFilter filter;
  EXPECT_EQ(filter.transition().size(), 0);
  EXPECT_EQ(filter.observation().size(), 0);
  EXPECT_EQ(filter.processNoise().size(), 0);
  EXPECT_EQ(filter.measurementNoise().size(), 0);
  EXPECT_EQ(filter.covariance().size(), 0);
  EXPECT_EQ(filter.gain().size(), 0);
  EXPECT_EQ(filter.initialCovariance().size(), 0);
  EXPECT_EQ(filter.identity().size(), 0);
  EXPECT_EQ(filter.state().size(), 0);
  EXPECT_EQ(filter.predictedState().size(), 0);
  EXPECT_FALSE(filter.initialized());
}

TEST(KalmanFilter, ConstructorTakesTheModelAndItsSizes) {
  Matrix A(2, 2), C(1, 2), Q(2, 2), R(1, 1), P0(2, 2);
  A << 1, 2, 3, 4;
  C << 5, 6;
  Q << 7, 8, 9, 10;
  R << 11;
  P0 << 12, 13, 14, 15;
  const KalmanFilter filter(0.25, A, C, Q, R, P0);
  EXPECT_EQ(filter.transition(), A);
  EXPECT_EQ(filter.observation(), C);
  EXPECT_EQ(filter.processNoise(), Q);
  EXPECT_EQ(filter.measurementNoise(), R);
  EXPECT_EQ(filter.initialCovariance(), P0);
  EXPECT_EQ(filter.identity(), Matrix(Matrix::Identity(2, 2)));
  EXPECT_EQ(filter.stateDim(), 2);
  EXPECT_EQ(filter.measurementDim(), 1);
  EXPECT_EQ(filter.timeStep(), 0.25);
  EXPECT_FALSE(filter.initialized());
  EXPECT_EQ(filter.covariance().size(), 0);
  EXPECT_EQ(filter.gain().size(), 0);
  EXPECT_EQ(filter.state(), vec({0, 0}));
  EXPECT_EQ(filter.predictedState(), vec({0, 0}));
}

TEST(KalmanFilter, InitStartsFromZeroAtTimeZero) {
  KalmanFilter filter = scalarFilter(2, 1, 1, 1, 3);
  filter.init(7.0, vec({5}));
  filter.update(vec({4}));
  filter.init();
  EXPECT_EQ(filter.state(), vec({0}));
  EXPECT_EQ(filter.covariance(), scalar(3));
  EXPECT_EQ(filter.startTime(), 0.0);
  EXPECT_EQ(filter.time(), 0.0);
  EXPECT_TRUE(filter.initialized());
}

TEST(KalmanFilter, InitLeavesGainAndModel) {
  KalmanFilter filter = scalarFilter(1, 1, 1, 1, 1);
  filter.init();
  EXPECT_EQ(filter.gain().size(), 0);
  filter.update(vec({4}));
  const Matrix gain = filter.gain();
  ASSERT_EQ(gain.size(), 1);
  filter.init(0.0, vec({1}));
  EXPECT_EQ(filter.gain(), gain);
  EXPECT_EQ(filter.transition(), scalar(1));
  EXPECT_EQ(filter.timeStep(), 0.5);
}

TEST(KalmanFilter, InitWithAWholeStateTakesItUnchanged) {
  KalmanFilter filter = positionFilter();
  filter.init(2.5, vec({1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(filter.state(), vec({1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(filter.covariance(), Matrix(Matrix::Zero(6, 6)));
  EXPECT_EQ(filter.startTime(), 2.5);
  EXPECT_EQ(filter.time(), 2.5);
  EXPECT_TRUE(filter.initialized());
}

TEST(KalmanFilter, InitWithAPositionHasNoVelocity) {
  KalmanFilter filter = positionFilter();
  filter.init(0.0, vec({9, 9, 9, 9, 9, 9}));
  filter.init(0.0, vec({1, 2, 3}));
  EXPECT_EQ(filter.state(), vec({1, 2, 3, 0, 0, 0}));
  filter.init(0.0, Vector());
  EXPECT_EQ(filter.state(), vec({0, 0, 0, 0, 0, 0}));
}

TEST(KalmanFilter, InitWithALongerStateIsCut) {
  KalmanFilter filter = positionFilter();
  filter.init(0.0, vec({1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(filter.state(), vec({1, 2, 3, 4, 5, 6}));
}

TEST(KalmanFilter, InitFromItsOwnStateKeepsTheState) {
  KalmanFilter filter = positionFilter();
  filter.init(0.0, vec({1, 2, 3}));
  filter.update(vec({2, 2, 2}));
  filter.update(vec({3, 2, 2}));  // the first update moves no velocity
  const Vector before = filter.state();
  filter.init(0.0, filter.state());
  EXPECT_EQ(filter.state(), before);
  EXPECT_NE(before[3], 0.0);
  EXPECT_EQ(filter.covariance(), Matrix(Matrix::Zero(6, 6)));
  EXPECT_EQ(filter.time(), 0.0);
}

TEST(KalmanFilter, ScalarFilterByHand) {
  // All matrices one, from 0, measuring 3: P 2, K 2/3, x 2; then P 5/3, K 5/8, x 2 + 5/8; then
  // P 13/8, K 13/21, x 21/8 + 13/21 * 3/8.
  KalmanFilter filter = scalarFilter(1, 1, 1, 1, 1);
  filter.init();
  filter.update(vec({3}));
  EXPECT_DOUBLE_EQ(filter.gain()(0, 0), 2.0 / 3.0);
  EXPECT_DOUBLE_EQ(filter.state()[0], 2.0);
  EXPECT_DOUBLE_EQ(filter.covariance()(0, 0), 2.0 / 3.0);
  filter.update(vec({3}));
  EXPECT_DOUBLE_EQ(filter.gain()(0, 0), 5.0 / 8.0);
  EXPECT_DOUBLE_EQ(filter.state()[0], 2.625);
  EXPECT_DOUBLE_EQ(filter.covariance()(0, 0), 5.0 / 8.0);
  filter.update(vec({3}));
  EXPECT_DOUBLE_EQ(filter.gain()(0, 0), 13.0 / 21.0);
  EXPECT_DOUBLE_EQ(filter.state()[0], 2.625 + 13.0 / 56.0);
  EXPECT_EQ(filter.predictedState(), filter.state());
}

TEST(KalmanFilter, ScalarFilterWithGrowthAndGainByHand) {
  // A 2, C 1/2, from 3 with P 1: prediction 6, P 5; S = 5/4 + 1 = 9/4; K = (5/2) / (9/4) = 10/9;
  // measuring 4 against 3: x = 6 + 10/9; P = (1 - 5/9) 5 = 20/9.
  KalmanFilter filter = scalarFilter(2, 0.5, 1, 1, 1);
  filter.init(0.0, vec({3}));
  filter.update(vec({4}));
  EXPECT_DOUBLE_EQ(filter.gain()(0, 0), 10.0 / 9.0);
  EXPECT_DOUBLE_EQ(filter.state()[0], 64.0 / 9.0);
  EXPECT_DOUBLE_EQ(filter.covariance()(0, 0), 20.0 / 9.0);
}

TEST(KalmanFilter, ScalarRecursion) {
  const double a = 0.97, c = 1.3, q = 0.02, r = 0.4;
  KalmanFilter filter = scalarFilter(a, c, q, r, 0.8);
  filter.init(0.0, vec({5}));
  double x = 5, p = 0.8;
  for (int i = 0; i < 1000; ++i) {
    const double y = std::sin(0.1 * i);
    filter.update(vec({y}));
    x = a * x;
    p = a * a * p + q;
    const double k = p * c / (c * c * p + r);
    x += k * (y - c * x);
    p -= k * c * p;
    ASSERT_NEAR(filter.state()[0], x, 1e-13) << i;
    ASSERT_NEAR(filter.covariance()(0, 0), p, 1e-14) << i;
    ASSERT_NEAR(filter.gain()(0, 0), k, 1e-13) << i;
  }
}

TEST(KalmanFilter, UsesAGeneralInverse) {
  // P = Q = I and C = I give S = I + R, here singular in every leading block: only pivoting inverts
  // it. S swaps, so K swaps.
  const Matrix one = Matrix::Identity(2, 2);
  Matrix R(2, 2);
  R << -1, 1, 1, -1;
  KalmanFilter swapping(1.0, one, one, one, R, Matrix::Zero(2, 2));
  swapping.update(vec({3, 5}));
  EXPECT_EQ(swapping.gain()(0, 1), 1.0);
  EXPECT_EQ(swapping.gain()(0, 0), 0.0);
  EXPECT_EQ(swapping.state(), vec({5, 3}));

  // S = [1 2; 0 1] has the inverse [1 -2; 0 1]: no symmetry is assumed.
  R << 0, 2, 0, 0;
  KalmanFilter skewed(1.0, one, one, one, R, Matrix::Zero(2, 2));
  skewed.update(vec({5, 1}));
  EXPECT_EQ(skewed.state(), vec({3, 1}));
}

TEST(KalmanFilter, CovarianceIsNotMadeSymmetric) {
  // A = C = I, Q = 0, R = I, P = [1 1; 0 1]: S = [2 1; 0 2], S^-1 = [1/2 -1/4; 0 1/2],
  // K = P S^-1 = [1/2 1/4; 0 1/2], (I - K) P = [1/2 1/4; 0 1/2].
  const Matrix one = Matrix::Identity(2, 2);
  Matrix P0(2, 2);
  P0 << 1, 1, 0, 1;
  KalmanFilter filter(1.0, one, one, Matrix::Zero(2, 2), one, P0);
  filter.update(vec({0, 0}));
  Matrix expected(2, 2);
  expected << 0.5, 0.25, 0, 0.5;
  EXPECT_EQ(filter.gain(), expected);
  EXPECT_EQ(filter.covariance(), expected);
}

TEST(KalmanFilter, CovarianceIsCorrectedByTheSimpleForm) {
  // P = 2^80 and R = 1: S = 2^80 + 1 rounds to 2^80, so K = 1 and (1 - K) P = 0. A form that adds
  // K R K^T would give 1.
  const double large = std::ldexp(1.0, 80);
  KalmanFilter filter = scalarFilter(1, 1, 0, 1, large);
  filter.update(vec({7}));
  EXPECT_EQ(filter.gain()(0, 0), 1.0);
  EXPECT_EQ(filter.covariance()(0, 0), 0.0);
  EXPECT_EQ(filter.state()[0], 7.0);
}

TEST(KalmanFilter, FollowsTheTextbookForAnyShape) {
  constexpr unsigned kSeed = 4711;
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  std::mt19937 random(kSeed);
  const std::array<std::pair<int, int>, 5> shapes = {{{1, 1}, {2, 1}, {4, 2}, {3, 3}, {5, 6}}};
  for (const auto& [n, m] : shapes) {
    SCOPED_TRACE(testing::Message() << n << " states, " << m << " measurements");
    // Row sums below one keep the system stable; noises are M M^T plus a diagonal.
    const Matrix A = randomMatrix(random, n, n, 0.9 / n);
    const Matrix C = randomMatrix(random, m, n, 1.0);
    const Matrix q = randomMatrix(random, n, n, 0.3);
    const Matrix r = randomMatrix(random, m, m, 0.5);
    const Matrix p = randomMatrix(random, n, n, 1.0);
    const Matrix Q = q * q.transpose();
    const Matrix R = r * r.transpose() + 0.5 * Matrix::Identity(m, m);
    const Matrix P0 = p * p.transpose();
    const Matrix x0 = randomMatrix(random, n, 1, 10.0);

    KalmanFilter filter(0.1, A, C, Q, R, P0);
    filter.init(0.0, x0);
    Textbook textbook{rowsOf(A), rowsOf(C), rowsOf(Q), rowsOf(R), rowsOf(P0), rowsOf(x0), {}};
    for (int i = 0; i < 200; ++i) {
      const Matrix y = randomMatrix(random, m, 1, 10.0);
      filter.update(y);
      textbook.update(rowsOf(y));
      expectNear(filter.state(), textbook.x, 1e-11);
      expectNear(filter.covariance(), textbook.P, 1e-12);
      expectNear(filter.gain(), textbook.K, 1e-11);
    }
  }
}

// With scaled identities the three axes do not see each other: position and velocity of each follow
// a recursion of 2x2 covariances, the same for all axes.
TEST(KalmanFilter, PositionFilterIsThreeIndependentAxes) {
  for (const int mode : {0, 1}) {
    const double q = 1e-5;
    const double r = mode == 1 ? 1e-4 : 1e-6;
    KalmanFilter filter = positionFilter(mode);
    const std::array<double, 3> first = {100.0, -250.0, 1500.0};
    filter.init(0.0, vec({first[0], first[1], first[2]}));
    std::array<double, 3> position = first;
    std::array<double, 3> velocity = {};
    double pp = 0, pv = 0, vv = 0;
    for (int i = 1; i <= 2000; ++i) {
      const std::array<double, 3> y = {first[0] + 40 * std::sin(0.03 * i), first[1] + 0.5 * i,
                                       first[2] + (i % 7 == 0 ? 3.0 : -0.5)};
      filter.update(vec({y[0], y[1], y[2]}));

      pp += 2 * kDt * pv + kDt * kDt * vv + q;
      pv += kDt * vv;
      vv += q;
      const double kp = pp / (pp + r);
      const double kv = pv / (pp + r);
      vv -= kv * pv;
      pv -= kp * pv;
      pp -= kp * pp;
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const double predicted = position[axis] + kDt * velocity[axis];
        const double innovation = y[axis] - predicted;
        position[axis] = predicted + kp * innovation;
        velocity[axis] += kv * innovation;
        const auto k = static_cast<Eigen::Index>(axis);
        ASSERT_NEAR(filter.state()[k], position[axis], 1e-9) << i;
        ASSERT_NEAR(filter.state()[k + 3], velocity[axis], 1e-8) << i;
        for (Eigen::Index other = 0; other < 3; ++other) {
          const bool same = other == k;
          ASSERT_NEAR(filter.covariance()(k, other), same ? pp : 0.0, 1e-16) << i;
          ASSERT_NEAR(filter.covariance()(k, other + 3), same ? pv : 0.0, 1e-16) << i;
          ASSERT_NEAR(filter.covariance()(k + 3, other), same ? pv : 0.0, 1e-16) << i;
          ASSERT_NEAR(filter.covariance()(k + 3, other + 3), same ? vv : 0.0, 1e-15) << i;
          ASSERT_NEAR(filter.gain()(k, other), same ? kp : 0.0, 1e-12) << i;
          ASSERT_NEAR(filter.gain()(k + 3, other), same ? kv : 0.0, 1e-12) << i;
        }
      }
    }
  }
}

TEST(KalmanFilter, FirstUpdateOnTheStartingPositionStaysThere) {
  for (const int mode : {0, 1}) {
    KalmanFilter filter = positionFilter(mode);
    filter.init(0.0, vec({12.5, -7.25, 1234.5}));
    filter.update(vec({12.5, -7.25, 1234.5}));
    EXPECT_EQ(filter.state(), vec({12.5, -7.25, 1234.5, 0, 0, 0})) << mode;
    // P is Q after the prediction: 1e-5 / (1e-5 + 1e-6) or 1e-5 / (1e-5 + 1e-4).
    EXPECT_DOUBLE_EQ(filter.gain()(0, 0), mode == 1 ? 1.0 / 11.0 : 10.0 / 11.0);
    EXPECT_EQ(filter.gain()(3, 0), 0.0);
  }
}

TEST(KalmanFilter, UpdateBeforeAnyInitStartsFromZero) {
  KalmanFilter silent = positionFilter();
  KalmanFilter started = positionFilter();
  started.init();
  silent.update(vec({1, 2, 3}));
  started.update(vec({1, 2, 3}));
  EXPECT_TRUE(silent.initialized());
  EXPECT_GT(silent.state()[0], 0.5);
  expectSame(silent, started);
}

TEST(KalmanFilter, OnlyTheFirstUpdateStartsTheFilter) {
  KalmanFilter filter = scalarFilter(1, 1, 1, 1, 1);
  filter.update(vec({3}));
  filter.update(vec({3}));
  EXPECT_DOUBLE_EQ(filter.state()[0], 2.625);
}

TEST(KalmanFilter, TimeIsAccumulatedStepByStep) {
  KalmanFilter filter = positionFilter();
  filter.init(3.0, vec({1, 2, 3}));
  double time = 3.0;
  for (int i = 0; i < 100; ++i) {
    filter.update(vec({1, 2, 3}));
    time += kDt;
    EXPECT_EQ(filter.time(), time) << i;
  }
  EXPECT_NE(time, 3.0 + 100 * kDt);  // so the sum above tells it from a product
  EXPECT_EQ(filter.startTime(), 3.0);
}

TEST(KalmanFilter, TimeDoesNotEnterTheEstimate) {
  KalmanFilter early = positionFilter();
  KalmanFilter late = positionFilter();
  early.init(0.0, vec({1, 2, 3}));
  late.init(1e6, vec({1, 2, 3}));
  for (int i = 0; i < 10; ++i) {
    early.update(vec({2.0 + i, 2, 3}));
    late.update(vec({2.0 + i, 2, 3}));
  }
  EXPECT_EQ(early.state(), late.state());
  EXPECT_EQ(early.covariance(), late.covariance());
}

TEST(KalmanFilter, InitRestartsTheEstimate) {
  KalmanFilter used = positionFilter();
  used.init(0.0, vec({500, 500, 500}));
  for (int i = 0; i < 20; ++i) used.update(vec({500.0 + i, 400, 300}));
  KalmanFilter fresh = positionFilter();
  used.init(0.0, vec({1, 2, 3}));
  fresh.init(0.0, vec({1, 2, 3}));
  used.update(vec({1.5, 2.5, 3.5}));
  fresh.update(vec({1.5, 2.5, 3.5}));
  expectSame(used, fresh);
}

TEST(KalmanFilter, UpdateWithATransitionReplacesItAndTheStepForGood) {
  KalmanFilter filter = scalarFilter(1, 1, 1, 1, 1);  // time step 0.5
  filter.init(0.0, vec({3}));
  Matrix doubling = scalar(2);
  filter.update(vec({6}), 0.25, doubling);
  // Prediction 6, measured 6; P = 4 + 1 = 5, K = 5/6.
  EXPECT_DOUBLE_EQ(filter.state()[0], 6.0);
  EXPECT_DOUBLE_EQ(filter.gain()(0, 0), 5.0 / 6.0);
  EXPECT_EQ(filter.transition(), scalar(2));
  EXPECT_EQ(filter.timeStep(), 0.25);
  EXPECT_EQ(filter.time(), 0.25);
  EXPECT_EQ(doubling, scalar(2));  // taken by value
  filter.update(vec({12}));
  EXPECT_DOUBLE_EQ(filter.state()[0], 12.0);
  EXPECT_EQ(filter.time(), 0.5);
}

TEST(KalmanFilter, UpdateMayBeGivenItsOwnTransition) {
  KalmanFilter filter = scalarFilter(2, 1, 1, 1, 1);
  filter.init(0.0, vec({3}));
  filter.update(vec({6}), 0.5, filter.transition());
  EXPECT_DOUBLE_EQ(filter.state()[0], 6.0);
  EXPECT_EQ(filter.transition(), scalar(2));
}

TEST(KalmanFilter, UpdateWithATransitionStartsAFilterThatWasNot) {
  KalmanFilter filter = scalarFilter(1, 1, 1, 1, 1);
  filter.update(vec({6}), 0.25, scalar(2));
  EXPECT_TRUE(filter.initialized());
  EXPECT_DOUBLE_EQ(filter.state()[0], 5.0);  // P = 4 + 1, K = 5/6 of 6
  EXPECT_EQ(filter.time(), 0.25);
}

TEST(KalmanFilter, MeasurementMayBeItsOwnState) {
  KalmanFilter filter = scalarFilter(2, 1, 1, 1, 1);
  filter.init(0.0, vec({3}));
  filter.update(filter.state());
  EXPECT_DOUBLE_EQ(filter.state()[0], 3.5);  // predicted 6, measured 3, K = 5/6
}

TEST(KalmanFilter, CopyIsDeep) {
  KalmanFilter original = positionFilter();
  original.init(0.0, vec({1, 2, 3}));
  original.update(vec({2, 3, 4}));
  KalmanFilter copy;
  copy = original;
  expectSame(copy, original);
  EXPECT_NE(copy.state().data(), original.state().data());
  EXPECT_NE(copy.covariance().data(), original.covariance().data());

  const KalmanFilter untouched = original;
  copy.update(vec({9, 9, 9}), 0.5, Matrix::Identity(6, 6));
  expectSame(original, untouched);
  EXPECT_NE(copy.state(), original.state());
}

TEST(KalmanFilter, CopyContinuesAsTheOriginalWould) {
  KalmanFilter original = positionFilter(1);
  original.init(0.0, vec({1, 2, 3}));
  original.update(vec({2, 3, 4}));
  KalmanFilter copy = original;
  for (int i = 0; i < 5; ++i) {
    original.update(vec({2.0 + i, 3, 4}));
    copy.update(vec({2.0 + i, 3, 4}));
  }
  expectSame(copy, original);
}

TEST(KalmanFilter, AssignmentTakesTheSourcesShapes) {
  KalmanFilter slot = scalarFilter(1, 1, 1, 1, 1);
  slot.update(vec({3}));
  slot = positionFilter();
  expectSame(slot, positionFilter());
  slot.update(vec({1, 2, 3}));
  EXPECT_EQ(slot.state().size(), 6);
  slot = KalmanFilter();
  expectSame(slot, KalmanFilter());
}

TEST(KalmanFilter, SelfAssignmentChangesNothing) {
  KalmanFilter filter = positionFilter();
  filter.init(1.0, vec({1, 2, 3}));
  filter.update(vec({2, 3, 4}));
  const KalmanFilter before = filter;
  const KalmanFilter& itself = filter;
  filter = itself;
  expectSame(filter, before);
  filter.update(vec({2, 3, 4}));
  KalmanFilter continued = before;
  continued.update(vec({2, 3, 4}));
  expectSame(filter, continued);
}

TEST(KalmanFilter, InitFromPartOfItsOwnStateKeepsThatPart) {
  KalmanFilter filter(1.0, Matrix::Identity(6, 6), Matrix::Identity(3, 6), Matrix::Identity(6, 6),
                      Matrix::Identity(3, 3), Matrix::Zero(6, 6));
  filter.init(0.0, vec({1, 2, 3, 4, 5, 6}));
  filter.init(0.0, filter.state().head(3));
  EXPECT_EQ(filter.state(), vec({1, 2, 3, 0, 0, 0}));
}

}  // namespace
