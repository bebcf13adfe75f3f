// Two filters that meet, against one least-squares problem over the whole stretch.
#include <alg_kit/estimate/TwoFilter.h>
#include <gtest/gtest.h>
#include <sim/Random.h>

#include <Eigen/Dense>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

TEST(TwoFilter, OfOneModelIsTheLeastSquaresOverAllFrames) {
  constexpr int kFrames = 40;
  constexpr double t = 0.02, jerk = 2e6, noise = 1.5;
  ModelSet set;
  for (MotionModel& model : set.models) model = {jerk, 0, 0.25};
  set.memory = 1e5;  // does not fade
  sim::Random random(9);
  std::vector<Vector3d> measured;
  for (int k = 0; k < kFrames; ++k)
    measured.push_back(Vector3d(50 * std::sin(k * 0.1) + noise * random.normal(),
                                noise * random.normal(), 1500 + 10 * k + noise * random.normal()));
  const auto blind = [](std::size_t k) { return k == 7 || (k > 20 && k < 25); };

  Stretch stretch;
  stretch.elapsed.assign(kFrames, t);
  stretch.lastStart = kFrames - 1;
  stretch.see = [&](std::size_t k) -> std::optional<PositionInformation> {
    if (blind(k)) return std::nullopt;
    PositionInformation information;
    information.at = measured[k];
    information.weight = Matrix3d::Identity() / (noise * noise);
    information.numbers = 4;
    return information;
  };
  constexpr double kVague = 1e5;
  stretch.start = [&](std::size_t k) {
    MotionState state;
    state.p = measured[k];
    state.pp = Matrix3d::Identity() * noise * noise;
    state.vv = Matrix3d::Identity() * kVague * kVague;
    state.aa = Matrix3d::Identity() * kVague * kVague;
    return state;
  };
  std::vector<MotionState> smoothed(kFrames);
  smoothStretch(stretch, set, [&](std::size_t k, const SmoothedFrame& frame) {
    smoothed[k] = frame.marker;
    EXPECT_EQ(frame.used, !blind(k));
  });

  // Axis by axis: unknowns (p, v, a) of every frame.
  for (int axis = 0; axis < 3; ++axis) {
    MatrixXd normal = MatrixXd::Zero(3 * kFrames, 3 * kFrames);
    VectorXd right = VectorXd::Zero(3 * kFrames);
    for (int k = 0; k < kFrames; ++k) {
      if (!blind(static_cast<std::size_t>(k))) {
        normal(3 * k, 3 * k) += 1 / (noise * noise);
        right(3 * k) += measured[static_cast<std::size_t>(k)][axis] / (noise * noise);
      }
      if (k == 0) continue;
      MatrixXd f(3, 3), q(3, 3);
      f << 1, t, t * t / 2, 0, 1, t, 0, 0, 1;
      q << std::pow(t, 5) / 20, std::pow(t, 4) / 8, std::pow(t, 3) / 6,  //
          std::pow(t, 4) / 8, std::pow(t, 3) / 3, t * t / 2,             //
          std::pow(t, 3) / 6, t * t / 2, t;
      MatrixXd row(3, 6);
      row << -f, MatrixXd::Identity(3, 3);
      normal.block(3 * k - 3, 3 * k - 3, 6, 6) += row.transpose() * (jerk * q).inverse() * row;
    }
    const VectorXd solution = normal.ldlt().solve(right);
    const MatrixXd covariance = normal.inverse();
    for (int k = 0; k < kFrames; ++k) {
      const MotionState& s = smoothed[static_cast<std::size_t>(k)];
      EXPECT_NEAR(s.p[axis], solution(3 * k), 1e-3) << k;
      EXPECT_NEAR(s.v[axis], solution(3 * k + 1), 1e-1) << k;
      EXPECT_NEAR(s.a[axis], solution(3 * k + 2), 5) << k;
      EXPECT_NEAR(s.pp(axis, axis), covariance(3 * k, 3 * k), 2e-3 * covariance(3 * k, 3 * k)) << k;
      EXPECT_NEAR(s.pv(axis, axis), covariance(3 * k, 3 * k + 1),
                  2e-3 * std::sqrt(covariance(3 * k, 3 * k) * covariance(3 * k + 1, 3 * k + 1)));
    }
  }
}

TEST(TwoFilter, LeavesOutASightingThatNothingAroundItBelieves) {
  ModelSet set;
  Stretch stretch;
  stretch.elapsed.assign(100, 1 / 90.0);
  stretch.lastStart = 99;
  stretch.see = [&](std::size_t k) -> std::optional<PositionInformation> {
    PositionInformation information;
    information.at = Vector3d(k == 50 ? 30 : 0, 0, 1500);
    information.weight = Matrix3d::Identity();
    information.numbers = 4;
    return information;
  };
  stretch.start = [&](std::size_t) {
    MotionState state;
    state.p = Vector3d(0, 0, 1500);
    state.pp = Matrix3d::Identity();
    state.vv = Matrix3d::Identity() * 1e6;
    state.aa = Matrix3d::Identity() * 1e8;
    return state;
  };
  smoothStretch(stretch, set, [&](std::size_t k, const SmoothedFrame& frame) {
    EXPECT_EQ(frame.used, k != 50);
    EXPECT_LT(std::abs(frame.marker.p.x()), 0.1) << k;
  });
}

}  // namespace
}  // namespace estimate
