#include <sim/Pi.h>
#include <sim/Random.h>
#include <sim/SmoothMotion.h>

#include <cmath>

namespace sim {
namespace {

double valueOf(const SmoothMotion::Sum& sum, double seconds) {
  double value = 0;
  for (const auto& sine : sum)
    value += sine.amplitude * std::sin(2 * kPi * sine.frequency * seconds + sine.phase);
  return value;
}

double slopeBound(const SmoothMotion::Sum& sum) {
  double bound = 0;
  for (const auto& sine : sum) bound += std::abs(2 * kPi * sine.frequency * sine.amplitude);
  return bound;
}

}  // namespace

SmoothMotion SmoothMotion::handheld(std::uint64_t seed) {
  Random random(seed, 0);
  const auto sine = [&random](double amplitude, double frequency) {
    return Sine{amplitude, frequency, random.uniform(0, 2 * kPi)};
  };
  Sums sums;
  sums.x = {sine(220, 0.31), sine(60, 0.83)};
  sums.y = {sine(120, 0.27), sine(40, 0.71)};
  sums.z = {sine(150, 0.19), sine(50, 0.53)};
  sums.yaw = {sine(0.44, 0.23)};
  sums.pitch = {sine(0.17, 0.37)};
  sums.roll = {sine(0.17, 0.29)};
  return SmoothMotion(std::move(sums));
}

Pose SmoothMotion::at(double seconds) const {
  const Eigen::Quaterniond orientation =
      Eigen::AngleAxisd(valueOf(sums_.yaw, seconds), Eigen::Vector3d::UnitY()) *
      Eigen::AngleAxisd(valueOf(sums_.pitch, seconds), Eigen::Vector3d::UnitX()) *
      Eigen::AngleAxisd(valueOf(sums_.roll, seconds), Eigen::Vector3d::UnitZ());
  return {{valueOf(sums_.x, seconds), valueOf(sums_.y, seconds), valueOf(sums_.z, seconds)},
          orientation};
}

double SmoothMotion::speedBound() const {
  return Eigen::Vector3d(slopeBound(sums_.x), slopeBound(sums_.y), slopeBound(sums_.z)).norm();
}

}  // namespace sim
