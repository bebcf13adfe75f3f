// The estimator's or the smoother's tracks of a recording.
#pragma once

#include <alg_kit/estimate/Estimate.h>
#include <alg_kit/recording/Recording.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace analysis {

struct TrackOptions {
  bool smooth = false;  ///< by the whole recording; else live, by what came before
  double ahead = 0;     ///< seconds, at most estimate::kFarthestAhead; not with `smooth`
  double noise = 0;     ///< px, of blob centres; 0 = from the recording's own light
};

struct TrackRow {
  std::int64_t packet = 0;  ///< its number in the recording, from 0
  std::int64_t call = 0;    ///< of the packet
  std::int64_t timeNs = 0;  ///< of the packet's call, plus `ahead`; clock of the recording
  int object = 0;
  estimate::Estimate estimate;
};

/// Live: in order of packets and objects. Smoothed: object by object, from the last packet to the
/// first, Init by Init. Rows only where something is known.
using TrackTaker = std::function<void(const TrackRow& row)>;

/// @return the blob noise that was assumed last, px
/// @throws recording::RecordingError; std::runtime_error, in one line, if there is no packet to
///         estimate from
double estimateTracks(const recording::RecordingReader& reader, const TrackOptions& options,
                      const TrackTaker& take);

/// Why `estimateTracks` gave no row, or none of an object, in one line that names the file.
std::string whyNoTrack(const recording::RecordingReader& reader, std::optional<int> object);

}  // namespace analysis
