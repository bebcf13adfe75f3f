#include <alg_kit/bodies/Pivot.h>

#include <Eigen/Cholesky>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace bodies {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;
using Matrix6d = Eigen::Matrix<double, 6, 6>;
using Vector6d = Eigen::Matrix<double, 6, 1>;

constexpr std::size_t kFewestPoses = 10;
constexpr double kLeastTurn = 10;  // degrees
constexpr double kFarOff = 3;      // times the median
constexpr double kStrays = 10;     // times what the poses' own errors explain

struct Solution {
  Vector3d tip, spot;
  Matrix6d covariance;
};

/// How well the place of a tip is known in the camera frame, the tip itself taken as known.
Matrix3d tipWeight(const BodyPose& pose, const Vector3d& tip) {
  Eigen::Matrix<double, 3, 6> jacobian;
  jacobian << Matrix3d::Identity(), -skew(pose.motion.orientation * tip);
  return (jacobian * pose.covariance * jacobian.transpose()).inverse();
}

Solution solve(const std::vector<const BodyPose*>& poses, const Vector3d& about) {
  Matrix6d weight = Matrix6d::Zero();
  Vector6d pull = Vector6d::Zero();
  for (const BodyPose* const pose : poses) {
    Eigen::Matrix<double, 3, 6> rows;
    rows << pose->motion.orientation.toRotationMatrix(), -Matrix3d::Identity();
    const Matrix3d w = tipWeight(*pose, about);
    weight += rows.transpose() * w * rows;
    pull -= rows.transpose() * w * pose->motion.position;
  }
  const Eigen::LDLT<Matrix6d> solver(weight);
  const Vector6d both = solver.solve(pull);
  return {both.head<3>(), both.tail<3>(), solver.solve(Matrix6d::Identity())};
}

Solution solve(const std::vector<const BodyPose*>& poses) {
  Solution solution = solve(poses, Vector3d::Zero());
  for (int step = 0; step < 3; ++step) solution = solve(poses, solution.tip);
  return solution;
}

double distanceOf(const BodyPose& pose, const Solution& solution) {
  return (pose.motion * solution.tip - solution.spot).norm();
}

}  // namespace

PivotFit pivotOf(const std::vector<BodyPose>& poses) {
  if (poses.size() < kFewestPoses)
    throw std::runtime_error("expected at least 10 poses of the body, found " +
                             std::to_string(poses.size()));
  PivotFit result;
  std::vector<const BodyPose*> taken;
  for (const BodyPose& pose : poses) {
    taken.push_back(&pose);
    result.turned = std::max(result.turned, kDegrees * pose.motion.orientation.angularDistance(
                                                           poses.front().motion.orientation));
  }
  if (!(result.turned >= kLeastTurn))
    throw std::runtime_error(
        "expected a body that turns about its tip by 10 degrees or more, found " +
        std::to_string(std::lround(result.turned)) + " degrees");
  Solution solution = solve(taken);
  std::vector<double> distances;
  for (const BodyPose* const pose : taken) distances.push_back(distanceOf(*pose, solution));
  const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
  std::nth_element(distances.begin(), middle, distances.end());
  const double limit = kFarOff * *middle;
  taken.erase(
      std::remove_if(taken.begin(), taken.end(),
                     [&](const BodyPose* pose) { return distanceOf(*pose, solution) > limit; }),
      taken.end());
  solution = solve(taken);

  double squares = 0, expected = 0;
  for (const BodyPose* const pose : taken) {
    const Vector3d off = pose->motion * solution.tip - solution.spot;
    squares += off.squaredNorm();
    expected += off.dot(tipWeight(*pose, solution.tip) * off);
  }
  const auto count = static_cast<double>(taken.size());
  const double excess = expected / (3 * count - 6);
  result.residual = std::sqrt(squares / count);
  if (!(excess <= kStrays * kStrays))
    throw std::runtime_error(
        "expected a body that turns about its tip, found one that wanders: "
        "no point of it stays within " +
        std::to_string(std::lround(result.residual)) + " mm of a spot");
  result.tip = solution.tip;
  result.spot = solution.spot;
  result.poses = taken.size();
  result.covariance = solution.covariance.topLeftCorner<3, 3>() * std::max(1.0, excess);
  return result;
}

}  // namespace bodies
