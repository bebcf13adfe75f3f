#pragma once

namespace algorithm {

/// A position in an image, pixels.
struct ImagePoint {
  double x = 0.0;
  double y = 0.0;
};

/// The line a x + b y + c = 0 in an image, normalised so that a^2 + b^2 = 1 and |a x + b y + c| is
/// the distance of (x, y) in pixels.
struct ImageLine {
  double a = 0.0;
  double b = 0.0;
  double c = 0.0;
};

}  // namespace algorithm
