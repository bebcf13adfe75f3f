// Where the estimator and the smoother see a recording's objects, packet by packet.
#pragma once

#include <alg_kit/analysis/SideThread.h>
#include <alg_kit/analysis/TrackStatistics.h>
#include <alg_kit/estimate/Estimator.h>
#include <alg_kit/session/Session.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <future>
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

/// Of one packet.
struct EstimatedPlaces {
  ObjectPlaces live;
  ObjectPlaces smoothed;  ///< by what came before and after
};

/// Estimates the packets that are asked for on another thread, half a minute at a time with two
/// more seconds on either side, so that memory does not grow with the recording. Nor does time: of
/// more than two minutes, four such pieces are estimated, evenly spread.
class Estimation {
 public:
  using Piece = std::vector<EstimatedPlaces>;

  /// Where the places of a packet will be.
  struct Packet {
    std::shared_future<Piece> piece;
    std::size_t number = 0;  ///< in the piece

    bool isThere() const;
    const EstimatedPlaces& get() const { return piece.get()[number]; }  ///< waits for them
  };

  /// A piece is complete so many packets after its first one. Whoever waits for places before waits
  /// for packets that may not come.
  static constexpr std::size_t kDelay = 2880;

  /// @param calls   of the recording
  /// @param thread  outlives this
  Estimation(std::int64_t calls, double frameRate, SideThread& thread);
  ~Estimation();

  /// Every call, in order.
  void add(const session::Call& call);
  /// The places of the latest packet are wanted. None where the part that is estimated of the
  /// recording up to here is used up.
  std::optional<Packet> want();
  /// No call follows.
  void finish();

 private:
  class Work;
  struct Window;
  using Shared = std::shared_ptr<const session::Call>;

  void complete();

  std::int64_t calls_;
  SideThread& thread_;
  std::shared_ptr<Work> work_;  ///< the other thread's
  Shared init_;                 ///< of the latest packets
  std::deque<Shared> latest_;   ///< those packets, as many as a piece has on one side and one more
  std::int64_t packets_ = 0;    ///< in pieces
  std::deque<std::shared_ptr<Window>> windows_;  ///< that still grow
};

}  // namespace analysis
