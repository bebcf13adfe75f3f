// The numbers of a report, without the rows: what a table, JSON and the page show.
#pragma once

#include <alg_kit/analysis/Distribution.h>
#include <alg_kit/analysis/Moment.h>
#include <alg_kit/analysis/TrackStatistics.h>
#include <alg_kit/analysis/WorstMoments.h>
#include <alg_kit/calibration/CalibrationHealth.h>
#include <alg_kit/recording/Recording.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace analysis {

/// The limits that a report's figures go by; they travel with the figures.
struct ReportRules {
  double jumpMm = 80;  ///< per packet; the library's own limit for objects with one marker
  std::int64_t restPackets = kRestWindow;
  double restMm = kTrueRest;
  double swapSeparationMm = kLeastSwapSeparation;
  double trueSeparationMm = kLeastTrueSeparation;
  std::int64_t swapPackets = kLeastSwapPackets;
  std::int64_t lonelyPackets = OutlierFinder::kLonelyPackets;
  double bridgeS = 0.25;  ///< a path is drawn on across shorter gaps
  double percentileError = RunningDistribution::kLargestError;  ///< share; see RunningDistribution
};

/// What of a recording is reported. The calls before still run, since they leave their traces.
struct ReportRange {
  std::optional<int> object;  ///< none = all
  TimeRange time;

  bool whole() const { return !object && !time.given(); }
};

/// What the latest calibration says.
struct CalibrationFacts {
  double baselineMm = 0;
  std::array<double, 2> leftFocalPx{}, rightFocalPx{};  ///< horizontal, vertical
};

/// Whether the latest calibration still belongs to the cameras.
struct HealthFacts {
  std::string verdict;  ///< "unknown", "good", "stale", "drifts"
  std::string text;     ///< in one sentence
  std::vector<calibration::HealthPoint> trend;
};

struct RecordingFacts {
  std::string file;  ///< its name without folders
  recording::Metadata metadata;
  std::vector<int> productTypes;                    ///< one after the other
  std::int64_t calls = 0, packets = 0, blocks = 0;  ///< in the range
  double seconds = 0;                               ///< from the first call in it to the last
  std::optional<double> packetsPerSecond;           ///< mean, from the first packet to the last
  std::optional<double> medianIntervalMs;           ///< between packets
  bool hasTruth = false;
  std::int64_t framesLost = 0;  ///< frames of the truth whose packet never came, in all
  std::optional<CalibrationFacts> calibration;
  std::optional<HealthFacts> health;
};

/// When an object was there.
struct PresenceNumbers {
  std::int64_t packets = 0;  ///< while the product type had the object
  std::int64_t seen = 0;
  std::int64_t visible = 0;      ///< with a marker that both cameras reported; with truth only
  std::int64_t visibleSeen = 0;  ///< ... and with the object in the block
  std::optional<double> firstSeenS, lastSeenS;
  std::int64_t gaps = 0;
  std::optional<Gap> longestGap;
  double withoutS = 0;  ///< the time of the packets without it
};

/// Pose queries for one object.
struct AnswerNumbers {
  std::int64_t asked = 0;     ///< queries
  std::int64_t answered = 0;  ///< with the object; else without one, or refused
  std::int64_t filtered = 0;  ///< ... that differ from the delivered position
  std::int64_t bridged = 0;   ///< ... while the latest block is without the object
  std::int64_t ahead = 0;     ///< ... for a moment behind the packet's
};

/// What another way to get positions out of the same light gives, in the packets that delivered the
/// object.
struct AlternativeNumbers {
  Distribution errorMm;
  Jitter jitterMm;
  std::optional<Lag> lag;  ///< behind the raw positions
};

struct ObjectNumbers {
  int object = 0;
  PresenceNumbers presence;
  Distribution rawErrorMm, filteredErrorMm, epipolarPx, rayGapMm;
  bool restKnownFromTruth = false;
  Jitter rawJitterMm, filteredJitterMm;
  std::optional<Lag> lag;                  ///< of the filtered positions behind the raw ones
  AlternativeNumbers estimated, smoothed;  ///< by estimate::Estimator and estimate::Smoother
  std::int64_t jumps = 0, outliers = 0;
  std::int64_t held = 0;       ///< packets in which a jump or ratio test kept the old place
  std::int64_t notFinite = 0;  ///< delivered positions that are no numbers
  AnswerNumbers answers;
};

/// Markers that belong together, followed live.
struct BodyNumbers {
  std::string name;
  std::vector<int> ids;         ///< blob ids of its markers
  std::int64_t packets = 0;     ///< in the range
  std::int64_t poses = 0;       ///< packets with a pose
  std::int64_t bridged = 0;     ///< ... that no marker was seen in
  Distribution markersVisible;  ///< by one camera at least
  Distribution residualPx;      ///< of a packet's used markers: root mean square per number
  Distribution positionErrorMm, turnErrorDeg;  ///< against the truth of three of its markers
};

struct JumpEvent {
  int object = 0;
  Jump jump;
};

struct OutlierEvent {
  int object = 0;
  Outlier outlier;
};

/// What was found: how often in all, and the first few.
template <typename Event>
struct Events {
  static constexpr std::size_t kMost = 200;

  std::int64_t count = 0;
  std::vector<Event> first;

  void add(const Event& event) {
    if (first.size() < kMost) first.push_back(event);
    ++count;
  }
};

struct PacketTimes {
  bool measuredAnew = false;  ///< in a replay, because the recording holds none
  Distribution us;
  std::vector<HistogramBin> histogram;
};

/// A text that the library logged.
struct ReportMessage {
  int level = 0;
  std::string text;
  std::int64_t count = 0;
  Moment first;  ///< packet: of the latest packet up to then, -1 before the first
};

struct ReportNumbers {
  ReportRules rules;
  ReportRange range;
  RecordingFacts recording;
  std::vector<std::string> notices;  ///< whole sentences
  std::vector<WorstMoment> worst;    ///< kind by kind, the worst first
  std::vector<ObjectNumbers> objects;
  std::vector<BodyNumbers> bodies;  ///< those that were asked for
  Events<JumpEvent> jumps;
  Events<OutlierEvent> outliers;
  bool outliersKnownFromTruth = false;
  bool swapsKnownFromTruth = false;
  Events<Swap> swaps;
  std::int64_t corruptPackets = 0;  ///< whose own check byte is wrong
  PacketTimes packetTimes;
  std::vector<ReportMessage> messages;  ///< the first 1000 different ones
  std::int64_t messagesLeftOut = 0;     ///< messages of other texts
};

}  // namespace analysis
