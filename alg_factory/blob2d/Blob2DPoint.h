#pragma once

#include <cstdint>

namespace algorithm {

/// A 2D blob of one camera.
struct Blob2DPoint {
  double x = 0.0;             ///< centre, pixels; undistorted once the 3D stage has taken it
  double y = 0.0;             ///< centre, pixels
  double aux[3] = {};         ///< zero from the 2D stage; the 3D stage's epipolar line a, b, c
  std::int32_t diameter = 0;  ///< whole pixels, even
  std::int32_t id = -1;       ///< blob id
};

}  // namespace algorithm
