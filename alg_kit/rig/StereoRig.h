#pragma once

#include <alg_factory/stereo3d/StereoCalibration.h>

#include <Eigen/Core>

namespace rig {

enum class Camera { kLeft = 0, kRight = 1 };  ///< the values are those of the device packet

/// A pair of calibrated fisheye cameras. Camera frames: x right, y down, z forward; millimetres.
struct StereoRig {
  algorithm::StereoCalibration calibration;
  int width = 0;   ///< pixels, both cameras
  int height = 0;  ///< pixels, both cameras
};

/// A plausible device: 640 x 480 pixels, about 96 degrees wide, 100 mm baseline, slightly turned.
StereoRig builtInRig();

/// Fills a calibration from its parts; the fundamental matrix is computed from them.
/// @param leftIntrinsics, rightIntrinsics  fx, fy, cx, cy in pixels
/// @param leftDistortion, rightDistortion  k1 to k4 of the equidistant model
/// @param R_LtoR  a direction in the left frame to the right frame
/// @param p_LinR  the left camera's centre in the right frame, mm
algorithm::StereoCalibration makeCalibration(const Eigen::Vector4d& leftIntrinsics,
                                             const Eigen::Vector4d& leftDistortion,
                                             const Eigen::Vector4d& rightIntrinsics,
                                             const Eigen::Vector4d& rightDistortion,
                                             const Eigen::Matrix3d& R_LtoR,
                                             const Eigen::Vector3d& p_LinR);

/// F = K_R^-T [T]x R K_L^-1, scaled to unit norm: a left undistorted point p gives the line F p in
/// the right image.
Eigen::Matrix3d fundamentalFrom(const algorithm::StereoCalibration& calibration);

/// The calibration's row-by-row nine values as a matrix, and back.
Eigen::Matrix3d matrixFrom(const double (&rows)[9]);
void storeMatrix(const Eigen::Matrix3d& matrix, double (&rows)[9]);

/// p_R = R p_L + T.
Eigen::Vector3d leftToRight(const algorithm::StereoCalibration& calibration,
                            const Eigen::Vector3d& p_L);
/// p_L = R^T (p_R - T).
Eigen::Vector3d rightToLeft(const algorithm::StereoCalibration& calibration,
                            const Eigen::Vector3d& p_R);

/// The right camera's frame as the library delivers it: y and z negated (y up, z to the viewer).
inline Eigen::Vector3d mirrored(const Eigen::Vector3d& p_R) {
  return {p_R.x(), -p_R.y(), -p_R.z()};
}

}  // namespace rig
