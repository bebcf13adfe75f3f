#include <alg_factory/stereo3d/Triangulation.h>

#include <Eigen/LU>

namespace algorithm {

namespace {

Eigen::Matrix3d matrix3(const double (&rowByRow)[9]) {
  return Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(rowByRow);
}

}  // namespace

StereoRays raysFrom(const StereoCalibration& calibration) {
  const Eigen::Matrix3d leftRay = matrix3(calibration.leftIntrinsics).inverse();
  return {matrix3(calibration.rotation) * leftRay, matrix3(calibration.rightIntrinsics).inverse(),
          Eigen::Vector3d(calibration.translation)};
}

}  // namespace algorithm
