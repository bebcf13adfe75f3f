// The four passes that thin a frame's points, in the order they run. Each removes points and keeps
// the order of the rest; distances are in the unit of the calibration's translation.
#pragma once

#include <cstdint>
#include <vector>

#include <alg_factory/stereo3d/StereoPoint.h>

namespace algorithm {

using StereoPoints = std::vector<StereoPoint>;

constexpr double kMaxJump = 150.0;
constexpr int kReferenceId = 2;
constexpr double kMaxReferenceDistance = 1200.0;

/// Sum and count of the points of one id, in list order.
struct PointMean {
  double x = 0.0, y = 0.0, z = 0.0;  ///< the mean; zeros when there is no point
  int count = 0;
};

PointMean meanOfId(const StereoPoints& points, int id);

double distance(const StereoPoint& point, const PointMean& mean);

/// Removes points beyond `maxDepth`; a point at `maxDepth` stays.
void removeTooDeep(double maxDepth, StereoPoints& points);

/// Removes points farther than 150.0 from the mean of their id's points in the previous frame, for
/// ids that both frames have.
void removeJumps(const StereoPoints& previous, StereoPoints& points);

/// Removes points of other ids that are farther than 1200.0 from the mean of the points of id 2,
/// unless there are none or more than `expectedOfReference` of those. For product types 0 and 1.
void removeFarFromReference(int expectedOfReference, StereoPoints& points);

/// Working storage of `removeSurplus`, kept between frames.
struct SurplusScratch {
  struct Candidate {
    double distance;
    StereoPoint* point;
  };
  std::vector<Candidate> candidates;
};

/// Cuts every id to its expected number of points: the first ones where there is no previous frame,
/// else those nearest to the mean of the id's points in the previous frame (the origin when it had
/// none).
void removeSurplus(const std::vector<std::int32_t>& expectedPoints, const StereoPoints& previous,
                   SurplusScratch& scratch, StereoPoints& points);

}  // namespace algorithm
