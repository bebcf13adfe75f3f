// The four passes that thin a frame's points, in the order they run. Each removes points and keeps
// the order of the rest; distances are in the unit of the calibration's translation. Points come id
// by id.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include <alg_factory/blob2d/StableSort.h>
#include <alg_factory/hid/StageObserver.h>
#include <alg_factory/stereo3d/StereoPoint.h>
#include <alg_factory/stereo3d/Triangulation.h>

namespace algorithm {

using PairPoints = std::vector<PairPoint>;

constexpr double kMaxJump = 150.0;
constexpr int kReferenceId = 2;
constexpr double kMaxReferenceDistance = 1200.0;

/// Mean and count of the points of one id.
struct PointMean {
  double x = 0.0, y = 0.0, z = 0.0;  ///< the mean; zeros when there is no point
  int count = 0;

  /// Adds to the sum of the points; `divide` turns it into the mean.
  template <typename Point>
  void add(const Point& point) {
    x += point.x;
    y += point.y;
    z += point.z;
    ++count;
  }
  void divide() {
    if (count < 2) return;
    x /= count;
    y /= count;
    z /= count;
  }
};

/// Replaces each of `means` by the mean of the points of that id. Points of other ids are left out.
void meansById(const std::vector<StereoPoint>& points, std::vector<PointMean>& means);

inline double distance(const PairPoint& point, const PointMean& mean) {
  const double dx = point.x - mean.x;
  const double dy = point.y - mean.y;
  const double dz = point.z - mean.z;
  return std::sqrt(dx * dx + dy * dy + dz * dz);
}

/// Asks once for each point, from the first to the last.
template <typename Condition>
void removeIf(PairPoints& points, Condition condition) {
  PairPoint* const end = points.data() + points.size();
  PairPoint* p = points.data();
  while (p != end && !condition(*p)) ++p;
  if (p == end) return;  // as in most frames
  PairPoint* kept = p;
  while (++p != end) {
    if (!condition(*p)) *kept++ = *p;
  }
  points.erase(points.end() - (end - kept), points.end());
}

/// Removes points beyond `maxDepth`; a point at `maxDepth` stays.
template <typename Observer>
void removeTooDeep(double maxDepth, PairPoints& points, Observer& observer) {
  removeIf(points, [&](const PairPoint& p) {
    const bool tooDeep = p.z > maxDepth;
    if (tooDeep) observer.pointDropped(p.pair, BlobFate::kTooDeep, p.z, maxDepth);
    return tooDeep;
  });
}

/// Removes points farther than 150.0 from the mean of their id's points in the previous frame, for
/// ids that both frames have.
/// `previous` is by id.
template <typename Observer>
void removeJumps(const std::vector<PointMean>& previous, PairPoints& points, Observer& observer) {
  removeIf(points, [&](const PairPoint& p) {
    const PointMean& mean = previous[static_cast<std::size_t>(p.id)];
    if (mean.count == 0) return false;
    const double jump = distance(p, mean);
    if (!(jump > kMaxJump)) return false;
    observer.pointDropped(p.pair, BlobFate::kJumped, jump, kMaxJump);
    return true;
  });
}

/// Removes points of other ids that are farther than 1200.0 from the mean of the points of id 2,
/// unless there are none or more than `expectedOfReference` of those.
template <typename Observer>
void removeFarFromReference(int expectedOfReference, PairPoints& points, Observer& observer) {
  PointMean mean;
  for (const PairPoint& p : points) {
    if (p.id == kReferenceId) mean.add(p);
  }
  mean.divide();
  if (mean.count == 0 || mean.count > expectedOfReference) return;
  removeIf(points, [&](const PairPoint& p) {
    if (p.id == kReferenceId) return false;
    const double away = distance(p, mean);
    if (!(away > kMaxReferenceDistance)) return false;
    observer.pointDropped(p.pair, BlobFate::kFarFromReference, away, kMaxReferenceDistance);
    return true;
  });
}

/// Working storage of `removeSurplus`, kept between frames: the points of an id that has too many.
struct SurplusScratch {
  struct Candidate {
    double distance;
    PairPoint* point;
  };
  std::vector<Candidate> candidates;
};

/// Cuts every id to its expected number of points: the first ones where there is no previous frame,
/// else those nearest to the mean of the id's points in the previous frame (the origin when it had
/// none).
/// `expectedPoints` is by id, and ids beyond it are not cut;
/// `hasPrevious` says that there was a previous frame with points;
/// `previous` is by id.
template <typename Observer>
void removeSurplus(const std::vector<std::int32_t>& expectedPoints, bool hasPrevious,
                   const std::vector<PointMean>& previous, SurplusScratch& scratch,
                   PairPoints& points, Observer& observer) {
  constexpr std::int32_t kNoId = -1;  // of a point that goes
  auto& candidates = scratch.candidates;
  bool tooMany = false;
  PairPoint* const last = points.data() + points.size();
  for (PairPoint *first = points.data(), *end; first != last; first = end) {
    for (end = first + 1; end != last && end->id == first->id;) ++end;
    const auto id = static_cast<std::size_t>(first->id);
    const auto count = static_cast<std::size_t>(end - first);
    const std::size_t expected =
        id < expectedPoints.size() ? static_cast<std::size_t>(expectedPoints[id]) : count;
    if (count <= expected) continue;
    tooMany = true;

    candidates.clear();
    for (PairPoint* p = first; p != end; ++p) {
      candidates.push_back({distance(*p, previous[id]), p});
    }
    if (hasPrevious) {
      stableSort(candidates.begin(), candidates.end(),
                 [](const auto& a, const auto& b) { return a.distance > b.distance; });
    }
    const std::size_t goes = hasPrevious ? 0 : expected;
    for (std::size_t i = goes; i < goes + count - expected; ++i) {
      observer.pointDropped(candidates[i].point->pair, BlobFate::kTooMany, candidates[i].distance,
                            static_cast<double>(expected));
      candidates[i].point->id = kNoId;
    }
  }
  if (tooMany) {
    removeIf(points, [](const PairPoint& p) { return p.id == kNoId; });
  }
}

}  // namespace algorithm
