#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <Eigen/Core>

#include <alg_factory/blob2d/Twin.h>
#include <alg_factory/hid/StageObserver.h>
#include <alg_factory/stereo3d/EpipolarMatcher.h>
#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_factory/stereo3d/StereoPoint.h>

namespace algorithm {

/// What triangulation needs of a calibrated pair.
struct StereoRays {
  Eigen::Matrix3d leftRayInRight;     ///< R K_L^-1: left pixel to a direction in the right frame
  Eigen::Matrix3d rightRay;           ///< K_R^-1: right pixel to a direction in the right frame
  Eigen::Vector3d leftCentreInRight;  ///< T
};

/// The same for two pairs at once.
struct TwinRays {
  struct Matrix {
    Twin entries[3][3] = {};
    Twin operator()(std::size_t row, std::size_t column) const { return entries[row][column]; }
  };
  Matrix leftRayInRight, rightRay;
  Twin leftCentreInRight[3] = {};

  TwinRays() = default;
  TwinRays(const StereoRays& rays);
};

/// The inverses are the general ones of 3x3 matrices; a singular camera matrix is not tested.
StereoRays raysFrom(const StereoCalibration& calibration);

/// Midpoint of the shortest segment between the two blobs' rays, in the right camera's frame
/// (Hartley and Sturm, "Triangulation", 1997). The rays are T + s dL and t dR; their closest points
/// solve [dR.dR, dR.dL; dL.dR, dL.dL] (t, -s)^T = (dR.T, dL.T)^T. Parallel rays give entries that
/// are not finite. Sums are taken as they stand here, on every platform.
/// The coordinates are undistorted pixels.
/// @tparam Rays    StereoRays, or TwinRays for two pairs at once
/// @tparam Number  double or Twin
template <typename Rays, typename Number>
std::array<Number, 3> midpoint(const Rays& rays, Number leftX, Number leftY, Number rightX,
                               Number rightY) {
  using Vector = std::array<Number, 3>;
  const auto direction = [](const auto& m, Number x, Number y) {
    return Vector{m(0, 0) * x + (m(0, 1) * y + m(0, 2)), m(1, 0) * x + (m(1, 1) * y + m(1, 2)),
                  m(2, 0) * x + (m(2, 1) * y + m(2, 2))};
  };
  const auto dot = [](const Vector& a, const auto& b) {
    return a[0] * b[0] + (a[1] * b[1] + a[2] * b[2]);
  };
  const auto& T = rays.leftCentreInRight;
  const Vector dL = direction(rays.leftRayInRight, leftX, leftY);
  const Vector dR = direction(rays.rightRay, rightX, rightY);

  const Number rr = dot(dR, dR), rl = dot(dR, dL), ll = dot(dL, dL);
  const Number rT = dot(dR, T), lT = dot(dL, T);
  const Number inverse = 1.0 / (rr * ll - rl * rl);
  const Number t = ll * inverse * rT + -rl * inverse * lT;
  const Number s = -(-rl * inverse * rT + rr * inverse * lT);
  return {(t * dR[0] + T[0] + s * dL[0]) / 2, (t * dR[1] + T[1] + s * dL[1]) / 2,
          (t * dR[2] + T[2] + s * dL[2]) / 2};
}

inline Eigen::Vector3d midpoint(const StereoRays& rays, const Blob2DPoint& left,
                                const Blob2DPoint& right) {
  return Eigen::Vector3d(midpoint(rays, left.x, left.y, right.x, right.y).data());
}

/// A point on its way through the passes of one frame.
struct PairPoint {
  double x, y, z;  ///< right camera's frame, unit of the calibration's translation
  std::int32_t id;
  std::uint32_t pair;  ///< its place among the frame's pairs
};

/// What the point of a pair is published as.
inline void setStereoPoint(const PairPoint& p, const BlobPair& pair, StereoPoint& point) {
  point.x = p.x;
  point.y = p.y;
  point.z = p.z;
  point.leftX = pair.left->x;
  point.leftY = pair.left->y;
  point.rightX = pair.right->x;
  point.rightY = pair.right->y;
  point.diameter = (pair.left->diameter + pair.right->diameter) / 2;
  point.id = p.id;
}

/// A point must lie farther than this in front of the right camera.
constexpr double kMinDepth = 10.0;

/// Replaces `points` by those of the pairs, in their order, that lie far enough from the camera.
template <typename Observer>
void triangulate(const TwinRays& rays, const std::vector<BlobPair>& pairs,
                 std::vector<PairPoint>& points, Observer& observer) {
  points.clear();
  const auto take = [&](std::size_t i, const BlobPair& pair, double x, double y, double z) {
    observer.triangulated(i, x, y, z);
    if (z > kMinDepth) {
      points.push_back({x, y, z, pair.left->id, static_cast<std::uint32_t>(i)});
    } else {
      observer.pointDropped(i, BlobFate::kTooNear, z, kMinDepth);
    }
  };
  for (std::size_t i = 0; i < pairs.size(); i += 2) {
    const BlobPair& a = pairs[i];
    const BlobPair& b = pairs[i + 1 < pairs.size() ? i + 1 : i];  // the last may go with itself
    const auto p = midpoint(rays, Twin{a.left->x, b.left->x}, Twin{a.left->y, b.left->y},
                            Twin{a.right->x, b.right->x}, Twin{a.right->y, b.right->y});
    take(i, a, p[0][0], p[1][0], p[2][0]);
    if (i + 1 < pairs.size()) take(i + 1, b, p[0][1], p[1][1], p[2][1]);
  }
}

}  // namespace algorithm
