// From the right camera's frame to the answers' axes.
#pragma once

#include <alg_kit/estimate/Estimate.h>
#include <alg_kit/estimate/Track.h>

namespace estimate {

/// @param ahead  seconds after `now`
Estimate estimateFrom(const TrackState& track, double now, double ahead, double noise);

/// Position, velocity, acceleration and their covariance.
void storeMotion(const MotionState& centre, Estimate& result);

/// Direction and length of the two-point object.
void storeOffset(const MotionState& offset, Estimate& result);

}  // namespace estimate
