#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <alg_factory/blob2d/Twin.h>

namespace algorithm {

/// A 2D blob of one camera.
struct Blob2DPoint {
  double x = 0.0;             ///< centre, pixels; undistorted once the 3D stage has taken it
  double y = 0.0;             ///< centre, pixels
  double aux[3] = {};         ///< zero from the 2D stage; the 3D stage's epipolar line a, b, c
  std::int32_t diameter = 0;  ///< whole pixels, even
  std::int32_t id = -1;       ///< blob id
};

/// x and y side by side.
inline Twin centreOf(const Blob2DPoint& blob) {
  static_assert(offsetof(Blob2DPoint, x) == 0 && offsetof(Blob2DPoint, y) == sizeof(double),
                "the centre comes first");
  Twin centre;
  std::memcpy(&centre, &blob, sizeof centre);
  return centre;
}

}  // namespace algorithm
