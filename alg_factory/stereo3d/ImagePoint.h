#pragma once

namespace algorithm {

/// A position in an image, pixels.
struct ImagePoint {
  double x = 0.0;
  double y = 0.0;
};

}  // namespace algorithm
