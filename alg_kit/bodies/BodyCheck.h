// Whether a body still has its shape.
#pragma once

#include <alg_kit/bodies/BodyLearning.h>

#include <string>
#include <vector>

namespace bodies {

/// How a marker stands now, compared with the body's file.
struct MarkerShift {
  int id = 0;
  bool seen = false;     ///< the recording tells
  double shift = 0;      ///< mm, from where the body's other markers say that it is
  double deviation = 0;  ///< mm, standard deviation of a shift by noise alone
  bool moved = false;
};

struct ShapeCheck {
  std::vector<MarkerShift> markers;  ///< in the body's order
  LearnedBody now;
  bool same = true;   ///< no marker moved
  bool known = true;  ///< false: the shape is another, and three markers do not tell which moved
};

/// @param tolerance  mm, shifts below it do not count
/// @throws std::runtime_error as learn
ShapeCheck checkShape(const Body& body, const std::vector<FramePoints>& frames, double tolerance);

}  // namespace bodies
