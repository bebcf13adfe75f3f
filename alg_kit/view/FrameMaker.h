#pragma once

#include <alg_kit/analysis/EstimatedPlaces.h>
#include <alg_kit/analysis/Moment.h>
#include <alg_kit/analysis/TrackStatistics.h>
#include <alg_kit/analysis/TruthTrack.h>
#include <alg_kit/bodies/LiveBodies.h>
#include <alg_kit/calibration/RecordedPairs.h>
#include <alg_kit/session/Session.h>
#include <alg_kit/trace/PipelineTrace.h>
#include <alg_kit/view/FrameLog.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace view {

constexpr double kJumpMm = 80;  ///< per packet, as in a report

/// Makes frames of a recording's calls, given in order from the first.
class FrameMaker {
 public:
  using Truth = std::array<analysis::TruePlace, kObjects>;
  /// Where the objects really were in the packet of a call; none = not known.
  using TruthOf = std::function<std::optional<Truth>(std::int64_t call, double seconds)>;

  /// @param bodies     that are followed beside the objects
  /// @param frameRate  Hz, of packets without a stamp
  FrameMaker(FrameLog& log, const std::vector<bodies::Body>& bodies, double frameRate);

  void add(const session::Unit& unit, const TruthOf& truthOf);

  /// What both cameras saw for certain, of an even part of all packets.
  const std::vector<calibration::ObservedPair>& pairs() const { return views_.pairs; }

  /// Brings what came behind the latest packet into its frame. A next packet does it too.
  void publish();

 private:
  void addEntry(const session::Entry& entry, const TruthOf& truthOf);
  void beginFrame(const session::Entry& entry, const trace::PacketTrace* packet,
                  const analysis::Moment& at, const std::optional<Truth>& truth);
  void fillObjects(const trace::PacketTrace* packet, const algorithm::ResultBlock* block,
                   const std::optional<Truth>& truth);
  void fillEstimates();
  void fillBodies();
  void findEvents(const session::Call& call, const trace::PacketTrace* packet,
                  const analysis::Moment& at);
  void addMessages(const session::Entry& entry);
  void addAnswer(const session::Call& call);

  struct Track {
    analysis::JumpFinder jumps{kJumpMm};
    analysis::OutlierFinder outliers{kJumpMm};
    bool seen = true;  ///< in the packet before; an object that never came begins with a gap
  };

  static constexpr std::size_t kMostPairs = 30000;

  FrameLog& log_;
  calibration::RecordedViews views_{kMostPairs};
  analysis::LivePlaces estimates_;
  bodies::LiveBodies bodies_;
  bool looked_ = false;  ///< for the bodies, in the packet's light
  trace::PipelineTrace trace_;
  analysis::MomentCounter moments_;
  std::array<Track, kObjects> tracks_;
  Frame frame_;
  bool begun_ = false;
  std::vector<FrameMessage> early_;  ///< before the first packet
  int productType_ = 0;
  int filterMode_ = -1;
};

}  // namespace view
