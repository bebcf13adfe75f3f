#pragma once

#include <alg_kit/calibration/StereoFit.h>
#include <tools/recording/Recording.h>

#include <vector>

namespace algtrack {

/// Blobs that both cameras of a recording saw for certain: wherever each camera saw, after merging,
/// exactly one blob of an id. No calibration takes part in the choice.
std::vector<calibration::ObservedPair> observedPairs(const recording::RecordingReader& reader);

}  // namespace algtrack
