#pragma once

#include <chrono>
#include <cstdint>

namespace algtrack {

/// Holds a recording's calls back until as much time has passed as in the recording.
class Pace {
 public:
  /// @param firstNs  the recording's time now
  /// @param speed    times as fast as it was recorded
  explicit Pace(std::int64_t firstNs, double speed = 1);

  /// @throws std::runtime_error after Ctrl-C
  void wait(std::int64_t recordedNs) const;

 private:
  std::int64_t firstNs_;
  double speed_;
  std::chrono::steady_clock::time_point begin_;
};

}  // namespace algtrack
