#include <alg_kit/bodies/BodyPose.h>

#include <alg_kit/bodies/PairSight.h>
#include <alg_kit/bodies/PoseInformation.h>

#include <Eigen/Cholesky>
#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>

namespace bodies {
namespace {

using Eigen::Vector3d;

constexpr int kMostSteps = 40;
constexpr double kPrecision = 1e-7;  // of a step: mm, radians

/// What takes part in a fit.
struct Taken {
  std::array<bool, kMostMarkers> marker{};
  std::array<std::optional<MarkerPoint>, kMostMarkers> point;
};

/// The second largest extent, as spanPlane, without storage.
bool begins(const Body& body, const Taken& taken) {
  if (body.isPair()) return taken.point[0] && taken.point[1];
  Vector3d mean = Vector3d::Zero();
  int count = 0;
  for (std::size_t i = 0; i < body.markers.size(); ++i)
    if (taken.marker[i] && taken.point[i]) mean += body.markers[i].position, ++count;
  if (count < 3) return false;
  mean /= count;
  Eigen::Matrix3d scatter = Eigen::Matrix3d::Zero();
  for (std::size_t i = 0; i < body.markers.size(); ++i)
    if (taken.marker[i] && taken.point[i]) {
      const Vector3d offset = body.markers[i].position - mean;
      scatter += offset * offset.transpose() / count;
    }
  Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> axes;
  axes.computeDirect(scatter, Eigen::EigenvaluesOnly);
  return axes.eigenvalues()[1] > kLeastExtent * kLeastExtent;
}

RigidMotion beginning(const Body& body, const Taken& taken) {
  if (body.isPair()) return pairMotion(body, taken.point[0]->position, taken.point[1]->position);
  std::array<Vector3d, kMostMarkers> from, to;
  std::array<double, kMostMarkers> weights{};
  std::size_t count = 0;
  for (std::size_t i = 0; i < body.markers.size(); ++i) {
    if (!taken.marker[i] || !taken.point[i]) continue;
    from[count] = body.markers[i].position;
    to[count] = taken.point[i]->position;
    weights[count++] = 3 / taken.point[i]->weight.inverse().trace();
  }
  return fitRigid(from.data(), to.data(), weights.data(), count);
}

/// The equations of all pixels, linearised.
struct Equations {
  PoseInformation all;
  std::array<double, kMostMarkers> misfits{};
  bool good = true;
};

Equations equationsAt(const Body& body, const BodyFrame& frame,
                      const estimate::PixelEquations& cameras, double noise, const Taken& taken,
                      const RigidMotion& motion) {
  Equations result;
  for (std::size_t i = 0; i < body.markers.size(); ++i) {
    if (!taken.marker[i]) continue;
    const Vector3d arm = motion.orientation * body.markers[i].position;
    const auto& sighting = frame.markers[static_cast<std::size_t>(body.markers[i].id)];
    const auto fit = cameras.information(sighting, arm + motion.position, noise);
    if (!fit) {
      result.good = false;
      return result;
    }
    result.all.add(arm, *fit);
    result.misfits[i] = fit->misfit;
  }
  if (body.isPair()) result.all.pinTurn(motion.orientation * axisOf(body));
  return result;
}

struct Fitted {
  RigidMotion motion;
  Equations equations;
};

/// Gauss-Newton.
std::optional<Fitted> fit(const Body& body, const BodyFrame& frame,
                          const estimate::PixelEquations& cameras, double noise, const Taken& taken,
                          const RigidMotion& from) {
  Fitted result;
  result.motion = from;
  for (int step = 0; step < kMostSteps; ++step) {
    result.equations = equationsAt(body, frame, cameras, noise, taken, result.motion);
    if (!result.equations.good) return std::nullopt;
    const Vector6d change = result.equations.all.weight.ldlt().solve(result.equations.all.pull);
    if (!change.allFinite()) return std::nullopt;
    if (change.norm() < kPrecision) return result;
    result.motion = changedBy(result.motion, change);
  }
  return std::nullopt;
}

bool fits(const Equations& equations, std::size_t markers) {
  if (equations.all.misfit > mostMisfit(equations.all.freedom())) return false;
  for (std::size_t i = 0; i < markers; ++i)
    if (equations.misfits[i] > kMarkerMost) return false;
  return true;
}

int usedOf(const Taken& taken) {
  return static_cast<int>(std::count(taken.marker.begin(), taken.marker.end(), true));
}

/// What is left of the markers when some are left out, and its fit.
struct Rest {
  Taken taken;
  std::optional<Fitted> fitted;
};

void keepBetter(const Body& body, const BodyFrame& frame, const estimate::PixelEquations& cameras,
                double noise, const Taken& without, Rest& best) {
  if (!begins(body, without)) return;
  const auto attempt = fit(body, frame, cameras, noise, without, beginning(body, without));
  if (!attempt ||
      (best.fitted && best.fitted->equations.all.misfit <= attempt->equations.all.misfit))
    return;
  best.taken = without;
  best.fitted = attempt;
}

/// Leaves out the one marker without which the others fit best or, where that is not enough and
/// `two`, the two: markers that were swapped spoil every fit that has one of them.
Rest leftOut(const Body& body, const BodyFrame& frame, const estimate::PixelEquations& cameras,
             double noise, const Taken& taken, bool two) {
  Rest best;
  Taken without = taken;
  for (std::size_t i = 0; i < body.markers.size(); ++i) {
    if (!taken.marker[i]) continue;
    without.marker[i] = false;
    if (!two) keepBetter(body, frame, cameras, noise, without, best);
    for (std::size_t j = 0; two && j < i; ++j) {
      if (!taken.marker[j]) continue;
      without.marker[j] = false;
      keepBetter(body, frame, cameras, noise, without, best);
      without.marker[j] = true;
    }
    without.marker[i] = true;
  }
  return best;
}

/// A pair that leans back looks nearly as one that leans forth: the covariance takes the mirrored
/// fit in, by how likely that is.
void addMirrored(const Body& pair, const BodyFrame& frame, const estimate::PixelEquations& cameras,
                 double noise, const Taken& taken, const Fitted& best, BodyPose& pose) {
  const Vector3d middle = best.motion * meanOf(pair);
  const Vector3d view = middle.normalized();
  const Vector3d half = best.motion * pair.markers[1].position - middle;
  const Vector3d mirrored = half - 2 * view.dot(half) * view;
  const auto other = fit(pair, frame, cameras, noise, taken,
                         pairMotion(pair, middle - mirrored, middle + mirrored));
  if (!other) return;
  const double less = other->equations.all.misfit - best.equations.all.misfit;
  const Vector6d change = differenceOf(best.motion, other->motion);
  pose.covariance += change * change.transpose() / (1 + std::exp(0.5 * less));
}

}  // namespace

const char* nameOf(MarkerEnd end) {
  switch (end) {
    case MarkerEnd::kNotSeen:
      return "not seen";
    case MarkerEnd::kUsed:
      return "used";
    case MarkerEnd::kOneCamera:
      return "one camera";
    case MarkerEnd::kRaysApart:
      return "rays apart";
    case MarkerEnd::kOffTrack:
      return "off track";
    default:
      return "off shape";
  }
}

BodyPose delivered(const BodyPose& pose) {
  const Vector3d mirror(1, -1, -1);  // half a turn about x
  BodyPose result = pose;
  result.motion.position = mirror.cwiseProduct(pose.motion.position);
  result.motion.orientation = Eigen::Quaterniond(0, 1, 0, 0) * pose.motion.orientation;
  Vector6d both;
  both << mirror, mirror;
  result.covariance = both.asDiagonal() * pose.covariance * both.asDiagonal();
  return result;
}

void unpin(const Body& body, BodyPose& pose) {
  if (!body.isPair()) return;
  const Vector3d axis = pose.motion.orientation * axisOf(body);
  pose.directionDeviation = directionDeviation(pose.covariance, axis);
  forgetTurn(pose.covariance.bottomRightCorner<3, 3>(), axis);
}

std::optional<BodyPose> poseOf(const Body& body, const BodyFrame& frame,
                               const estimate::PixelEquations& cameras, double noise) {
  auto pose = pinnedPoseOf(body, frame, cameras, noise);
  if (pose) unpin(body, *pose);
  return pose;
}

std::optional<BodyPose> pinnedPoseOf(const Body& body, const BodyFrame& frame,
                                     const estimate::PixelEquations& cameras, double noise) {
  BodyPose pose;
  Taken taken;
  for (std::size_t i = 0; i < body.markers.size(); ++i) {
    const auto& sighting = frame.markers[static_cast<std::size_t>(body.markers[i].id)];
    if (!sighting.any()) continue;
    taken.point[i] = pointOf(sighting, cameras, noise);
    taken.marker[i] = taken.point[i] || !sighting.both();
    pose.ends[i] = taken.point[i]    ? MarkerEnd::kUsed
                   : sighting.both() ? MarkerEnd::kRaysApart
                                     : MarkerEnd::kOneCamera;
  }
  if (!begins(body, taken)) return std::nullopt;
  Rest best{taken, fit(body, frame, cameras, noise, taken, beginning(body, taken))};
  const auto good = [&] {
    return best.fitted && fits(best.fitted->equations, body.markers.size());
  };
  // With three nobody can tell which of them is wrong.
  for (int out = 1; out <= 2 && !good() && usedOf(taken) - out >= 3; ++out)
    best = leftOut(body, frame, cameras, noise, taken, out == 2);
  if (!good()) return std::nullopt;
  for (std::size_t i = 0; i < body.markers.size(); ++i)
    if (taken.marker[i] && !best.taken.marker[i]) pose.ends[i] = MarkerEnd::kOffShape;
  const std::optional<Fitted>& fitted = best.fitted;
  pose.motion = fitted->motion;
  pose.covariance = fitted->equations.all.weight.inverse();
  if (body.isPair()) addMirrored(body, frame, cameras, noise, taken, *fitted, pose);
  pose.markers = usedOf(best.taken);
  pose.residual =
      noise * std::sqrt(fitted->equations.all.misfit / std::max(1, fitted->equations.all.numbers));
  return pose;
}

}  // namespace bodies
