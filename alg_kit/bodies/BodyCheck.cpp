#include <alg_kit/bodies/BodyCheck.h>

#include <alg_kit/bodies/RigidFit.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace bodies {
namespace {

using Eigen::Vector3d;

constexpr double kDeviations = 4;

struct Compared {
  int id = 0;
  Vector3d before, now;
  double deviation = 0;  ///< mm, of both together
};

double weightOf(const Compared& marker) {
  return 1 / std::max(1e-6, marker.deviation * marker.deviation);
}

RigidMotion motionOf(const std::vector<Compared>& markers, const std::set<int>& out) {
  std::vector<Vector3d> from, to;
  std::vector<double> weights;
  for (const Compared& marker : markers) {
    if (out.count(marker.id) > 0) continue;
    from.push_back(marker.before);
    to.push_back(marker.now);
    weights.push_back(weightOf(marker));
  }
  return fitRigid(from.data(), to.data(), weights.data(), from.size());
}

double shiftOf(const Compared& marker, const RigidMotion& motion) {
  return (marker.now - motion * marker.before).norm();
}

/// The largest shift of those that are taken, over what it may be.
double worstOf(const std::vector<Compared>& markers, const std::set<int>& out, double tolerance) {
  const RigidMotion motion = motionOf(markers, out);
  double worst = 0;
  for (const Compared& marker : markers)
    if (out.count(marker.id) == 0)
      worst = std::max(
          worst, shiftOf(marker, motion) / std::max(tolerance, kDeviations * marker.deviation));
  return worst;
}

}  // namespace

ShapeCheck checkShape(const Body& body, const std::vector<FramePoints>& frames, double tolerance) {
  std::vector<int> ids;
  for (const BodyMarker& marker : body.markers) ids.push_back(marker.id);
  ShapeCheck result;
  result.now = learn(frames, ids, body.name);
  std::vector<Compared> compared;
  for (const BodyMarker& marker : body.markers)
    if (const BodyMarker* const now = result.now.body.markerOf(marker.id))
      compared.push_back(
          {marker.id, marker.position, now->position,
           std::sqrt(marker.deviation.squaredNorm() + now->deviation.squaredNorm())});

  // Markers are left out one by one, each time the one without which the others agree best.
  std::set<int> out;
  while (worstOf(compared, out, tolerance) > 1) {
    result.same = false;
    if (compared.size() - out.size() <= 3) {
      result.known = false;
      break;
    }
    int best = -1;
    double least = HUGE_VAL;
    for (const Compared& marker : compared) {
      if (out.count(marker.id) > 0) continue;
      std::set<int> without = out;
      without.insert(marker.id);
      const double worst = worstOf(compared, without, tolerance);
      if (worst < least) least = worst, best = marker.id;
    }
    out.insert(best);
  }
  if (!result.known) out.clear();
  const RigidMotion motion = motionOf(compared, out);
  for (const BodyMarker& marker : body.markers) {
    MarkerShift& shift = result.markers.emplace_back();
    shift.id = marker.id;
    for (const Compared& one : compared) {
      if (one.id != marker.id) continue;
      shift.seen = true;
      shift.shift = shiftOf(one, motion);
      shift.deviation = one.deviation;
      shift.moved = out.count(one.id) > 0;
    }
  }
  for (const int id : result.now.loose) {
    result.same = false;
    for (MarkerShift& shift : result.markers) shift.moved = shift.moved || shift.id == id;
  }
  return result;
}

}  // namespace bodies
