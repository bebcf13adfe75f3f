#include <alg_factory/stereo3d/PointSmoother.h>

#include <algorithm>
#include <cmath>

namespace algorithm {

void smoothPoint(double radius, PointHistory& history, StereoPoint& point) {
  const StereoPoint raw = point;
  if (!history.empty()) {
    double sumX = raw.x, sumY = raw.y, sumZ = raw.z;
    int count = 1;
    for (auto past = history.rbegin(); past != history.rend(); ++past) {
      const double dx = raw.x - past->x;
      const double dy = raw.y - past->y;
      const double dz = raw.z - past->z;
      const double distance = std::sqrt(dx * dx + dy * dy + dz * dz);
      if (!(distance < radius)) continue;
      const double w = distance / radius;
      sumX += (1 - w) * past->x + w * raw.x;
      sumY += (1 - w) * past->y + w * raw.y;
      sumZ += (1 - w) * past->z + w * raw.z;
      ++count;
    }
    point.x = sumX / count;
    point.y = sumY / count;
    point.z = sumZ / count;
  }
  history.push_back(raw);
  if (history.size() > kHistoryLength) history.erase(history.begin());
}

void smoothPoints(double radius, std::vector<PointHistory>& historyById,
                  std::vector<StereoPoint>& points) {
  for (std::size_t g = 0; g < historyById.size(); ++g) {
    const auto first = std::find_if(points.begin(), points.end(), [&](const StereoPoint& p) {
      return p.id == static_cast<int>(g);
    });
    if (first == points.end()) {
      historyById[g].clear();
    } else {
      smoothPoint(radius, historyById[g], *first);
    }
  }
}

}  // namespace algorithm
