#include <alg_kit/rig/RigError.h>

#include <Eigen/Dense>

namespace rig {

bool RigError::none() const {
  return rotation.isZero(0) && translation.isZero(0) && focal.isZero(0) && leftCentre.isZero(0) &&
         rightCentre.isZero(0);
}

RigError operator+(const RigError& a, const RigError& b) {
  return {a.rotation + b.rotation, a.translation + b.translation, a.focal + b.focal,
          a.leftCentre + b.leftCentre, a.rightCentre + b.rightCentre};
}

RigError operator*(double factor, const RigError& e) {
  return {factor * e.rotation, factor * e.translation, factor * e.focal, factor * e.leftCentre,
          factor * e.rightCentre};
}

Eigen::Matrix3d rotationOf(const Eigen::Vector3d& degrees) {
  const Eigen::Vector3d vector = degrees * (3.141592653589793 / 180);
  const double angle = vector.norm();
  if (angle == 0) return Eigen::Matrix3d::Identity();
  return Eigen::AngleAxisd(angle, vector / angle).toRotationMatrix();
}

algorithm::StereoCalibration withError(const algorithm::StereoCalibration& calibration,
                                       const RigError& error) {
  if (error.none()) return calibration;
  algorithm::StereoCalibration result = calibration;
  storeMatrix(rotationOf(error.rotation) * matrixFrom(calibration.rotation), result.rotation);
  const Eigen::Vector3d T =
      rotationOf(error.translation) * Eigen::Vector3d(calibration.translation);
  for (int i = 0; i < 3; ++i) result.translation[i] = T[i];
  for (const int diagonal : {0, 4}) {
    result.leftIntrinsics[diagonal] *= 1 + error.focal[0] / 100;
    result.rightIntrinsics[diagonal] *= 1 + error.focal[1] / 100;
  }
  for (const int axis : {0, 1}) {
    result.leftIntrinsics[axis == 0 ? 2 : 5] += error.leftCentre[axis];
    result.rightIntrinsics[axis == 0 ? 2 : 5] += error.rightCentre[axis];
  }
  storeMatrix(fundamentalFrom(result), result.fundamental);
  return result;
}

}  // namespace rig
