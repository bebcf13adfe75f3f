#pragma once

#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/stereo3d/ImagePoint.h>

namespace algorithm {

/// Blobs of both cameras in twos: an even position holds a left blob, the next its right partner.
using BlobPairs = std::vector<Blob2DPoint>;

/// Mean of the two distances, in pixels, of each blob from the other's epipolar line. Not a number
/// where a line has no direction.
double epipolarDistance(const Blob2DPoint& left, const Blob2DPoint& right);

/// True when the mean diameter of the pair is strictly above its epipolar distance.
bool accepted(const Blob2DPoint& left, const Blob2DPoint& right);

/// Where one camera saw more blobs, keeps as many of its largest as the other saw.
void cutToSameCount(std::vector<Blob2DPoint>& left, std::vector<Blob2DPoint>& right);

/// Working storage of `matchMutualNearest`, kept between frames: the centres relative to their
/// mean.
struct MatchScratch {
  std::vector<ImagePoint> left;
  std::vector<ImagePoint> right;
};

/// Appends the accepted pairs among blobs that are each other's nearest once the centroids of both
/// lists are aligned. Precondition: both lists are equally long and not empty.
void matchMutualNearest(const std::vector<Blob2DPoint>& left, const std::vector<Blob2DPoint>& right,
                        MatchScratch& scratch, BlobPairs& pairs);

/// Appends the pair with the smallest epipolar distance, if it is accepted.
void matchClosest(const std::vector<Blob2DPoint>& left, const std::vector<Blob2DPoint>& right,
                  BlobPairs& pairs);

/// Replaces `pairs` by the pairs of one blob id; `left` and `right` are used up.
void matchId(std::vector<Blob2DPoint>& left, std::vector<Blob2DPoint>& right, MatchScratch& scratch,
             BlobPairs& pairs);

}  // namespace algorithm
