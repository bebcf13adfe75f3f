// One packet explained: what became of every object, and of every blob.
#pragma once

#include <alg_kit/analysis/CrossCheck.h>
#include <alg_kit/analysis/Moment.h>
#include <alg_kit/analysis/ObjectHistory.h>
#include <alg_kit/trace/PipelineTrace.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace analysis {

struct ObjectExplanation {
  int object = 0;
  ObjectEnd end;
  std::string text;  ///< "missing: no camera saw id 3", "delivered at 1.000 2.000 -1500.000"
};

struct Explanation {
  Moment moment;
  session::Entry entry;  ///< of the packet
  trace::PacketTrace packet;
  algorithm::ResultBlock block;
  std::vector<ObjectExplanation> objects;
  /// The trace arrives at another block than the recorded one: why; none if at the same.
  std::optional<std::string> disagreement;
};

/// Runs the recording through the stages up to the packet: the frames before decide too, by what
/// they left behind in the decoder, the filter and the objects.
/// @param object    explain this one alone; none = all of the product type
/// @param progress  told every call's index; may be empty
/// @throws recording::RecordingError if there is no such packet, it was not decoded, or the product
///         type has no such object
Explanation explainPacket(const recording::RecordingReader& reader, const MomentQuery& query,
                          std::optional<int> object,
                          const std::function<void(std::int64_t call)>& progress = {});

}  // namespace analysis
