#include <alg_factory/stereo3d/Triangulation.h>

#include <Eigen/LU>

namespace algorithm {

namespace {

Eigen::Matrix3d matrix3(const double (&rowByRow)[9]) {
  return Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(rowByRow);
}

TwinRays::Matrix twins(const Eigen::Matrix3d& m) {
  TwinRays::Matrix result;
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) result.entries[row][column] = twin(m(row, column));
  }
  return result;
}

}  // namespace

TwinRays::TwinRays(const StereoRays& rays)
    : leftRayInRight(twins(rays.leftRayInRight)), rightRay(twins(rays.rightRay)) {
  for (std::size_t i = 0; i < 3; ++i) {
    leftCentreInRight[i] = twin(rays.leftCentreInRight[static_cast<Eigen::Index>(i)]);
  }
}

StereoRays raysFrom(const StereoCalibration& calibration) {
  const Eigen::Matrix3d leftRay = matrix3(calibration.leftIntrinsics).inverse();
  return {matrix3(calibration.rotation) * leftRay, matrix3(calibration.rightIntrinsics).inverse(),
          Eigen::Vector3d(calibration.translation)};
}

}  // namespace algorithm
