#include <alg_factory/stereo3d/PointFilter.h>

#include <algorithm>
#include <cmath>

#include <alg_factory/blob2d/StableSort.h>

namespace algorithm {

namespace {

template <typename Condition>
void removeIf(StereoPoints& points, Condition condition) {
  points.erase(std::remove_if(points.begin(), points.end(), condition), points.end());
}

void keepFirst(int expected, int id, StereoPoints& points) {
  int seen = 0;
  removeIf(points, [&](const StereoPoint& p) { return p.id == id && ++seen > expected; });
}

void keepNearest(int expected, int id, const PointMean& centre, SurplusScratch& scratch,
                 StereoPoints& points) {
  auto& candidates = scratch.candidates;
  candidates.clear();
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (points[i].id == id) candidates.push_back({distance(points[i], centre), i});
  }
  stableSort(candidates.begin(), candidates.end(),
             [](const auto& a, const auto& b) { return a.distance > b.distance; });
  candidates.resize(candidates.size() - static_cast<std::size_t>(expected));
  stableSort(candidates.begin(), candidates.end(),
             [](const auto& a, const auto& b) { return a.index > b.index; });
  for (const auto& candidate : candidates) {
    points.erase(points.begin() + static_cast<std::ptrdiff_t>(candidate.index));
  }
}

}  // namespace

PointMean meanOfId(const StereoPoints& points, int id) {
  PointMean mean;
  for (const StereoPoint& p : points) {
    if (p.id != id) continue;
    mean.x += p.x;
    mean.y += p.y;
    mean.z += p.z;
    ++mean.count;
  }
  if (mean.count > 0) {
    mean.x /= mean.count;
    mean.y /= mean.count;
    mean.z /= mean.count;
  }
  return mean;
}

double distance(const StereoPoint& point, const PointMean& mean) {
  const double dx = point.x - mean.x;
  const double dy = point.y - mean.y;
  const double dz = point.z - mean.z;
  return std::sqrt(dx * dx + dy * dy + dz * dz);
}

void removeTooDeep(double maxDepth, StereoPoints& points) {
  removeIf(points, [&](const StereoPoint& p) { return p.z > maxDepth; });
}

void removeJumps(const StereoPoints& previous, StereoPoints& points) {
  if (previous.empty()) return;
  removeIf(points, [&](const StereoPoint& p) {
    const PointMean mean = meanOfId(previous, p.id);
    return mean.count > 0 && distance(p, mean) > kMaxJump;
  });
}

void removeFarFromReference(int expectedOfReference, StereoPoints& points) {
  const PointMean mean = meanOfId(points, kReferenceId);
  if (mean.count == 0 || mean.count > expectedOfReference) return;
  removeIf(points, [&](const StereoPoint& p) {
    return p.id != kReferenceId && distance(p, mean) > kMaxReferenceDistance;
  });
}

void removeSurplus(const std::vector<std::int32_t>& expectedPoints, const StereoPoints& previous,
                   SurplusScratch& scratch, StereoPoints& points) {
  for (std::size_t g = 0; g < expectedPoints.size(); ++g) {
    const int id = static_cast<int>(g);
    const int expected = expectedPoints[g];
    const auto count = std::count_if(points.begin(), points.end(),
                                     [&](const StereoPoint& p) { return p.id == id; });
    if (count <= expected) continue;
    if (previous.empty()) {
      keepFirst(expected, id, points);
    } else {
      keepNearest(expected, id, meanOfId(previous, id), scratch, points);
    }
  }
}

}  // namespace algorithm
