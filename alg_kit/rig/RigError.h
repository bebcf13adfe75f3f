// How a camera pair differs from its calibration.
#pragma once

#include <alg_kit/rig/StereoRig.h>

namespace rig {

/// What happened to a pair after it was calibrated. The right camera's frame, in which positions
/// are given, stays where it is: whatever bent is described as a motion of the left camera.
struct RigError {
  /// Degrees; a rotation vector in the right camera's frame: R_true = exp(rotation) R.
  Eigen::Vector3d rotation = Eigen::Vector3d::Zero();
  /// Degrees; a rotation vector that turns T: its direction changes, the baseline's length stays.
  Eigen::Vector3d translation = Eigen::Vector3d::Zero();
  /// Per cent by which the focal lengths (x and y) are longer; left, right.
  Eigen::Vector2d focal = Eigen::Vector2d::Zero();
  Eigen::Vector2d leftCentre = Eigen::Vector2d::Zero();   ///< px by which the principal point moved
  Eigen::Vector2d rightCentre = Eigen::Vector2d::Zero();  ///< px

  bool none() const;
};

RigError operator+(const RigError& a, const RigError& b);
RigError operator*(double factor, const RigError& error);

/// The rotation about the vector's direction by its length.
/// @param degrees  rotation vector
Eigen::Matrix3d rotationOf(const Eigen::Vector3d& degrees);

/// The calibration of the pair as it truly is; F is computed anew. Without an error the calibration
/// is kept to the last bit.
algorithm::StereoCalibration withError(const algorithm::StereoCalibration& calibration,
                                       const RigError& error);

}  // namespace rig
