#include <alg_factory/stereo3d/PointSmoother.h>

#include <alg_factory/blob2d/Twin.h>

namespace algorithm {

std::array<double, PointHistory::kRoom> PointHistory::distancesFrom(
    const Position& position) const {
  std::array<double, kRoom> distances;
  for (std::size_t i = 0; i < kRoom; i += 2) {
    const Twin dx = position.x - load(x_ + i);
    const Twin dy = position.y - load(y_ + i);
    const Twin dz = position.z - load(z_ + i);
    store(root(dx * dx + dy * dy + dz * dz), distances.data() + i);
  }
  return distances;
}

void smoothPoint(double radius, PointHistory& history, StereoPoint& point) {
  const PointHistory::Position raw{point.x, point.y, point.z};
  double sumX = raw.x, sumY = raw.y, sumZ = raw.z;
  int count = 1;
  const auto distances = history.distancesFrom(raw);
  for (std::size_t i = history.size(); i-- > 0;) {
    if (!(distances[i] < radius)) continue;
    const PointHistory::Position past = history[i];
    const double w = distances[i] / radius;
    sumX += (1 - w) * past.x + w * raw.x;
    sumY += (1 - w) * past.y + w * raw.y;
    sumZ += (1 - w) * past.z + w * raw.z;
    ++count;
  }
  history.push(raw);
  if (count == 1) return;
  point.x = sumX / count;
  point.y = sumY / count;
  point.z = sumZ / count;
}

void smoothPoints(double radius, std::vector<PointHistory>& historyById,
                  std::vector<StereoPoint>& points) {
  auto point = points.begin();
  for (std::size_t g = 0; g < historyById.size(); ++g) {
    const auto isOfId = [&] { return point != points.end() && point->id == static_cast<int>(g); };
    if (isOfId()) {
      smoothPoint(radius, historyById[g], *point);
    } else {
      historyById[g].clear();
    }
    while (isOfId()) ++point;
  }
}

}  // namespace algorithm
