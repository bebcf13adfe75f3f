#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace qor {

/// One row of the table.
struct TimingEntry {
  std::int64_t startTicks = 0;
  std::int64_t stopTicks = 0;
  double averageMs = 0.0;   ///< the newest measurement weighs one half, all earlier ones the other
  std::uint32_t count = 0;  ///< measurements taken into account

  /// Ends a measurement at `ticks`. An interval that is not positive changes neither the figure nor
  /// the count.
  void finish(std::int64_t ticks, std::int64_t frequency);
};

/// Execution times of named pieces of code, for developers who instrument the stages. The pipeline
/// does not call it. One timer belongs to one thread.
class test_time {
 public:
  test_time();
  virtual ~test_time() = default;

  void start(std::string name);

  /// Without an earlier `start` of the same name the interval begins at tick 0.
  void stop(std::string name);

  /// The table: a header line, then a line for each name in byte order.
  std::string report() const;

  const std::map<std::string, TimingEntry>& entries() const { return entries_; }

 protected:
  std::int64_t frequency_;  ///< ticks per second
  std::map<std::string, TimingEntry> entries_;
};

}  // namespace qor
