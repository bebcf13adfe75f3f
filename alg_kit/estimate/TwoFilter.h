// Two filters that meet: one from the past, one from the future.
#pragma once

#include <alg_kit/estimate/InteractingModels.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace estimate {

/// A stretch of frames without a break. Frame 0 and the frame `lastStart` determine a position
/// alone.
struct Stretch {
  std::vector<double> elapsed;  ///< seconds from the frame before; [0] is not read
  std::size_t lastStart = 0;

  /// What frame k says of the position; none = nothing.
  std::function<std::optional<PositionInformation>(std::size_t k)> see;
  /// Where a filter begins, from frame k alone.
  std::function<MotionState(std::size_t k)> start;
};

struct SmoothedFrame {
  MotionState marker;
  bool used = false;  ///< the frame's own sighting is in it
  /// How far its sighting is from what its surroundings foretell: the squared distance in stated
  /// variances, which is `numbers` on average where they are right. 0 and 0 = no such sighting.
  double distance2 = 0;
  int numbers = 0;
};

using StretchTaker = std::function<void(std::size_t k, const SmoothedFrame& frame)>;

/// Frames come from the last to the first. Memory grows with the square root of the length.
void smoothStretch(const Stretch& stretch, const ModelSet& models, const StretchTaker& take);

}  // namespace estimate
