// The tip of a pointer, from a recording in which it turns about its tip.
#pragma once

#include <alg_kit/bodies/BodyPose.h>

#include <vector>

namespace bodies {

struct PivotFit {
  Eigen::Vector3d tip = Eigen::Vector3d::Zero();         ///< body's frame, mm
  Eigen::Matrix3d covariance = Eigen::Matrix3d::Zero();  ///< of the tip, mm^2
  Eigen::Vector3d spot = Eigen::Vector3d::Zero();        ///< where it stood, camera frame, mm
  double residual = 0;    ///< mm, root mean square of the tip's distance from the spot
  double turned = 0;      ///< degrees, largest angle between two of the first pose's and another
  std::size_t poses = 0;  ///< that took part; those off by far are left out
};

/// Least squares of R p + t = c over all poses, weighted by the poses' covariances; poses beyond
/// three times the residual's median are left out once.
/// @throws std::runtime_error in one line where the poses do not tell: fewer than 10, or turned by
///         less than 10 degrees
PivotFit pivotOf(const std::vector<BodyPose>& poses);

}  // namespace bodies
