// Why a recording does not replay to the bytes that it holds.
#pragma once

#include <alg_kit/recording/Recording.h>

#include <cstdint>
#include <optional>
#include <string>

namespace analysis {

/// Looks for calls that a recording should have and has not. Give it all calls in order.
class Completeness {
 public:
  void add(const session::Entry& entry);

  std::int64_t missingCalls() const { return missing_; }
  std::optional<std::int64_t> firstMissing() const { return firstMissing_; }

  /// The library had been initialised by a call that is not in the recording.
  bool beganLate() const { return beganLate_; }

 private:
  std::int64_t next_ = 0, missing_ = 0;
  std::optional<std::int64_t> firstMissing_;
  bool initialised_ = false, beganLate_ = false;
};

/// What is known of the cause, in one clause, the likeliest first.
/// @param runningVersion  of the library that answered now
std::string causeOfMismatch(const recording::Metadata& metadata, const Completeness& completeness,
                            const std::string& runningVersion);

}  // namespace analysis
