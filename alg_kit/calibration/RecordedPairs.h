#pragma once

#include <alg_kit/calibration/StereoFit.h>
#include <alg_kit/recording/Recording.h>

#include <vector>

namespace calibration {

/// Blobs that both cameras of a recording saw for certain: wherever each camera saw, after merging,
/// exactly one blob of an id. No calibration takes part in the choice.
std::vector<ObservedPair> observedPairs(const recording::RecordingReader& reader);

}  // namespace calibration
