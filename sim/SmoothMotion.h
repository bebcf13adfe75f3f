#pragma once

#include <sim/Trajectory.h>

#include <cstdint>
#include <vector>

namespace sim {

/// A generated motion around the origin: per coordinate a sum of sines, so that position, speed and
/// acceleration are smooth and bounded for all time. A default one stands still.
class SmoothMotion {
 public:
  struct Sine {
    double amplitude = 0;  ///< mm, or radians
    double frequency = 0;  ///< Hz
    double phase = 0;      ///< radians
  };
  using Sum = std::vector<Sine>;

  /// @param x, y, z  position, mm
  /// @param yaw, pitch, roll  about the camera's y, x and z axis (in this order), radians
  struct Sums {
    Sum x, y, z, yaw, pitch, roll;
  };

  SmoothMotion() = default;
  explicit SmoothMotion(Sums sums) : sums_(std::move(sums)) {}

  /// A hand's motion: some 0.5 m wide, slower than 1 m/s, turning by up to 25 degrees. The phases
  /// come from the seed.
  static SmoothMotion handheld(std::uint64_t seed);

  Pose at(double seconds) const;

  /// No point of time is faster, mm/s.
  double speedBound() const;

 private:
  Sums sums_;
};

}  // namespace sim
