#include <alg_factory/stereo3d/PointFilter.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <alg_factory/blob2d/StableSort.h>

namespace algorithm {

namespace {

constexpr std::int32_t kSurplus = std::numeric_limits<std::int32_t>::min();  // instead of an id

/// Asks once for each point, from the first to the last.
template <typename Condition>
void removeIf(StereoPoints& points, Condition condition) {
  auto kept = points.begin();
  for (StereoPoint& p : points) {
    if (condition(p)) continue;
    if (&*kept != &p) *kept = p;
    ++kept;
  }
  points.erase(kept, points.end());
}

void markAllButFirst(int expected, int id, StereoPoints& points) {
  int seen = 0;
  for (StereoPoint& p : points) {
    if (p.id == id && ++seen > expected) p.id = kSurplus;
  }
}

void markAllButNearest(int expected, int id, const PointMean& centre, SurplusScratch& scratch,
                       StereoPoints& points) {
  auto& candidates = scratch.candidates;
  candidates.clear();
  for (StereoPoint& p : points) {
    if (p.id == id) candidates.push_back({distance(p, centre), &p});
  }
  stableSort(candidates.begin(), candidates.end(),
             [](const auto& a, const auto& b) { return a.distance > b.distance; });
  candidates.resize(candidates.size() - static_cast<std::size_t>(expected));
  for (const auto& candidate : candidates) candidate.point->id = kSurplus;
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
  if (previous.empty() || points.empty()) return;
  int id = points.front().id;  // points come id by id: one mean serves all of an id
  PointMean mean = meanOfId(previous, id);
  removeIf(points, [&](const StereoPoint& p) {
    if (p.id != id) mean = meanOfId(previous, id = p.id);
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
      markAllButFirst(expected, id, points);
    } else {
      markAllButNearest(expected, id, meanOfId(previous, id), scratch, points);
    }
  }
  removeIf(points, [](const StereoPoint& p) { return p.id == kSurplus; });
}

}  // namespace algorithm
