// The numbers of a report, without the rows: what a table, JSON and the page show.
#pragma once

#include <alg_kit/analysis/ReportData.h>
#include <alg_kit/analysis/ReportStatistics.h>

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
  double bridgeS = 0.25;  ///< a path is drawn on across shorter gaps
};

/// What the latest calibration says.
struct CalibrationFacts {
  double baselineMm = 0;
  std::array<double, 2> leftFocalPx{}, rightFocalPx{};  ///< horizontal, vertical
};

struct RecordingFacts {
  std::string file;  ///< its name without folders
  recording::Metadata metadata;
  std::vector<int> productTypes;  ///< one after the other
  std::int64_t calls = 0, packets = 0, blocks = 0;
  double seconds = 0;
  std::optional<double> packetsPerSecond;
  bool hasTruth = false;
  std::int64_t framesLost = 0;  ///< frames of the truth whose packet never came
  std::optional<CalibrationFacts> calibration;
};

/// When an object was there. A gap is as long as the time between the sightings on both sides.
struct PresenceNumbers {
  std::int64_t packets = 0;  ///< while the product type had the object
  std::int64_t seen = 0;
  std::int64_t visible = 0;      ///< with a marker that both cameras reported; with truth only
  std::int64_t visibleSeen = 0;  ///< ... and with the object in the block
  std::optional<double> firstSeenS, lastSeenS;
  std::int64_t gaps = 0, longestGapPackets = 0;
  double longestGapS = 0, allGapsS = 0;
};

struct ObjectNumbers {
  int object = 0;
  PresenceNumbers presence;
  Distribution rawErrorMm, filteredErrorMm, epipolarPx, rayGapMm;
  bool restKnownFromTruth = false;
  Jitter rawJitterMm, filteredJitterMm;
  std::int64_t jumps = 0;
  std::int64_t held = 0, notFinite = 0;                       ///< as ObjectTrack
  std::int64_t answers = 0, answersFiltered = 0, answersBridged = 0;  ///< as ObjectTrack
};

struct JumpEvent {
  double timeS = 0;
  int object = 0;
  Jump jump;
};

struct SwapEvent {
  double timeS = 0;
  Swap swap;
};

struct PacketTimes {
  bool measuredAnew = false;  ///< in a replay, because the recording holds none
  Distribution us;
  std::vector<HistogramBin> histogram;
};

struct ReportNumbers {
  ReportRules rules;
  RecordingFacts recording;
  std::vector<std::string> notices;  ///< whole sentences
  std::vector<ObjectNumbers> objects;
  std::int64_t jumpCount = 0;
  std::vector<JumpEvent> jumps;  ///< the first `kMostEvents` of them per object
  bool swapsKnownFromTruth = false;
  std::int64_t swapCount = 0;
  std::vector<SwapEvent> swaps;  ///< the first `kMostEvents` of them
  PacketTimes packetTimes;
  std::vector<ReportMessage> messages;
};

constexpr std::size_t kMostEvents = 200;

ReportNumbers numbersOf(const ReportData& data, const ReportRules& rules);

}  // namespace analysis
