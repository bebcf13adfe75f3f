#include <alg_kit/bodies/BodyPose.h>

#include <Eigen/Cholesky>
#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>

namespace bodies {
namespace {

using Matrix6d = Eigen::Matrix<double, 6, 6>;
using Vector6d = Eigen::Matrix<double, 6, 1>;
using Eigen::Vector3d;

constexpr int kMostSteps = 10;
constexpr double kPrecision = 1e-7;  // of a step: mm, radians
// Squared standard deviations of a marker's two or four numbers: one marker in a million is beyond.
constexpr double kMarkerMost = 33;

/// What takes part in a fit.
struct Taken {
  std::array<bool, kMostMarkers> marker{};
  std::array<std::optional<MarkerPoint>, kMostMarkers> point;
};

/// The second largest extent, as spanPlane, without storage.
bool begins(const Body& body, const Taken& taken) {
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
  Matrix6d weight = Matrix6d::Zero();
  Vector6d pull = Vector6d::Zero();
  double misfit = 0;
  int numbers = 0;
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
    Eigen::Matrix<double, 3, 6> jacobian;  // of the marker's place
    jacobian << Eigen::Matrix3d::Identity(), -skew(arm);
    result.weight += jacobian.transpose() * fit->weight * jacobian;
    result.pull += jacobian.transpose() * fit->pull;
    result.misfits[i] = fit->misfit;
    result.misfit += fit->misfit;
    result.numbers += fit->numbers;
  }
  return result;
}

struct Fitted {
  RigidMotion motion;
  Equations equations;
};

/// Gauss-Newton.
std::optional<Fitted> fit(const Body& body, const BodyFrame& frame,
                          const estimate::PixelEquations& cameras, double noise,
                          const Taken& taken) {
  Fitted result;
  result.motion = beginning(body, taken);
  for (int step = 0; step < kMostSteps; ++step) {
    result.equations = equationsAt(body, frame, cameras, noise, taken, result.motion);
    if (!result.equations.good) return std::nullopt;
    const Vector6d change = result.equations.weight.ldlt().solve(result.equations.pull);
    if (!change.allFinite()) return std::nullopt;
    if (change.norm() < kPrecision) return result;
    result.motion = changedBy(result.motion, change);
  }
  return std::nullopt;
}

/// The squared misfit that one frame in a million of a body in shape is beyond (Wilson and
/// Hilferty's approximation of chi-square).
double mostMisfit(int freedom) {
  constexpr double kNormal = 4.7534;  // one in a million of a normal number is beyond
  const double spread = 2.0 / (9 * freedom);
  return freedom * std::pow(1 - spread + kNormal * std::sqrt(spread), 3);
}

bool fits(const Equations& equations, std::size_t markers) {
  if (equations.misfit > mostMisfit(equations.numbers - 6)) return false;
  for (std::size_t i = 0; i < markers; ++i)
    if (equations.misfits[i] > kMarkerMost) return false;
  return true;
}

int usedOf(const Taken& taken) {
  return static_cast<int>(std::count(taken.marker.begin(), taken.marker.end(), true));
}

/// Leaves out the one marker without which the others fit best; false if that does not help.
bool leaveOutOne(const Body& body, const BodyFrame& frame, const estimate::PixelEquations& cameras,
                 double noise, Taken& taken, std::optional<Fitted>& fitted,
                 std::array<MarkerEnd, kMostMarkers>& ends) {
  std::optional<Fitted> best;
  std::size_t out = 0;
  for (std::size_t i = 0; i < body.markers.size(); ++i) {
    if (!taken.marker[i]) continue;
    Taken without = taken;
    without.marker[i] = false;
    if (!begins(body, without)) continue;
    const auto attempt = fit(body, frame, cameras, noise, without);
    if (attempt && (!best || attempt->equations.misfit < best->equations.misfit)) {
      best = attempt;
      out = i;
    }
  }
  if (!best) return false;
  taken.marker[out] = false;
  ends[out] = MarkerEnd::kOffShape;
  fitted = best;
  return true;
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

std::optional<BodyPose> poseOf(const Body& body, const BodyFrame& frame,
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
  std::optional<Fitted> fitted = fit(body, frame, cameras, noise, taken);
  while (!fitted || !fits(fitted->equations, body.markers.size())) {
    // With three nobody can tell which of them is wrong.
    if (usedOf(taken) < 4 || !leaveOutOne(body, frame, cameras, noise, taken, fitted, pose.ends))
      return std::nullopt;
  }
  pose.motion = fitted->motion;
  pose.covariance = fitted->equations.weight.inverse();
  pose.markers = usedOf(taken);
  pose.residual =
      noise * std::sqrt(fitted->equations.misfit / std::max(1, fitted->equations.numbers));
  return pose;
}

}  // namespace bodies
