#include <alg_kit/rig/LensGeometry.h>

#include <algorithm>
#include <cmath>

namespace rig {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kDegrees = 180 / kPi;
constexpr int kScanSteps = 3600;  // of 0.05 degrees
constexpr int kBisections = 60;
constexpr int kFixedPointSteps = 50;

double radiusAtAngle(const double (&k)[8], double theta) {
  const double t2 = theta * theta;
  return theta * (1 + t2 * (k[0] + t2 * (k[1] + t2 * (k[2] + t2 * k[3]))));
}

/// The angle where the radius stops growing, or pi.
double largestAngle(const double (&k)[8]) {
  double last = 0;
  for (int step = 1; step <= kScanSteps; ++step) {
    const double radius = radiusAtAngle(k, kPi * step / kScanSteps);
    if (!(radius > last)) return kPi * (step - 1) / kScanSteps;
    last = radius;
  }
  return kPi;
}

}  // namespace

std::optional<double> angleAtRadius(const double (&distortion)[8], double radius) {
  double low = 0, high = largestAngle(distortion);
  if (!(radius <= radiusAtAngle(distortion, high))) return std::nullopt;
  for (int i = 0; i < kBisections; ++i) {
    const double middle = (low + high) / 2;
    (radiusAtAngle(distortion, middle) < radius ? low : high) = middle;
  }
  return (low + high) / 2;
}

FieldOfView fieldOfView(const double (&intrinsics)[9], const double (&distortion)[8], int width,
                        int height) {
  FieldOfView result;
  const double fx = intrinsics[0], cx = intrinsics[2];
  const double fy = intrinsics[4], cy = intrinsics[5];
  const auto angle = [&](double u, double v) {
    const auto theta = angleAtRadius(distortion, std::hypot((u - cx) / fx, (v - cy) / fy));
    if (!theta) result.folds = true;
    return theta.value_or(largestAngle(distortion)) * kDegrees;
  };
  result.horizontal = angle(0, cy) + angle(width, cy);
  result.vertical = angle(cx, 0) + angle(cx, height);
  result.diagonal =
      std::max(angle(0, 0) + angle(width, height), angle(width, 0) + angle(0, height));
  return result;
}

std::vector<algorithm::ImagePoint> undistortRadialTangential(
    const double (&intrinsics)[9], const double (&distortion)[8],
    const std::vector<algorithm::ImagePoint>& raw) {
  const double fx = intrinsics[0], cx = intrinsics[2];
  const double fy = intrinsics[4], cy = intrinsics[5];
  const double k1 = distortion[0], k2 = distortion[1], p1 = distortion[2], p2 = distortion[3];
  const double k3 = distortion[4];
  std::vector<algorithm::ImagePoint> undistorted;
  for (const auto& point : raw) {
    const double x0 = (point.x - cx) / fx, y0 = (point.y - cy) / fy;
    double x = x0, y = y0;
    for (int step = 0; step < kFixedPointSteps; ++step) {
      const double r2 = x * x + y * y;
      const double radial = 1 + r2 * (k1 + r2 * (k2 + r2 * k3));
      const double dx = 2 * p1 * x * y + p2 * (r2 + 2 * x * x);
      const double dy = p1 * (r2 + 2 * y * y) + 2 * p2 * x * y;
      x = (x0 - dx) / radial;
      y = (y0 - dy) / radial;
    }
    undistorted.push_back({x * fx + cx, y * fy + cy});
  }
  return undistorted;
}

}  // namespace rig
