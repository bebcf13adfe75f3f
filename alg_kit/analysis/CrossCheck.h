#pragma once

#include <alg_kit/analysis/MismatchCause.h>
#include <alg_kit/analysis/Moment.h>
#include <alg_kit/recording/Recording.h>

#include <cstdint>
#include <optional>
#include <string>

namespace analysis {

/// Compares what the trace's stages delivered with what was recorded.
class CrossCheck {
 public:
  /// Every entry of the recording, in order.
  /// @param moment    the entry's packet, if it is one
  /// @param compares  whether this entry's blocks are compared
  void add(const session::Entry& entry, const std::optional<algorithm::ResultBlock>& block,
           const std::optional<Moment>& moment, bool compares = true);

  std::int64_t compared() const { return compared_; }
  std::int64_t equal() const { return equal_; }
  const std::optional<Moment>& firstDifference() const { return firstDifference_; }

  std::string text() const;

  /// What differs, with the cause, in one line; none if nothing does.
  std::optional<std::string> problem(const recording::RecordingReader& reader) const;

 private:
  Completeness completeness_;
  std::int64_t compared_ = 0, equal_ = 0;
  std::optional<Moment> firstDifference_;
};

}  // namespace analysis
