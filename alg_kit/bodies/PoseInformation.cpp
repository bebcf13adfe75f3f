#include <alg_kit/bodies/PoseInformation.h>

#include <alg_kit/bodies/RigidFit.h>

#include <cmath>

namespace bodies {

using Eigen::Matrix3d;
using Eigen::Vector3d;

void PoseInformation::add(const Vector3d& arm, const estimate::PositionInformation& marker) {
  // J = [I, -skew(arm)].
  const Matrix3d across = skew(arm);
  const Matrix3d turned = marker.weight * across;
  weight.topLeftCorner<3, 3>() += marker.weight;
  weight.topRightCorner<3, 3>() -= turned;
  weight.bottomLeftCorner<3, 3>() -= turned.transpose();
  weight.bottomRightCorner<3, 3>() += across.transpose() * turned;
  pull.head<3>() += marker.pull;
  pull.tail<3>() += arm.cross(marker.pull);
  misfit += marker.misfit;
  numbers += marker.numbers;
}

void PoseInformation::pinTurn(const Vector3d& axis) {
  constexpr double kPinned = 1e6;  // 1/rad^2; any value does that the numbers can bear
  weight.bottomRightCorner<3, 3>() += kPinned * axis * axis.transpose();
  ++pins;
}

void PoseInformation::moveBack(const Vector6d& change) {
  const Vector6d shift = weight * change;
  misfit += 2 * pull.dot(change) + change.dot(shift);
  pull += shift;
}

Vector3d markerChange(const Vector3d& arm, const Vector6d& change) {
  return change.head<3>() - arm.cross(change.tail<3>());
}

double misfitAfter(const estimate::PositionInformation& marker, const Vector3d& change) {
  return marker.misfit - 2 * marker.pull.dot(change) + change.dot(marker.weight * change);
}

double mostMisfit(int freedom) {
  constexpr double kNormal = 4.7534;  // one in a million of a normal number is beyond
  const double spread = 2.0 / (9 * freedom);
  const double root = 1 - spread + kNormal * std::sqrt(spread);
  return freedom * root * root * root;
}

}  // namespace bodies
