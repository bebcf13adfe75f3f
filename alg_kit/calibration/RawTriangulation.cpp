#include <alg_factory/stereo3d/EpipolarLines.h>
#include <alg_factory/stereo3d/EpipolarMatcher.h>
#include <alg_factory/stereo3d/Undistortion.h>
#include <alg_kit/calibration/RawTriangulation.h>
#include <alg_kit/rig/StereoRig.h>

#include <Eigen/Dense>

namespace calibration {

using algorithm::ImagePoint;

RawTriangulation::RawTriangulation(const algorithm::StereoCalibration& c)
    : calibration_(c),
      rays_{rig::matrixFrom(c.rotation) * rig::matrixFrom(c.leftIntrinsics).inverse(),
            rig::matrixFrom(c.rightIntrinsics).inverse(), Eigen::Vector3d(c.translation)},
      left_(1),
      right_(1) {}

RawTriangulation::Result RawTriangulation::operator()(const ImagePoint& left,
                                                      const ImagePoint& right) const {
  algorithm::Blob2DPoint& l = left_[0];
  algorithm::Blob2DPoint& r = right_[0];
  l.x = left.x, l.y = left.y;
  r.x = right.x, r.y = right.y;
  algorithm::undistortBoth(calibration_, left_, right_);
  Result result;
  result.position = algorithm::midpoint(rays_, l, r);

  const Eigen::Matrix3d F = rig::matrixFrom(calibration_.fundamental);
  const Eigen::Vector3d p(l.x, l.y, 1), q(r.x, r.y, 1);
  const Eigen::Vector3d inRight = F * p, inLeft = F.transpose() * q;
  result.signedDistances[0] = inRight.dot(q) / inRight.head<2>().norm();
  result.signedDistances[1] = inLeft.dot(p) / inLeft.head<2>().norm();
  result.epipolarDistance =
      (std::abs(result.signedDistances[0]) + std::abs(result.signedDistances[1])) / 2;
  return result;
}

Eigen::Matrix<double, 3, 4> positionPerPixel(const RawTriangulation& triangulation,
                                             const ImagePoint& left, const ImagePoint& right) {
  constexpr double kStep = 1e-4;  // px
  Eigen::Matrix<double, 3, 4> result;
  for (int axis = 0; axis < 4; ++axis) {
    const auto at = [&](double step) {
      ImagePoint l = left, r = right;
      (axis == 0 ? l.x : axis == 1 ? l.y : axis == 2 ? r.x : r.y) += step;
      return triangulation(l, r).position;
    };
    result.col(axis) = (at(kStep) - at(-kStep)) / (2 * kStep);
  }
  return result;
}

}  // namespace calibration
