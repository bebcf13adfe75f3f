#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/blob2d/IdGroups.h>
#include <alg_factory/blob2d/StableSort.h>
#include <alg_factory/hid/StageObserver.h>

namespace algorithm {

/// A left and a right blob that belong together: their places among the cameras' blobs.
struct BlobPair {
  std::uint32_t left;
  std::uint32_t right;
};

/// The blobs of both cameras, undistorted and with their lines.
struct StereoBlobs {
  std::vector<Blob2DPoint> left;
  std::vector<Blob2DPoint> right;
};

/// Mean of the two distances, in pixels, of each blob from the other's epipolar line. Not a number
/// where a line has no direction.
double epipolarDistance(const Blob2DPoint& left, const Blob2DPoint& right);

/// The epipolar distance that a pair must stay below: its mean diameter.
inline double epipolarLimit(const Blob2DPoint& left, const Blob2DPoint& right) {
  return (left.diameter + right.diameter) * 0.5;
}

/// True when the mean diameter of the pair is strictly above its epipolar distance.
inline bool accepted(const Blob2DPoint& left, const Blob2DPoint& right, double epipolarDistance) {
  return epipolarLimit(left, right) > epipolarDistance;
}

/// Where one camera saw more blobs, keeps as many of its largest as the other saw.
template <typename Observer>
void cutToSameCount(const StereoBlobs& blobs, IndexSpan& left, IndexSpan& right,
                    Observer& observer) {
  const auto cut = [&](int camera, const std::vector<Blob2DPoint>& all, IndexSpan& longer,
                       std::size_t size) {
    sortByDiameter(all, longer);
    for (std::size_t i = size; i < longer.size; ++i) {
      observer.unmatched(camera, longer[i], BlobFate::kSurplus, static_cast<double>(longer.size),
                         static_cast<double>(size));
    }
    longer.size = size;
  };
  if (left.size < right.size) cut(1, blobs.right, right, left.size);
  if (right.size < left.size) cut(0, blobs.left, left, right.size);
}

/// The squared distances of all left from all right blobs of an id, once the centroids of both are
/// aligned, and what is nearest to what. Kept between frames for its storage.
class NeighbourTable {
 public:
  /// Makes room for as many blobs of one id and camera.
  void reserve(std::size_t blobs);

  /// Precondition: both lists are equally long and not empty.
  void fill(const StereoBlobs& blobs, IndexSpan left, IndexSpan right);

  /// The first of the nearest right blobs of the i-th left one.
  std::size_t nearestRight(std::size_t i) const;
  /// The first of the nearest left blobs of the j-th right one.
  std::size_t nearestLeft(std::size_t j) const;

 private:
  static void centre(const std::vector<Blob2DPoint>& blobs, IndexSpan group, std::vector<double>& x,
                     std::vector<double>& y);

  std::size_t size_ = 0;
  std::size_t stride_ = 0;                               ///< `size_`, made even
  std::vector<double> leftX_, leftY_, rightX_, rightY_;  ///< centres relative to their mean
  std::vector<double> squares_;                          ///< row = left blob, column = right blob
  std::vector<double> leastOfRow_, leastOfColumn_;
};

/// Appends the accepted pairs among the blobs of one id: of two single blobs those, of more the
/// ones that are each other's nearest. A pair is accepted when its epipolar distance stays below
/// its mean diameter.
template <typename Observer>
void matchId(const StereoBlobs& blobs, IndexSpan left, IndexSpan right, NeighbourTable& table,
             std::vector<BlobPair>& pairs, Observer& observer) {
  if (left.size == 0 || right.size == 0) {
    for (const std::uint32_t i : left) observer.unmatched(0, i, BlobFate::kNoPartner, 0, 0);
    for (const std::uint32_t j : right) observer.unmatched(1, j, BlobFate::kNoPartner, 0, 0);
    return;
  }
  cutToSameCount(blobs, left, right, observer);

  const auto test = [&](std::uint32_t i, std::uint32_t j) {
    const Blob2DPoint& l = blobs.left[i];
    const Blob2DPoint& r = blobs.right[j];
    const double distance = epipolarDistance(l, r);
    if (accepted(l, r, distance)) {
      observer.paired(i, j, distance);
      pairs.push_back({i, j});
    } else {
      observer.refused(i, j, distance, epipolarLimit(l, r));
    }
  };
  if (left.size == 1) {
    test(left[0], right[0]);
    return;
  }
  table.fill(blobs, left, right);
  if constexpr (Observer::kWantsNearest) {
    for (std::size_t n = 0; n < left.size; ++n) {
      const std::size_t r = table.nearestRight(n), back = table.nearestLeft(r);
      if (back != n) observer.notMutual(0, left[n], right[r], left[back]);
      const std::size_t l = table.nearestLeft(n), forth = table.nearestRight(l);
      if (forth != n) observer.notMutual(1, right[n], left[l], right[forth]);
    }
  }
  for (std::size_t i = 0; i < left.size; ++i) {
    const std::size_t j = table.nearestRight(i);
    if (table.nearestLeft(j) == i) test(left[i], right[j]);
  }
}

}  // namespace algorithm
