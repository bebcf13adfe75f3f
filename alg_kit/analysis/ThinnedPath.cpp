#include <alg_kit/analysis/ThinnedPath.h>

#include <algorithm>

namespace analysis {

ThinnedPath::ThinnedPath(std::size_t most, double bridge)
    : most_(std::max(most, 4 * kAxes * 2)), bridge_(bridge) {}

void ThinnedPath::add(double time, const Place& place) {
  if (points_.size() == most_) thin();
  points_.push_back({place, !points_.empty() && time - lastTime_ > bridge_});
  lastTime_ = time;
}

void ThinnedPath::thin() {
  // Of a share, six positions are kept at most: a quarter.
  constexpr std::size_t kShare = 4 * 2 * kAxes;
  std::vector<Point> kept;
  bool broken = false;
  for (std::size_t begin = 0; begin < points_.size(); begin += kShare) {
    const auto first = points_.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last =
        points_.begin() + static_cast<std::ptrdiff_t>(std::min(begin + kShare, points_.size()));
    std::vector<bool> chosen(static_cast<std::size_t>(last - first), false);
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
      const auto [low, high] =
          std::minmax_element(first, last, [&](const Point& a, const Point& b) {
            return axisOf(a.place, axis) < axisOf(b.place, axis);
          });
      chosen[static_cast<std::size_t>(low - first)] = true;
      chosen[static_cast<std::size_t>(high - first)] = true;
    }
    for (auto point = first; point != last; ++point) {
      broken = broken || point->broken;
      if (!chosen[static_cast<std::size_t>(point - first)]) continue;
      kept.push_back({point->place, broken});
      broken = false;
    }
  }
  points_ = std::move(kept);
}

std::vector<Place> ThinnedPath::get() const {
  std::vector<Place> path;
  for (const Point& point : points_) {
    if (point.broken) path.push_back(nowhere());
    path.push_back(point.place);
  }
  return path;
}

}  // namespace analysis
