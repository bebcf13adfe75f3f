// The time of frames.
#pragma once

#include <cstdint>
#include <optional>

namespace estimate {

/// The stamp before a device packet, stream type 2: four bytes, least first; microseconds.
std::uint32_t stampOf(const unsigned char* payload);

/// Turns what a frame says of its time into seconds that rise.
class FrameClock {
 public:
  enum class Step {
    kFirst,    ///< the first frame, or the first after a restart of the device's clock
    kForward,  ///< `elapsed` seconds after the frame before
    kLate,     ///< not after the frame before: to be left out
  };
  struct Tick {
    Step step = Step::kFirst;
    double elapsed = 0;  ///< seconds
  };

  /// @param frameRate  Hz, for frames without a stamp
  explicit FrameClock(double frameRate) : period_(1 / frameRate) {}

  /// A frame of stream type 2: microseconds, which wrap after 71 minutes. A stamp up to a second
  /// back is a late frame; one farther back is a device that began anew.
  Tick stamped(std::uint32_t microseconds);

  /// A frame without a stamp: one period after the frame before, or, where the host says when it
  /// came, as many whole periods as fit the time between the two.
  /// @param arrival  seconds on any clock that does not jump
  Tick plain(std::optional<double> arrival);

  /// Seconds since the first frame.
  double now() const { return now_; }

 private:
  Tick forward(double elapsed);
  Tick begin();

  double period_;
  double now_ = 0;
  bool begun_ = false;
  std::optional<std::uint32_t> stamp_;
  std::optional<double> arrival_;  ///< of the frame before, moved on by whole periods
};

}  // namespace estimate
