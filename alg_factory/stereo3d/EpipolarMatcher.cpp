#include <alg_factory/stereo3d/EpipolarMatcher.h>

#include <cmath>

#include <alg_factory/blob2d/StableSort.h>

namespace algorithm {

namespace {

/// Distance in pixels of `point` from the line that `owner` carries.
double distanceFromLine(const Blob2DPoint& owner, const Blob2DPoint& point) {
  const double(&line)[3] = owner.aux;
  return std::fabs(line[0] * point.x + line[1] * point.y + line[2]) /
         std::sqrt(line[0] * line[0] + line[1] * line[1]);
}

void append(const Blob2DPoint& left, const Blob2DPoint& right, BlobPairs& pairs) {
  pairs.push_back(left);
  pairs.push_back(right);
}

/// Replaces `centred` by the blobs' centres relative to their mean.
void centre(const std::vector<Blob2DPoint>& blobs, std::vector<ImagePoint>& centred) {
  double sumX = 0.0, sumY = 0.0;
  for (const Blob2DPoint& blob : blobs) {
    sumX += blob.x;
    sumY += blob.y;
  }
  const double meanX = sumX / static_cast<double>(blobs.size());
  const double meanY = sumY / static_cast<double>(blobs.size());
  centred.resize(blobs.size());
  for (std::size_t i = 0; i < blobs.size(); ++i) {
    centred[i] = {blobs[i].x - meanX, blobs[i].y - meanY};
  }
}

/// Index of the point nearest to `target`; the first of equals. Squares order as distances do.
std::size_t nearest(const ImagePoint& target, const std::vector<ImagePoint>& points) {
  const auto squaredDistance = [&](const ImagePoint& point) {
    const double dx = point.x - target.x;
    const double dy = point.y - target.y;
    return dx * dx + dy * dy;
  };
  std::size_t best = 0;
  double bestDistance = squaredDistance(points[0]);
  for (std::size_t i = 1; i < points.size(); ++i) {
    const double distance = squaredDistance(points[i]);
    if (distance < bestDistance) {
      best = i;
      bestDistance = distance;
    }
  }
  return best;
}

}  // namespace

double epipolarDistance(const Blob2DPoint& left, const Blob2DPoint& right) {
  return (distanceFromLine(left, right) + distanceFromLine(right, left)) / 2;
}

bool accepted(const Blob2DPoint& left, const Blob2DPoint& right) {
  return (left.diameter + right.diameter) * 0.5 > epipolarDistance(left, right);
}

void cutToSameCount(std::vector<Blob2DPoint>& left, std::vector<Blob2DPoint>& right) {
  if (left.size() == right.size()) return;
  auto& longer = left.size() < right.size() ? right : left;
  const auto& shorter = left.size() < right.size() ? left : right;
  sortByDiameter(longer);
  longer.resize(shorter.size());
}

void matchMutualNearest(const std::vector<Blob2DPoint>& left, const std::vector<Blob2DPoint>& right,
                        MatchScratch& scratch, BlobPairs& pairs) {
  centre(left, scratch.left);
  centre(right, scratch.right);
  for (std::size_t i = 0; i < left.size(); ++i) {
    const std::size_t j = nearest(scratch.left[i], scratch.right);
    const std::size_t k = nearest(scratch.right[j], scratch.left);
    if (k == i && accepted(left[i], right[j])) append(left[i], right[j], pairs);
  }
}

void matchClosest(const std::vector<Blob2DPoint>& left, const std::vector<Blob2DPoint>& right,
                  BlobPairs& pairs) {
  const Blob2DPoint* bestLeft = nullptr;
  const Blob2DPoint* bestRight = nullptr;
  double bestDistance = 0.0;
  for (const Blob2DPoint& l : left) {
    for (const Blob2DPoint& r : right) {
      const double distance = epipolarDistance(l, r);
      if (bestLeft == nullptr || distance < bestDistance) {
        bestLeft = &l;
        bestRight = &r;
        bestDistance = distance;
      }
    }
  }
  if (bestLeft != nullptr && accepted(*bestLeft, *bestRight)) append(*bestLeft, *bestRight, pairs);
}

void matchId(std::vector<Blob2DPoint>& left, std::vector<Blob2DPoint>& right, MatchScratch& scratch,
             BlobPairs& pairs) {
  pairs.clear();
  if (left.empty() || right.empty()) return;
  cutToSameCount(left, right);
  if (left.size() == 1 && right.size() == 1) {
    if (accepted(left[0], right[0])) append(left[0], right[0], pairs);
  } else if (left.size() == right.size()) {
    matchMutualNearest(left, right, scratch, pairs);
  } else {
    // Not reached after the cut; kept as the answer to counts that differ.
    matchClosest(left, right, pairs);
    left.clear();
    right.clear();
  }
}

}  // namespace algorithm
