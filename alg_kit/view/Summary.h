// Many frames in the room of one: the smallest and largest value of every quantity.
#pragma once

#include <alg_factory/api/Constants.h>
#include <alg_kit/view/Frame.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace view {

constexpr auto kObjects = static_cast<std::size_t>(algorithm::kMaxObjects);

/// What is drawn over time. Of every object: positions in mm, errors in mm, speed in mm/s,
/// residuals.
enum class ObjectRow {
  kX,
  kY,
  kZ,
  kFilteredX,
  kFilteredY,
  kFilteredZ,
  kEstimatedX,
  kEstimatedY,
  kEstimatedZ,
  kTrueX,
  kTrueY,
  kTrueZ,
  kRawError,
  kFilteredError,
  kEstimatedError,
  kEstimatedDeviation,
  kSpeed,
  kEpipolar,
  kRayGap
};
constexpr std::size_t kObjectRows = 19;
/// Of the frame itself.
enum class FrameRow { kBlobsLeft, kBlobsRight, kDuration, kInterval, kQueries };
constexpr std::size_t kFrameRows = 5;
constexpr std::size_t kRows = kObjects * kObjectRows + kFrameRows;

constexpr std::size_t rowOf(std::size_t object, ObjectRow row) {
  return object * kObjectRows + static_cast<std::size_t>(row);
}
constexpr std::size_t rowOf(FrameRow row) {
  return kObjects * kObjectRows + static_cast<std::size_t>(row);
}

/// "x", "filtered_x", ..., "duration_us": for programs.
const char* keyOf(ObjectRow row);
const char* keyOf(FrameRow row);

struct Summary {
  double from = 0, to = 0;  ///< seconds, of the first frame and the last
  std::uint32_t frames = 0;
  std::array<std::uint32_t, kEvents> events{};  ///< frames that have them
  std::array<std::uint32_t, kObjects> seen{}, absent{};
  std::array<float, kRows> low, high;  ///< NaN = no value

  Summary();

  /// @param before  seconds of the frame before; negative = there is none
  Summary(const Frame& frame, double before);

  /// Adds frames that follow.
  void add(const Summary& more);
};

}  // namespace view
