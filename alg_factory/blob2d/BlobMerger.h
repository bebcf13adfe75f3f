#pragma once

#include <algorithm>
#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/blob2d/IdGroups.h>
#include <alg_factory/blob2d/StableSort.h>
#include <alg_factory/hid/StageObserver.h>

namespace algorithm {

/// Distance of the centres of `a` and `b`, pixels.
double centreDistance(const Blob2DPoint& a, const Blob2DPoint& b);

inline double meanDiameter(const Blob2DPoint& a, const Blob2DPoint& b) {
  return (a.diameter + b.diameter) * 0.5;
}

/// True when the circles of `a` and `b` overlap: mean diameter strictly above the distance.
bool overlap(const Blob2DPoint& a, const Blob2DPoint& b);

/// Looks at all pairs of a group, two at a time and without roots. False only when no two of its
/// blobs overlap, as in most frames; what may overlap is for `overlap` to say.
bool mayOverlap(const std::vector<Blob2DPoint>& blobs, IndexSpan group);

/// Sorts the blobs of one id by diameter, largest first, and merges those that overlap: what is
/// absorbed leaves `group`. A merged blob keeps the larger one's diameter and moves to the plain
/// midpoint, not weighted by size; blobs already passed are not tested against the moved one (both
/// kept: thresholds are tuned to them).
template <typename Observer>
void mergeOverlapping(std::vector<Blob2DPoint>& blobs, IndexSpan& group, int camera,
                      Observer& observer) {
  if (group.size < 2) return;
  sortByDiameter(blobs, group);
  constexpr std::size_t kFew = 8;  // so few are tested one by one in less time
  if (group.size > kFew && !mayOverlap(blobs, group)) return;
  for (std::size_t j = 0; j < group.size; ++j) {
    Blob2DPoint& larger = blobs[group[j]];
    for (std::size_t k = j + 1; k < group.size;) {
      const Blob2DPoint& other = blobs[group[k]];
      if (!overlap(larger, other)) {
        ++k;
        continue;
      }
      observer.blobMerged(camera, group[k], other, group[j], centreDistance(larger, other),
                          meanDiameter(larger, other));
      larger.x = (larger.x + other.x) * 0.5;
      larger.y = (larger.y + other.y) * 0.5;
      std::copy(group.begin() + k + 1, group.end(), group.begin() + k);
      --group.size;
    }
  }
}

}  // namespace algorithm
