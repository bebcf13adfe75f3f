// What pixels say about a pose, in information form.
#pragma once

#include <alg_kit/estimate/MotionState.h>

#include <Eigen/Core>

namespace bodies {

using Matrix6d = Eigen::Matrix<double, 6, 6>;
using Vector6d = Eigen::Matrix<double, 6, 1>;

/// As estimate::PositionInformation, of a position and a rotation vector (position first, both in
/// the outer frame): weight = J^T R^-1 J, pull = J^T R^-1 r, misfit = r^T R^-1 r. One marker in
/// one camera is enough: the weight then has rank 2.
struct PoseInformation {
  Matrix6d weight = Matrix6d::Zero();
  Vector6d pull = Vector6d::Zero();
  double misfit = 0;
  int numbers = 0;
  int pins = 0;

  /// How many numbers are left over when a pose is fitted; below 1 they do not tell a pose.
  int freedom() const { return numbers + pins - 6; }

  /// Says that there was no turn about an axis: of a turn that nobody can see.
  /// @param axis  unit vector, outer frame
  void pinTurn(const Eigen::Vector3d& axis);

  /// What is seen of a marker. A turn by a small rotation vector r moves it by r x arm.
  /// @param arm  from the position to the marker, outer frame
  void add(const Eigen::Vector3d& arm, const estimate::PositionInformation& marker);

  /// The same equations, linearised a small `change` away: to where they were the change before.
  void moveBack(const Vector6d& change);
};

/// The same as six numbers with noises of 1: weight = root root^T, pull = root pulled.
struct RootedInformation {
  Matrix6d root;  ///< lower; nothing above the diagonal has a meaning
  Vector6d pulled;
  double rest = 0;     ///< misfit that no pose takes away
  bool whole = false;  ///< whether all of the pose is told
};

RootedInformation rooted(const PoseInformation& information);

/// A projector onto the turns that the light does not tell unless the position is known otherwise:
/// of one marker all, of two that about their line.
Eigen::Matrix3d openTurns(const RootedInformation& information);

/// By how much a pose's change moves a marker.
Eigen::Vector3d markerChange(const Eigen::Vector3d& arm, const Vector6d& change);

/// What remains of a marker's misfit when it moves by `change`.
double misfitAfter(const estimate::PositionInformation& marker, const Eigen::Vector3d& change);

/// The squared misfit that one frame in a million of a body in shape is beyond (Wilson and
/// Hilferty's approximation of chi-square).
/// @param freedom  numbers without those that were fitted, above 0
double mostMisfit(int freedom);

/// Squared standard deviations of a marker's two or four numbers: one marker in a million is
/// beyond.
constexpr double kMarkerMost = 33;

}  // namespace bodies
