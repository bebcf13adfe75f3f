#include <alg_kit/estimate/EstimateFrom.h>

#include <algorithm>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

/// Right camera's frame to the delivered axes.
constexpr double kMirror[3] = {1, -1, -1};

void store(const Vector3d& from, double (&to)[3]) {
  for (int i = 0; i < 3; ++i) to[i] = kMirror[i] * from[i];
}

void store(const Matrix3d& block, int row, int column, double (&to)[9][9]) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      const double value = kMirror[i] * kMirror[j] * block(i, j);
      to[3 * row + i][3 * column + j] = value;
      to[3 * column + j][3 * row + i] = value;
    }
}

}  // namespace

void storeMotion(const MotionState& centre, Estimate& result) {
  store(centre.p, result.position);
  store(centre.v, result.velocity);
  store(centre.a, result.acceleration);
  store(centre.pp, 0, 0, result.covariance);
  store(centre.pv, 0, 1, result.covariance);
  store(centre.pa, 0, 2, result.covariance);
  store(centre.vv, 1, 1, result.covariance);
  store(centre.va, 1, 2, result.covariance);
  store(centre.aa, 2, 2, result.covariance);
}

void storeOffset(const MotionState& offset, Estimate& result) {
  const double length = offset.p.norm();
  if (!(length > 0)) return;
  const Vector3d along = offset.p / length;
  result.hasDirection = true;
  result.halfLength = length;
  store(along, result.direction);
  const double across = offset.pp.trace() - along.dot(offset.pp * along);
  result.directionDeviation = std::sqrt(std::max(across, 0.0) / 2) / length;
}

Estimate estimateFrom(const TrackState& track, double now, double ahead, double noise) {
  Estimate result;
  if (!track.alive || !track.confirmed) return result;
  result.source = ahead > 0           ? Source::kPredicted
                  : track.cameras > 0 ? Source::kMeasured
                                      : Source::kBridged;
  result.time = now + ahead;
  result.age = result.time - track.lastSeen;
  result.cameras = track.cameras;
  result.noise = noise;
  const auto at = [ahead](const InteractingModels& models) {
    return ahead > 0 ? models.markerAfter(ahead) : models.marker();
  };
  MotionState centre = at(track.centre);
  if (track.hasOffset) {
    const MotionState offset = at(track.offset);
    storeOffset(offset, result);
    if (track.leaning) centre.pp += offset.pp;
  }
  storeMotion(centre, result);
  return result;
}

}  // namespace estimate
