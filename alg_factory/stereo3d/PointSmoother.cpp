#include <alg_factory/stereo3d/PointSmoother.h>

#include <cmath>

#include <alg_factory/blob2d/Twin.h>

namespace algorithm {

void smoothPoint(double radius, PointHistory& history, StereoPoint& point) {
  const PointHistory::Position raw{point.x, point.y, point.z};
  const Twin rawXY = {raw.x, raw.y};
  Twin sumXY = rawXY;
  double sumZ = raw.z;
  int count = 1;
  for (std::size_t i = history.size(); i-- > 0;) {
    const PointHistory::Position& past = history[i];
    const Twin pastXY = {past.x, past.y};
    const Twin squares = (rawXY - pastXY) * (rawXY - pastXY);
    const double dz = raw.z - past.z;
    const double distance = std::sqrt(squares[0] + squares[1] + dz * dz);
    if (!(distance < radius)) continue;
    const double w = distance / radius;
    sumXY += (1 - w) * pastXY + w * rawXY;
    sumZ += (1 - w) * past.z + w * raw.z;
    ++count;
  }
  point.x = sumXY[0] / count;
  point.y = sumXY[1] / count;
  point.z = sumZ / count;
  history.push(raw);
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
