// Where a body was at every moment of a recording, by all that came before and after it.
#pragma once

#include <alg_kit/bodies/BodyFilter.h>

#include <cstddef>
#include <functional>
#include <vector>

namespace bodies {

/// Called for every frame in which the filter knows the body; age and misfits are the filter's.
using SmoothedTaker = std::function<void(std::size_t frame, const TrackedPose& pose)>;

/// Rauch, Tung and Striebel's smoother (AIAA Journal 3, 1965) over the filter's steps, with the
/// errors on the rigid motions as the filter has them. Frames come from the last to the first.
/// Memory beside the frames grows with the square root of their number.
void smoothBody(const Body& body, const std::vector<BodyFrame>& frames,
                const estimate::PixelEquations& cameras, double noise,
                const BodyFilterOptions& options, const SmoothedTaker& take);

}  // namespace bodies
