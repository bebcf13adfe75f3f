// How well a body's pose can be known, before it is built.
#pragma once

#include <alg_kit/bodies/BodyFrames.h>

#include <vector>

namespace bodies {

/// Standard deviations of a pose of one frame, root mean squares over turns of the body, in the
/// middle of the view with every marker seen by both cameras. Camera frame.
struct ExpectedErrors {
  double distance = 0;     ///< mm
  double across = 0;       ///< mm, of x and of y
  double depth = 0;        ///< mm
  double aboutView = 0;    ///< degrees, about the direction of view
  double aboutAcross = 0;  ///< degrees, about x and about y
};

/// @param noise  px, of blob centres
/// A distance at which a camera does not see the body, or at which what they see tells no pose, is
/// left out.
std::vector<ExpectedErrors> expectedErrors(const Body& body,
                                           const estimate::PixelEquations& cameras, double noise,
                                           const std::vector<double>& distances);

}  // namespace bodies
