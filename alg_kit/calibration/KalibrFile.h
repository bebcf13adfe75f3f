#pragma once

#include <alg_kit/rig/StereoRig.h>

#include <string>

namespace calibration {

/// Reads the camera chain that Kalibr writes: cam0 is the left camera, cam1 the right one, both
/// with the pinhole model and equidistant distortion. The transform between them is cam1's
/// `T_cn_cnm1` (a point in cam0's frame to cam1's) or, where that is absent, follows from the
/// `T_cam_imu` of both. Metres become millimetres; the fundamental matrix is computed.
/// @throws FileError (one line: file, line, what was expected, what was found)
rig::StereoRig readKalibrCameraChain(const std::string& path);

/// What a camera chain says of its lenses: "equidistant", "radtan" and so on.
struct DistortionModels {
  std::string left;
  std::string right;
};

/// As above, for judging a file: takes every distortion model of four coefficients as if they were
/// equidistant ones and says in `models` which they are.
rig::StereoRig readKalibrCameraChain(const std::string& path, DistortionModels& models);

}  // namespace calibration
