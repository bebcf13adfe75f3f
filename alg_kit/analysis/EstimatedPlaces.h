// Where the estimator and the smoother see a recording's objects, packet by packet.
#pragma once

#include <alg_kit/analysis/TrackStatistics.h>
#include <alg_kit/estimate/Estimator.h>
#include <alg_kit/recording/Recording.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

namespace analysis {

/// By object; nowhere() where nothing is known.
using ObjectPlaces = std::vector<Place>;

/// As it would have been live. An Init that no estimator can work with gives no places.
class LivePlaces {
 public:
  explicit LivePlaces(double frameRate) { options_.frameRate = frameRate; }

  /// Every call, in order.
  void add(const session::Call& call);
  /// After the latest packet.
  Place at(int object) const;
  estimate::Estimate estimateOf(int object) const;

 private:
  estimate::EstimatorOptions options_;
  std::unique_ptr<estimate::Estimator> estimator_;
};

/// By what came before and after. Where asked, it reads ahead in the recording, and smooths half a
/// minute at a time with two more seconds on either side, so that memory does not grow with the
/// recording; nor does time: of more than two minutes, four such pieces are smoothed, evenly
/// spread, and the rest is not read.
class SmoothedPlaces {
 public:
  /// @param reader  outlives this
  SmoothedPlaces(const recording::RecordingReader& reader, double frameRate);

  /// Every call, in order.
  void add(const session::Call& call);
  /// In the latest packet.
  Place at(int object);

 private:
  struct Smoothed {
    std::int64_t call = 0;
    ObjectPlaces places;
  };
  std::vector<session::Call> readAhead() const;
  void smooth();

  const recording::RecordingReader& reader_;
  estimate::EstimatorOptions options_;
  std::int64_t calls_;                 ///< of the recording
  std::optional<session::Call> init_;  ///< of the latest packets
  std::deque<std::int64_t> latest_;    ///< their calls, the last kMargin + 1
  std::int64_t packets_ = 0;           ///< smoothed so far
  std::vector<Smoothed> smoothed_;     ///< in order of calls
};

}  // namespace analysis
