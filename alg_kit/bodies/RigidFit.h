// The rigid motion that takes points to points.
#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <cstddef>

namespace bodies {

/// p = orientation * p_body + position.
struct RigidMotion {
  Eigen::Quaterniond orientation = Eigen::Quaterniond::Identity();
  Eigen::Vector3d position = Eigen::Vector3d::Zero();

  Eigen::Vector3d operator*(const Eigen::Vector3d& p) const { return orientation * p + position; }
};

/// A position change and a rotation vector, both in the frame that the motion leads to:
///     orientation = exp(rotation) orientation, position = position + translation.
RigidMotion changedBy(const RigidMotion& motion, const Eigen::Matrix<double, 6, 1>& change);

/// The change that leads from one to the other: the inverse of changedBy.
Eigen::Matrix<double, 6, 1> differenceOf(const RigidMotion& from, const RigidMotion& to);

/// Least squares of weighted distances, without scale and never mirrored: the optimum in closed
/// form (Horn, J. Opt. Soc. Am. A 4, 1987; Umeyama, PAMI 13, 1991). The points must span a plane.
/// @param from, to  `count` points each
/// @param weights   positive; a point's precision
RigidMotion fitRigid(const Eigen::Vector3d* from, const Eigen::Vector3d* to, const double* weights,
                     std::size_t count);

/// v x p = skew(v) p.
Eigen::Matrix3d skew(const Eigen::Vector3d& v);

}  // namespace bodies
