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

 private:
  estimate::EstimatorOptions options_;
  std::unique_ptr<estimate::Estimator> estimator_;
};

/// By what came before and after. It reads ahead in the recording, and smooths half a minute at a
/// time with two more seconds on either side, so that memory does not grow with the recording; nor
/// does time: of more than two minutes, four such pieces are smoothed, evenly spread.
class SmoothedPlaces {
 public:
  SmoothedPlaces(const recording::RecordingReader& reader, double frameRate);

  /// @param call    of a packet; not before that of the question before
  Place at(std::int64_t call, int object);

 private:
  struct Smoothed {
    std::int64_t call = 0;
    ObjectPlaces places;
  };
  void next(std::int64_t call);
  bool read();
  void smooth(std::size_t first, std::size_t end);

  recording::EntryCursor entries_;
  estimate::EstimatorOptions options_;
  std::optional<session::Call> init_;   ///< of the packets in the window
  std::optional<session::Call> later_;  ///< the Init that follows them
  bool atEnd_ = false;
  std::deque<session::Call> window_;
  std::int64_t calls_;              ///< of the recording
  std::int64_t packets_ = 0;        ///< smoothed so far
  std::size_t done_ = 0;            ///< packets at the window's beginning that were there before
  std::vector<Smoothed> smoothed_;  ///< in order of calls
};

}  // namespace analysis
