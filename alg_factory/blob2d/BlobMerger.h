#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/blob2d/IdRuns.h>
#include <alg_factory/hid/StageObserver.h>

namespace algorithm {

/// Squared distance of the centres of `a` and `b`, pixels squared.
inline double squaredDistance(const Blob2DPoint& a, const Blob2DPoint& b) {
  const Twin d = centreOf(b) - centreOf(a);
  const Twin squares = d * d;
  return squares[0] + squares[1];
}

/// Distance of the centres of `a` and `b`, pixels.
inline double centreDistance(const Blob2DPoint& a, const Blob2DPoint& b) {
  return std::sqrt(squaredDistance(a, b));
}

inline double meanDiameter(const Blob2DPoint& a, const Blob2DPoint& b) {
  return (a.diameter + b.diameter) * 0.5;
}

/// True when the circles of `a` and `b` overlap: mean diameter strictly above the distance.
inline bool overlap(const Blob2DPoint& a, const Blob2DPoint& b) {
  return meanDiameter(a, b) > centreDistance(a, b);
}

/// Sorts the blobs, and `names` with them; stable, largest first.
void sortByDiameter(BlobRun run, std::uint32_t* names);

/// Sorts the blobs of one id by diameter, largest first, and merges those that overlap. A merged
/// blob keeps the larger one's diameter and moves to the plain midpoint, not weighted by size;
/// blobs already passed are not tested against the moved one (both kept: thresholds are tuned to
/// them).
/// @param run       the blobs of one id and one camera
/// @param names     by which the observer knows the blobs, in their order; change places with them
/// @param camera    0 or 1, for the observer
/// @param observer  told of every blob that is merged into a larger one
/// @return the end of what is left of the run
template <typename Observer>
Blob2DPoint* mergeOverlapping(BlobRun run, std::uint32_t* names, int camera, Observer& observer) {
  if (run.size() < 2) return run.last;
  sortByDiameter(run, names);
  for (Blob2DPoint* larger = run.first; larger + 1 < run.last; ++larger) {
    // Most are far apart, and no root is needed: the rounded root of what is at or above a rounded
    // square is not below the number squared, and no mean diameter is above the largest.
    const double reach = larger->diameter;
    const double farAway = reach * reach;
    for (Blob2DPoint* other = larger + 1; other != run.last;) {
      if (squaredDistance(*larger, *other) >= farAway || !overlap(*larger, *other)) {
        ++other;
        continue;
      }
      std::uint32_t* const name = names + (other - run.first);
      observer.blobMerged(camera, *name, *other, names[larger - run.first],
                          centreDistance(*larger, *other), meanDiameter(*larger, *other));
      larger->x = (larger->x + other->x) * 0.5;
      larger->y = (larger->y + other->y) * 0.5;
      std::copy(name + 1, names + run.size(), name);
      std::copy(other + 1, run.last, other);
      --run.last;
    }
  }
  return run.last;
}

}  // namespace algorithm
