// Where bodies are, from the calls of a session as they come.
#pragma once

#include <alg_kit/bodies/BodyFilter.h>
#include <alg_kit/bodies/CallFrames.h>
#include <alg_kit/estimate/BlobNoise.h>

#include <cstddef>
#include <vector>

namespace bodies {

/// Several bodies by their filters. The blobs' noise comes from the light itself, from what the two
/// cameras' rays missed each other by so far. For one thread.
class LiveBodies {
 public:
  /// @param frameRate  Hz, for packets without a stamp
  LiveBodies(const std::vector<Body>& bodies, double frameRate);

  /// Every call, in order.
  /// @return whether it was a packet that the bodies were looked for in: `at` is of it
  bool take(const session::Call& call);

  /// What an Init does, for who has missed its call.
  void begin(int productType, const algorithm::StereoCalibration& calibration);

  std::size_t count() const { return filters_.size(); }

  /// Axes as delivered, in the latest frame. kNone too where it is no number.
  TrackedPose at(std::size_t body) const;

 private:
  CallFrames frames_;
  std::vector<BodyFilter> filters_;
  estimate::BlobNoise noise_;
};

}  // namespace bodies
