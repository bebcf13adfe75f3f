// Where to look first in a recording.
#pragma once

#include <alg_factory/service/ResultBlock.h>
#include <alg_kit/analysis/Moment.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace analysis {

struct WorstMoment {
  enum class Kind {
    kGap,      ///< an object was missing
    kStep,     ///< an object moved from one packet to the next
    kError,    ///< an object was delivered away from the truth
    kCorrupt,  ///< a packet's own check byte is wrong
  };
  Kind kind = Kind::kGap;
  int object = -1;   ///< -1 = of no object
  Moment first;      ///< a gap's first packet without the object; else the packet
  Moment last;       ///< a gap's last packet without it; else the packet
  double value = 0;  ///< kGap: seconds between the sightings on both sides, or the recording's
                     ///< ends; kStep, kError: unit of the calibration's translation
};

/// For people: "longest gap".
const char* describe(WorstMoment::Kind kind);

/// For programs: "gap".
const char* keyOf(WorstMoment::Kind kind);

/// Collects packets, in order, and keeps the worst of every kind. What follows within a second of
/// another of its kind and object is the same event: the worst packet stands for it, of corrupt
/// packets the first.
class WorstMoments {
 public:
  static constexpr std::size_t kOfEachKind = 5;

  /// @param only  moments of this object alone, and those of no object; empty = of all
  explicit WorstMoments(std::optional<int> only = {}, std::size_t ofEachKind = kOfEachKind)
      : only_(only), ofEachKind_(ofEachKind) {}

  /// @param block    what the packet delivered; null = nothing
  /// @param truth    where its markers really were; empty = not known
  /// @param corrupt  its own check byte is wrong
  void add(const Moment& moment, int productType, const algorithm::ResultBlock* block,
           const std::vector<session::TruthRow>& truth, bool corrupt);

  /// Kind by kind, the worst first, of equals the earlier; corrupt packets in order. Gaps may still
  /// go on.
  std::vector<WorstMoment> list() const;

  std::int64_t corrupt() const { return corrupt_; }

 private:
  struct Track {
    std::optional<Moment> firstMissing, lastMissing;
    double lastSeen = 0;  ///< seconds; of the first packet before it was seen
    bool begun = false;
    std::optional<std::array<double, 3>> place;        ///< in the packet before
    std::array<std::optional<WorstMoment>, 3> latest;  ///< event of each kind but the last
  };

  void addObject(int object, const Moment& moment, const algorithm::TrackedPoint* record,
                 const std::vector<session::TruthRow>& truth);
  void keep(const WorstMoment& moment);
  void keepLatest();

  std::optional<int> only_;
  std::size_t ofEachKind_;
  std::vector<Track> tracks_;
  std::array<std::vector<WorstMoment>, 3> worst_;  ///< of each kind but the last, the worst first
  std::vector<WorstMoment> corrupts_;
  std::int64_t corrupt_ = 0;
  double lastSeconds_ = 0;
};

}  // namespace analysis
