#pragma once

#include <cmath>

#include <alg_factory/stereo3d/StereoPoint.h>

namespace algorithm {

/// A position in single precision, as the tracked-point table holds it.
struct PointF {
  float x = 0, y = 0, z = 0;
};

inline PointF toSingle(const StereoPoint& p) {
  return {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)};
}

inline PointF operator+(const PointF& a, const PointF& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline PointF operator-(const PointF& a, const PointF& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline PointF operator*(float s, const PointF& p) {
  return {s * p.x, s * p.y, s * p.z};
}

inline float distance(const PointF& a, const PointF& b) {
  const PointF d = a - b;
  return std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
}

}  // namespace algorithm
