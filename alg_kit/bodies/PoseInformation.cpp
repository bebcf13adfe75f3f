#include <alg_kit/bodies/PoseInformation.h>
#include <alg_kit/bodies/SmallMatrix.h>

#include <Eigen/Eigenvalues>
#include <Eigen/Geometry>
#include <cmath>

namespace bodies {

using Eigen::Matrix3d;
using Eigen::Vector3d;

void PoseInformation::add(const Vector3d& arm, const estimate::PositionInformation& marker) {
  // J = [I, -skew(arm)]; the columns of W skew(arm) are sums of two of W's.
  const Matrix3d& w = marker.weight;
  Matrix3d turned;
  turned.col(0) = arm.z() * w.col(1) - arm.y() * w.col(2);
  turned.col(1) = arm.x() * w.col(2) - arm.z() * w.col(0);
  turned.col(2) = arm.y() * w.col(0) - arm.x() * w.col(1);
  weight.topLeftCorner<3, 3>() += w;
  weight.topRightCorner<3, 3>() -= turned;
  weight.bottomLeftCorner<3, 3>() -= turned.transpose();
  for (int i = 0; i < 3; ++i) weight.block<3, 1>(3, 3 + i) += Vector3d(turned.col(i)).cross(arm);
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

RootedInformation rooted(const PoseInformation& information) {
  constexpr double kLeast = 1e-12;  // of a weight: less is rounding
  RootedInformation result;
  result.whole = rootOf(information.weight, result.root, kLeast);
  result.pulled = solveLower(result.root, information.pull);
  result.rest = information.misfit - result.pulled.squaredNorm();
  return result;
}

Matrix3d openTurns(const RootedInformation& information) {
  constexpr double kLeast = 1;  // 1/rad^2
  // What is left of the weight when the position takes its part.
  const Matrix3d root = information.root.bottomRightCorner<3, 3>().triangularView<Eigen::Lower>();
  Eigen::SelfAdjointEigenSolver<Matrix3d> axes;
  axes.computeDirect(root * root.transpose());
  Matrix3d open = Matrix3d::Zero();
  for (int i = 0; i < 3; ++i) {
    const Vector3d axis = axes.eigenvectors().col(i);
    if (!(axes.eigenvalues()[i] > kLeast)) open += axis * axis.transpose();
  }
  return open;
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
