// The clock of durations and waits.
#pragma once

#include <chrono>
#include <cstdint>

namespace session {

/// Nanoseconds of a clock that never goes back; its zero means nothing.
inline std::int64_t monotonicNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace session
