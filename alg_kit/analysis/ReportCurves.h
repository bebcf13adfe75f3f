// The rows that a report draws, thinned so that a long recording stays a few MB. What is left out
// lies within what is drawn.
#pragma once

#include <alg_kit/analysis/Columns.h>
#include <alg_kit/analysis/TrackStatistics.h>

#include <array>
#include <cstdint>
#include <vector>

namespace analysis {

/// By axis.
using PlaceCurves = std::array<Envelope, kAxes>;

/// A path in space; NaN along every axis = a gap in the line.
using Path = std::vector<Place>;

struct ObjectCurves {
  PlaceCurves raw, filtered, smoothed, truth;
  Envelope rawError, filteredError, estimatedError, smoothedError, epipolar, rayGap;
  std::vector<std::int32_t> seen, absent;  ///< packets
  Path path, truePath;
};

struct BodyCurves {
  Envelope positionError, turnError, residual, visible;
};

/// Everything but the paths is by column: see Columns.
struct ReportCurves {
  double columnS = 0;                        ///< what a column spans, seconds; 0 = one packet
  std::vector<double> times;                 ///< seconds
  std::vector<std::int64_t> packets, calls;  ///< of a column's first packet; -1 = none
  std::vector<ObjectCurves> objects;         ///< in the order of ReportNumbers::objects
  std::vector<BodyCurves> bodies;            ///< in the order of ReportNumbers::bodies
};

}  // namespace analysis
