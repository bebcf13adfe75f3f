// The steps on 3x3 blocks against the textbook's formulas on whole matrices.
#include <alg_kit/estimate/MotionState.h>
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

struct Whole {
  VectorXd mean{9};
  MatrixXd covariance{9, 9};
};

Whole wholeOf(const MotionState& s) {
  Whole w;
  w.mean << s.p, s.v, s.a;
  w.covariance << s.pp, s.pv, s.pa,  //
      s.pv.transpose(), s.vv, s.va,  //
      s.pa.transpose(), s.va.transpose(), s.aa;
  return w;
}

MotionState someState() {
  const MatrixXd root = MatrixXd::NullaryExpr(
      9, 9, [](Eigen::Index i, Eigen::Index j) { return std::sin(3.0 * i + 7.0 * j * j + 1); });
  const MatrixXd c = root * root.transpose() + MatrixXd::Identity(9, 9);
  MotionState s;
  s.p = Vector3d(10, -20, 1500);
  s.v = Vector3d(300, 20, -100);
  s.a = Vector3d(-1000, 500, 200);
  s.pp = c.block<3, 3>(0, 0);
  s.pv = c.block<3, 3>(0, 3);
  s.pa = c.block<3, 3>(0, 6);
  s.vv = c.block<3, 3>(3, 3);
  s.va = c.block<3, 3>(3, 6);
  s.aa = c.block<3, 3>(6, 6);
  return s;
}

/// Of rank 3 or, with two rows, of rank 2.
MatrixXd someJacobian(int rows) {
  return MatrixXd::NullaryExpr(rows, 3, [](Eigen::Index i, Eigen::Index j) {
    return std::cos(2.0 * i + 5.0 * j + 3.0 * i * j);
  });
}

void expectSame(const Whole& a, const Whole& b) {
  EXPECT_LT((a.mean - b.mean).norm(), 1e-9 * a.mean.norm());
  EXPECT_LT((a.covariance - b.covariance).norm(), 1e-10 * a.covariance.norm());
}

TEST(MotionState, PredictionIsThatOfTheTransitionMatrix) {
  const double t = 0.02, memory = 0.4, jerk = 1e5;
  const double fade = std::exp(-t / memory);
  MatrixXd f = MatrixXd::Identity(9, 9);
  f.block<3, 3>(0, 3) = Matrix3d::Identity() * t;
  f.block<3, 3>(0, 6) = Matrix3d::Identity() * memory * memory * (t / memory - 1 + fade);
  f.block<3, 3>(3, 6) = Matrix3d::Identity() * memory * (1 - fade);
  f.block<3, 3>(6, 6) = Matrix3d::Identity() * fade;
  // The integral of F(s) G G^T F(s)^T over the step, by the midpoint rule, for white jerk.
  MatrixXd q = MatrixXd::Zero(9, 9);
  const int pieces = 2000;
  for (int i = 0; i < pieces; ++i) {
    const double s = t * (i + 0.5) / pieces;
    MatrixXd g(9, 3);
    g << Matrix3d::Identity() * s * s / 2, Matrix3d::Identity() * s, Matrix3d::Identity();
    q += jerk * t / pieces * g * g.transpose();
  }
  const Whole before = wholeOf(someState());
  MotionState state = someState();
  predict(state, Step(t, memory), jerk);
  const Whole after = wholeOf(state);
  EXPECT_LT((after.mean - f * before.mean).norm(), 1e-9);
  const MatrixXd expected = f * before.covariance * f.transpose() + q;
  EXPECT_LT((after.covariance - expected).norm(), 1e-6 * expected.norm());
}

// Information form against the gain form, for both cameras' four numbers and one camera's two.
TEST(MotionState, CorrectionIsThatOfTheGain) {
  for (const int rows : {4, 2}) {
    const MatrixXd j = someJacobian(rows);
    const VectorXd noise = VectorXd::LinSpaced(rows, 0.5, 2);
    const MatrixXd r = noise.asDiagonal();
    const VectorXd residual = VectorXd::LinSpaced(rows, -3, 2);
    const Vector3d at(11, -18, 1497);
    PositionInformation information;
    information.at = at;
    information.weight = j.transpose() * r.inverse() * j;
    information.pull = j.transpose() * r.inverse() * residual;
    information.misfit = residual.dot(r.inverse() * residual);

    const Whole before = wholeOf(someState());
    MatrixXd h = MatrixXd::Zero(rows, 9);
    h.leftCols(3) = j;
    const MatrixXd s = h * before.covariance * h.transpose() + r;
    const MatrixXd k = before.covariance * h.transpose() * s.inverse();
    const VectorXd innovation = residual - j * (before.mean.head(3) - at);
    Whole expected;
    expected.mean = before.mean + k * innovation;
    expected.covariance = before.covariance - k * s * k.transpose();

    MotionState state = someState();
    const Fit fit = fitAndCorrect(state, information);
    expectSame(wholeOf(state), expected);
    EXPECT_NEAR(fit.distance2, innovation.dot(s.inverse() * innovation), 1e-9);
    EXPECT_NEAR(fit.determinant * r.determinant() / s.determinant(), 1, 1e-9);
    EXPECT_NEAR(fitOf(someState(), information).distance2, fit.distance2, 1e-12);

    // Where it determines a position, by that position's covariance.
    determine(information);
    ASSERT_EQ(information.determined, rows == 4);
    if (!information.determined) continue;
    state = someState();
    const Fit same = fitAndCorrect(state, information);
    expectSame(wholeOf(state), expected);
    EXPECT_NEAR(same.distance2, fit.distance2, 1e-9);
    EXPECT_NEAR(same.determinant * information.weight.determinant() / fit.determinant, 1, 1e-9);
  }
}

// A tremor is a tenth to twelfth state that lives for one frame.
TEST(MotionState, TremorIsAnIndependentDisplacement) {
  const double tremor = 1.5;
  for (const bool determined : {false, true}) {
    const int rows = determined ? 4 : 2;
    const MatrixXd j = someJacobian(rows);
    const VectorXd residual = VectorXd::LinSpaced(rows, -1, 2);
    PositionInformation information;
    information.at = Vector3d(11, -18, 1497);
    information.weight = j.transpose() * j;
    information.pull = j.transpose() * residual;
    information.misfit = residual.squaredNorm();
    determine(information);

    const Whole before = wholeOf(someState());
    MatrixXd c = MatrixXd::Zero(12, 12);
    c.topLeftCorner(9, 9) = before.covariance;
    c.bottomRightCorner(3, 3) = Matrix3d::Identity() * tremor * tremor;
    MatrixXd h = MatrixXd::Zero(rows, 12);
    h.leftCols(3) = h.rightCols(3) = j;
    const MatrixXd s = h * c * h.transpose() + MatrixXd::Identity(rows, rows);
    const MatrixXd k = c * h.transpose() * s.inverse();
    const VectorXd innovation = residual - j * (before.mean.head(3) - information.at);
    const VectorXd change = k * innovation;
    const MatrixXd after = c - k * h * c;

    MotionState motion = someState(), marker;
    const Fit fit = fitAndCorrect(motion, information, tremor, &marker);
    EXPECT_NEAR(fit.distance2, innovation.dot(s.inverse() * innovation), 1e-8);
    const double common = determined ? information.weight.determinant() : 1;
    EXPECT_NEAR(fit.determinant * common / s.determinant(), 1, 1e-9);
    EXPECT_LT((wholeOf(motion).mean - before.mean - change.head(9)).norm(), 1e-8);
    EXPECT_LT((wholeOf(motion).covariance - after.topLeftCorner(9, 9)).norm(), 1e-8);
    MatrixXd sum = MatrixXd::Zero(9, 12);  // the marker: position plus displacement
    sum.leftCols(9) = MatrixXd::Identity(9, 9);
    sum.block(0, 9, 3, 3) = Matrix3d::Identity();
    EXPECT_LT((wholeOf(marker).mean - before.mean - sum * change).norm(), 1e-8);
    EXPECT_LT((wholeOf(marker).covariance - sum * after * sum.transpose()).norm(), 1e-8);
  }
}

TEST(MotionState, CovarianceStaysEvenOverAnHour) {
  MotionState state = someState();
  state.vv *= 1e5;
  state.aa *= 1e7;
  PositionInformation information;
  information.weight << 400, 10, 30, 10, 300, 5, 30, 5, 4;
  for (int i = 0; i < 90 * 3600; ++i) {
    predict(state, Step(1 / 90.0, 0.4), 1e6);
    information.at = state.p;
    fitAndCorrect(state, information);
  }
  const Whole whole = wholeOf(state);
  EXPECT_LT((whole.covariance - whole.covariance.transpose()).norm(),
            1e-12 * whole.covariance.norm());
  EXPECT_GT(Eigen::SelfAdjointEigenSolver<MatrixXd>(whole.covariance).eigenvalues().minCoeff(), 0);
}

}  // namespace
}  // namespace estimate
