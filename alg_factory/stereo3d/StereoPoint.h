#pragma once

#include <cstdint>

namespace algorithm {

/// A 3D point with the two undistorted image positions it came from.
struct StereoPoint {
  double x = 0.0;  ///< right camera's frame, unit of the calibration's translation
  double y = 0.0;
  double z = 0.0;      ///< depth along the right camera's optical axis
  double leftX = 0.0;  ///< undistorted centre in the left image, pixels
  double leftY = 0.0;
  double rightX = 0.0;  ///< undistorted centre in the right image, pixels
  double rightY = 0.0;
  std::int32_t diameter = 0;  ///< mean of the two blobs' diameters, pixels
  std::int32_t id = -1;       ///< blob id, -1 = none
};

}  // namespace algorithm
