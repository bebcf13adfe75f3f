// One object through a recording: when it was missing, and why.
#pragma once

#include <alg_factory/service/ResultBlock.h>
#include <alg_kit/analysis/Moment.h>
#include <alg_kit/trace/PipelineTrace.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace analysis {

/// What a packet did to an object.
struct ObjectEnd {
  bool delivered = false;  ///< it is in the block
  bool held = false;       ///< ... at an earlier place, by its jump or ratio test
  std::string key;         ///< of the reason where it is missing or held: "unseen", "epipolar"
  std::string reason;      ///< the same for every packet: "no camera saw id 3"
  std::string detail;      ///< with this packet's numbers: "its pair was refused: ..."
};

/// @param packet  what the trace says; null = the packet was not decoded
/// @param block   what it delivered; null = nothing
ObjectEnd objectEnd(const trace::PacketTrace* packet, const algorithm::ResultBlock* block,
                    int object);

/// Consecutive packets without the object.
struct MissingRun {
  struct Reason {
    std::string key, text;
    std::int64_t packets = 0;
  };
  Moment first, last;
  std::int64_t packets = 0;
  std::vector<Reason> reasons;  ///< the one of most packets first
};

/// Collects an object's packets, in order.
class ObjectHistory {
 public:
  explicit ObjectHistory(int object) : object_(object) {}

  /// As objectEnd.
  void add(const Moment& moment, const trace::PacketTrace* packet,
           const algorithm::ResultBlock* block);

  int object() const { return object_; }
  std::int64_t packets() const { return packets_; }
  std::int64_t seen() const { return seen_; }
  std::int64_t held() const { return held_; }
  const std::vector<MissingRun>& missing() const { return missing_; }

 private:
  int object_;
  std::int64_t packets_ = 0, seen_ = 0, held_ = 0;
  bool isMissing_ = false;
  std::vector<MissingRun> missing_;
};

}  // namespace analysis
