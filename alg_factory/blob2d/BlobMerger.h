#pragma once

#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>

namespace algorithm {

/// True when the circles of `a` and `b` overlap: mean diameter strictly above the distance.
bool overlap(const Blob2DPoint& a, const Blob2DPoint& b);

/// Sorts the blobs of one id by diameter, largest first, and merges those that overlap. A merged
/// blob keeps the larger one's diameter and moves to the plain midpoint, not weighted by size;
/// blobs already passed are not tested against the moved one (both kept: thresholds are tuned to
/// them).
void mergeOverlapping(std::vector<Blob2DPoint>& group);

}  // namespace algorithm
