#pragma once

#include <alg_kit/calibration/StereoFit.h>
#include <alg_kit/recording/Recording.h>
#include <alg_kit/trace/PipelineTrace.h>

#include <cstddef>
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

/// Both, gathered packet by packet. Of long recordings some packets are left out, evenly, so that
/// there are never more than `most` pairs.
struct RecordedViews {
  explicit RecordedViews(std::size_t most = 500000) : most_(most) {}

  std::vector<ObservedPair> pairs;      ///< in order of time
  std::vector<TwoPointView> twoPoints;  ///< likewise

  /// @param time  seconds since the recording began
  void add(const trace::PacketTrace& packet, double time);

 private:
  void thin();

  std::size_t most_;
  std::size_t packets_ = 0;
  std::size_t stride_ = 1;  ///< packets of which one is taken
};

RecordedViews recordedViews(const recording::RecordingReader& reader);

}  // namespace calibration
