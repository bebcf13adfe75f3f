#include <alg_kit/rig/StereoRig.h>

#include <Eigen/Dense>

namespace rig {
namespace {

Eigen::Matrix3d cameraMatrix(const Eigen::Vector4d& k) {
  Eigen::Matrix3d matrix;
  matrix << k[0], 0, k[2], 0, k[1], k[3], 0, 0, 1;
  return matrix;
}

Eigen::Matrix3d crossProductMatrix(const Eigen::Vector3d& t) {
  Eigen::Matrix3d matrix;
  matrix << 0, -t.z(), t.y(), t.z(), 0, -t.x(), -t.y(), t.x(), 0;
  return matrix;
}

Eigen::Vector3d translationOf(const algorithm::StereoCalibration& calibration) {
  return Eigen::Vector3d(calibration.translation);
}

}  // namespace

Eigen::Matrix3d matrixFrom(const double (&rows)[9]) {
  return Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(rows);
}

void storeMatrix(const Eigen::Matrix3d& matrix, double (&rows)[9]) {
  Eigen::Map<Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(rows, 3, 3) = matrix;
}

Eigen::Matrix3d fundamentalFrom(const algorithm::StereoCalibration& calibration) {
  const Eigen::Matrix3d leftInverse = matrixFrom(calibration.leftIntrinsics).inverse();
  const Eigen::Matrix3d rightInverse = matrixFrom(calibration.rightIntrinsics).inverse();
  const Eigen::Matrix3d essential =
      crossProductMatrix(translationOf(calibration)) * matrixFrom(calibration.rotation);
  const Eigen::Matrix3d fundamental = rightInverse.transpose() * essential * leftInverse;
  return fundamental / fundamental.norm();
}

algorithm::StereoCalibration makeCalibration(const Eigen::Vector4d& leftIntrinsics,
                                             const Eigen::Vector4d& leftDistortion,
                                             const Eigen::Vector4d& rightIntrinsics,
                                             const Eigen::Vector4d& rightDistortion,
                                             const Eigen::Matrix3d& R_LtoR,
                                             const Eigen::Vector3d& p_LinR) {
  algorithm::StereoCalibration calibration;
  storeMatrix(cameraMatrix(leftIntrinsics), calibration.leftIntrinsics);
  storeMatrix(cameraMatrix(rightIntrinsics), calibration.rightIntrinsics);
  for (int i = 0; i < 4; ++i) {
    calibration.leftDistortion[i] = leftDistortion[i];
    calibration.rightDistortion[i] = rightDistortion[i];
  }
  storeMatrix(R_LtoR, calibration.rotation);
  for (int i = 0; i < 3; ++i) calibration.translation[i] = p_LinR[i];
  storeMatrix(fundamentalFrom(calibration), calibration.fundamental);
  return calibration;
}

StereoRig builtInRig() {
  // Toe-in of about two degrees, and small errors of mounting about the other axes.
  const Eigen::Matrix3d R_LtoR = (Eigen::AngleAxisd(0.035, Eigen::Vector3d::UnitY()) *
                                  Eigen::AngleAxisd(-0.008, Eigen::Vector3d::UnitX()) *
                                  Eigen::AngleAxisd(0.005, Eigen::Vector3d::UnitZ()))
                                     .toRotationMatrix();
  return {makeCalibration({381.2, 380.7, 321.5, 238.4}, {0.021, -0.0064, 0.0018, -0.0005},
                          {379.6, 379.9, 317.8, 241.9}, {0.018, -0.0051, 0.0009, -0.0002}, R_LtoR,
                          {-100.3, 0.8, -1.6}),
          640, 480};
}

Eigen::Vector3d leftToRight(const algorithm::StereoCalibration& calibration,
                            const Eigen::Vector3d& p_L) {
  return matrixFrom(calibration.rotation) * p_L + translationOf(calibration);
}

Eigen::Vector3d rightToLeft(const algorithm::StereoCalibration& calibration,
                            const Eigen::Vector3d& p_R) {
  return matrixFrom(calibration.rotation).transpose() * (p_R - translationOf(calibration));
}

}  // namespace rig
