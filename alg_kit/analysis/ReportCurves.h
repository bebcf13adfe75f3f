// The rows that a report draws, thinned so that a long recording stays a few MB. What is left out
// lies within what is drawn: see Buckets and pathPackets.
#pragma once

#include <alg_kit/analysis/ReportData.h>
#include <alg_kit/analysis/ReportNumbers.h>
#include <alg_kit/analysis/ReportStatistics.h>

#include <array>
#include <cstdint>
#include <vector>

namespace analysis {

/// A row over time; empty = no value at all.
using PlaceCurves = std::array<Envelope, kAxes>;

/// A path in space; NaN along every axis = a gap in the line.
using Path = std::vector<Place>;

struct ObjectCurves {
  PlaceCurves raw, filtered, truth;
  Envelope rawError, filteredError, epipolar, rayGap;
  std::vector<std::int64_t> seen, absent;  ///< packets, by `presenceTimes`
  Path path, truePath;
};

struct ReportCurves {
  std::vector<double> times;          ///< of the envelopes, seconds
  double bucketS = 0;                 ///< what each of them spans; 0 = one packet
  std::vector<double> presenceTimes;  ///< seconds
  std::vector<ObjectCurves> objects;
};

ReportCurves curvesOf(const ReportData& data, const ReportRules& rules);

}  // namespace analysis
