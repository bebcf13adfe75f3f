#pragma once

#include <alg_kit/analysis/MismatchCause.h>
#include <alg_kit/analysis/Moment.h>
#include <alg_kit/recording/Recording.h>
#include <tools/algtrack/terminal/Json.h>

#include <cstdint>
#include <optional>
#include <string>

namespace algtrack {

/// Compares what the trace's stages delivered with what was recorded.
class CrossCheck {
 public:
  /// Every entry of the recording, in order.
  /// @param moment    the entry's packet, if it is one
  /// @param compares  whether this entry's blocks are compared
  void add(const session::Entry& entry, const std::optional<algorithm::ResultBlock>& block,
           const std::optional<analysis::Moment>& moment, bool compares = true);

  std::string text() const;
  Json json() const;

  /// @throws SomethingFound in one line, with the cause, if anything differs
  void requireAgreement(const recording::RecordingReader& reader) const;

 private:
  analysis::Completeness completeness_;
  std::int64_t compared_ = 0, equal_ = 0;
  std::optional<analysis::Moment> firstDifference_;
};

}  // namespace algtrack
