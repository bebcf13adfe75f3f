#include <sim/InertialSource.h>

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

constexpr double kStep = 1.0 / 90;
constexpr double kGravity = 9810;  // mm/s^2
constexpr double kCountsPerDegree = 16.4;
constexpr double kCountsPerG = 2048;
constexpr double kDegreesPerRadian = 57.29577951308232;

std::int16_t counts(double value) {
  return static_cast<std::int16_t>(std::lround(std::clamp(value, -32768.0, 32767.0)));
}

}  // namespace

algorithm::InertialRecord inertialRecord(const Scene& scene, const SceneObject& object,
                                         double seconds) {
  const Pose before = scene.poseOf(object, seconds - kStep);
  const Pose now = scene.poseOf(object, seconds);
  const Pose after = scene.poseOf(object, seconds + kStep);

  const Eigen::AngleAxisd turn(before.orientation.conjugate() * after.orientation);
  const double angle = std::remainder(turn.angle(), 6.283185307179586);
  const Eigen::Vector3d rate = turn.axis() * (angle / (2 * kStep)) * kDegreesPerRadian;

  const Eigen::Vector3d acceleration =
      (after.position - 2 * now.position + before.position) / (kStep * kStep);
  const Eigen::Vector3d force =
      now.orientation.conjugate() * (acceleration - Eigen::Vector3d(0, kGravity, 0)) / kGravity;

  algorithm::InertialRecord record;
  for (int i = 0; i < 3; ++i) {
    record.p[i] = static_cast<float>(now.position[i]);
    record.gyroscope[i] = counts(rate[i] * kCountsPerDegree);
    record.accelerometer[i] = counts(force[i] * kCountsPerG);
  }
  for (int i = 0; i < 4; ++i) record.q[i] = static_cast<float>(now.orientation.coeffs()[i]);
  return record;
}

}  // namespace sim
