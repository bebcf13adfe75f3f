#pragma once

#include <alg_factory/api/Constants.h>
#include <alg_kit/analysis/TrackStatistics.h>
#include <alg_kit/recording/Recording.h>

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace analysis {

/// The middle of an object's markers in one frame, mirrored as the library mirrors positions.
struct TruePlace {
  double x = 0, y = 0, z = 0;
  int markers = 0;       ///< 0 = the truth does not know the object
  bool visible = false;  ///< a marker was reported by both cameras
};

Place placeOf(const TruePlace& place);

/// Where every object was, by the rows of one frame.
std::array<TruePlace, static_cast<std::size_t>(algorithm::kMaxObjects)> truePlacesOf(
    const std::vector<session::TruthRow>& rows);

/// Where the objects really were about the packet that is looked at. Reads the truth as it is
/// needed and forgets what lies behind.
class TruthTrack {
 public:
  static constexpr auto kObjects = static_cast<std::size_t>(algorithm::kMaxObjects);

  /// @param rows  none = no truth
  TruthTrack(std::optional<recording::TruthCursor> rows, std::int64_t firstNs);

  /// Goes on to a packet's call. Calls come in ascending order.
  void goTo(std::int64_t call, double timeS);

  /// The markers in the packet's frame, as recorded; empty if the truth does not know the packet.
  const std::vector<session::TruthRow>& rows() const;

  /// The object in the packet's frame; null if the truth does not know it.
  const TruePlace* at(std::size_t object) const;

  /// As many seconds behind the packet's frame, on a straight line between frames.
  std::optional<TruePlace> ahead(double seconds, std::size_t object) const;

  /// Frames whose packet never came. Complete after `finish`.
  std::int64_t framesLost() const { return framesLost_; }
  void finish();

 private:
  struct Frame {
    std::int64_t number = 0;
    std::optional<std::int64_t> call;
    double timeS = 0;
    std::array<TruePlace, kObjects> objects;
    std::vector<session::TruthRow> rows;
  };

  bool readFrame(Frame& frame);

  std::optional<recording::TruthCursor> cursor_;
  std::int64_t firstNs_;
  std::optional<session::TruthRow> next_;  ///< the first row of the frame to read
  std::deque<Frame> frames_;
  const Frame* current_ = nullptr;
  std::int64_t framesLost_ = 0;
};

}  // namespace analysis
