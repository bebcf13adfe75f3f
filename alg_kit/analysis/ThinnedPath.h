#pragma once

#include <alg_kit/analysis/TrackStatistics.h>

#include <cstddef>
#include <vector>

namespace analysis {

/// A path in space, in bounded memory: whenever it grows too long, it keeps the positions that are
/// smallest or largest along an axis within their part of it. No position lies outside what is
/// kept.
class ThinnedPath {
 public:
  /// @param most    positions, at least 24
  /// @param bridge  seconds; the path is broken where the object was away for longer
  ThinnedPath(std::size_t most, double bridge);

  /// @param place  somewhere
  void add(double time, const Place& place);

  /// The positions in order, with `nowhere()` where the path is broken.
  std::vector<Place> get() const;

 private:
  struct Point {
    Place place;
    bool broken;  ///< between this one and the one before it
  };
  void thin();

  std::size_t most_;
  double bridge_;
  double lastTime_ = 0;
  std::vector<Point> points_;
};

}  // namespace analysis
