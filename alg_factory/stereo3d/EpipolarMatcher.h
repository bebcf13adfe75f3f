#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/blob2d/IdRuns.h>
#include <alg_factory/blob2d/StableSort.h>
#include <alg_factory/hid/StageObserver.h>

namespace algorithm {

/// A left and a right blob that belong together, where they lie among the cameras' blobs.
struct BlobPair {
  const Blob2DPoint* left;
  const Blob2DPoint* right;
};

/// The blobs of both cameras, undistorted and with their lines.
struct StereoBlobs {
  std::vector<Blob2DPoint> left;
  std::vector<Blob2DPoint> right;
};

inline std::size_t placeOf(const Blob2DPoint& blob, const std::vector<Blob2DPoint>& all) {
  return static_cast<std::size_t>(&blob - all.data());
}

/// Distance in pixels of `point` from the line that `owner` carries.
inline double distanceFromLine(const Blob2DPoint& owner, const Blob2DPoint& point) {
  const double(&line)[3] = owner.aux;
  return std::fabs(line[0] * point.x + line[1] * point.y + line[2]) /
         std::sqrt(line[0] * line[0] + line[1] * line[1]);
}

/// Mean of the two distances, in pixels, of each blob from the other's epipolar line. Not a number
/// where a line has no direction.
inline double epipolarDistance(const Blob2DPoint& left, const Blob2DPoint& right) {
  return (distanceFromLine(left, right) + distanceFromLine(right, left)) / 2;
}

/// The epipolar distance that a pair must stay below: its mean diameter.
inline double epipolarLimit(const Blob2DPoint& left, const Blob2DPoint& right) {
  return (left.diameter + right.diameter) * 0.5;
}

/// True when the mean diameter of the pair is strictly above its epipolar distance.
inline bool accepted(const Blob2DPoint& left, const Blob2DPoint& right, double epipolarDistance) {
  return epipolarLimit(left, right) > epipolarDistance;
}

/// Where one camera saw more blobs, keeps as many of its largest as the other saw.
/// `blobs` are those that both runs lie in.
template <typename Observer>
void cutToSameCount(const StereoBlobs& blobs, BlobRun& left, BlobRun& right, Observer& observer) {
  const auto cut = [&](int camera, const std::vector<Blob2DPoint>& all, BlobRun& longer,
                       std::size_t size) {
    stableSort(longer.first, longer.last,
               [](const Blob2DPoint& a, const Blob2DPoint& b) { return a.diameter > b.diameter; });
    Blob2DPoint* const last = longer.first + size;
    for (const Blob2DPoint* blob = last; blob != longer.last; ++blob) {
      observer.unmatched(camera, placeOf(*blob, all), BlobFate::kSurplus,
                         static_cast<double>(longer.size()), static_cast<double>(size));
    }
    longer.last = last;
  };
  if (left.size() < right.size()) cut(1, blobs.right, right, left.size());
  if (right.size() < left.size()) cut(0, blobs.left, left, right.size());
}

/// What is nearest to what among the left and right blobs of an id, once the centroids of both are
/// aligned. Kept between frames for its storage.
class NeighbourTable {
 public:
  /// Makes room for as many blobs of one id and camera.
  void reserve(std::size_t blobs);

  /// Of `size` left and as many right blobs, at least one.
  void fill(const Blob2DPoint* left, const Blob2DPoint* right, std::size_t size);

  /// The first of the nearest right blobs of the i-th left one.
  std::size_t nearestRight(std::size_t i) const { return left_.nearest[i]; }
  /// The first of the nearest left blobs of the j-th right one.
  std::size_t nearestLeft(std::size_t j) const { return right_.nearest[j]; }

 private:
  struct Camera {
    /// Centres relative to their mean. What fills an odd number up is farther than everything.
    std::vector<double> x, y;
    std::vector<std::size_t> nearest;  ///< of the other camera's, of each of these

    void takeCentres(const Blob2DPoint* blobs, std::size_t size);
  };
  /// @param squares  room for the squared distances of one blob
  static void findNearest(Camera& of, const Camera& among, std::size_t size, double* squares);

  Camera left_, right_;
  std::vector<double> squares_;
};

/// Appends the accepted pairs among the blobs of one id: of two single blobs those, of more the
/// ones that are each other's nearest. A pair is accepted when its epipolar distance stays below
/// its mean diameter.
/// `blobs` are those that both runs lie in.
template <typename Observer>
void matchId(const StereoBlobs& blobs, BlobRun left, BlobRun right, NeighbourTable& table,
             std::vector<BlobPair>& pairs, Observer& observer) {
  if (left.empty() || right.empty()) {
    for (; !left.empty(); ++left.first) {
      observer.unmatched(0, placeOf(*left.first, blobs.left), BlobFate::kNoPartner, 0, 0);
    }
    for (; !right.empty(); ++right.first) {
      observer.unmatched(1, placeOf(*right.first, blobs.right), BlobFate::kNoPartner, 0, 0);
    }
    return;
  }
  cutToSameCount(blobs, left, right, observer);

  const auto test = [&](const Blob2DPoint& l, const Blob2DPoint& r) {
    const std::size_t i = placeOf(l, blobs.left), j = placeOf(r, blobs.right);
    const double distance = epipolarDistance(l, r);
    if (accepted(l, r, distance)) {
      observer.paired(i, j, distance);
      pairs.push_back({&l, &r});
    } else {
      observer.refused(i, j, distance, epipolarLimit(l, r));
    }
  };
  const std::size_t size = left.size();
  if (size == 1) {
    test(*left.first, *right.first);
    return;
  }
  table.fill(left.first, right.first, size);
  if constexpr (Observer::kWantsNearest) {
    const std::size_t l0 = placeOf(*left.first, blobs.left);
    const std::size_t r0 = placeOf(*right.first, blobs.right);
    for (std::size_t n = 0; n < size; ++n) {
      const std::size_t r = table.nearestRight(n), back = table.nearestLeft(r);
      if (back != n) observer.notMutual(0, l0 + n, r0 + r, l0 + back);
      const std::size_t l = table.nearestLeft(n), forth = table.nearestRight(l);
      if (forth != n) observer.notMutual(1, r0 + n, l0 + l, r0 + forth);
    }
  }
  for (std::size_t i = 0; i < size; ++i) {
    const std::size_t j = table.nearestRight(i);
    if (table.nearestLeft(j) == i) test(left.first[i], right.first[j]);
  }
}

/// Replaces `pairs` by the accepted ones of the ids from 0 to `ids` - 1, id by id. The blobs of
/// both cameras come id by id.
template <typename Observer>
void matchIds(StereoBlobs& blobs, std::size_t ids, NeighbourTable& table,
              std::vector<BlobPair>& pairs, Observer& observer) {
  pairs.clear();
  const Blob2DPoint* const leftEnd = blobs.left.data() + blobs.left.size();
  const Blob2DPoint* const rightEnd = blobs.right.data() + blobs.right.size();
  Blob2DPoint* left = firstWithId(blobs.left);
  Blob2DPoint* right = firstWithId(blobs.right);
  for (std::int32_t id = 0; id < static_cast<std::int32_t>(ids); ++id) {
    const BlobRun ofLeft = runOfId(left, leftEnd, id), ofRight = runOfId(right, rightEnd, id);
    left = ofLeft.last;
    right = ofRight.last;
    matchId(blobs, ofLeft, ofRight, table, pairs, observer);
  }
}

}  // namespace algorithm
