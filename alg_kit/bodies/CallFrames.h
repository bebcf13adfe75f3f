// Frames from the calls of a session, as they come.
#pragma once

#include <alg_kit/bodies/BodyFrames.h>
#include <alg_kit/estimate/FrameClock.h>
#include <alg_kit/session/Session.h>

#include <optional>

namespace bodies {

class CallFrames {
 public:
  /// @param frameRate  Hz, for packets without a stamp
  explicit CallFrames(double frameRate) : frameRate_(frameRate), clock_(frameRate) {}

  /// Every call, in order.
  /// @return whether it was a packet with a good check byte that is not late, with cameras to see
  ///         it by: `frame` is its frame
  bool take(const session::Call& call);

  /// What an Init does, for who has missed its call.
  void begin(int productType, const algorithm::StereoCalibration& calibration);

  const BodyFrame& frame() const { return frame_; }
  const std::optional<estimate::PixelEquations>& cameras() const { return cameras_; }

 private:
  double frameRate_;
  estimate::FrameClock clock_;
  std::optional<estimate::PixelEquations> cameras_;
  std::optional<std::int64_t> firstNs_;
  int ids_ = 0, inits_ = 0;
  std::int64_t packets_ = 0;
  BodyFrame frame_;
};

}  // namespace bodies
