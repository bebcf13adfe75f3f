#pragma once

#include <alg_kit/calibration/StereoFit.h>
#include <alg_kit/recording/Recording.h>

#include <vector>

namespace calibration {

/// Blobs that both cameras of a recording saw for certain: wherever each camera saw, after merging,
/// exactly one blob of an id. No calibration takes part in the choice. In order of time.
std::vector<ObservedPair> observedPairs(const recording::RecordingReader& reader);

/// The frames in which each camera saw exactly two blobs of an id: the two-point object.
struct TwoPointView {
  algorithm::ImagePoint left[2];   ///< pixels, distorted
  algorithm::ImagePoint right[2];  ///< pixels; which belongs to which is not known
};

/// Both in one pass.
struct RecordedViews {
  std::vector<ObservedPair> pairs;
  std::vector<TwoPointView> twoPoints;
};
RecordedViews recordedViews(const recording::RecordingReader& reader);

}  // namespace calibration
