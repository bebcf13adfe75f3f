#include <alg_factory/stereo3d/Undistortion.h>

#include <cmath>

namespace algorithm {

namespace {

constexpr int kSteps = 10;
constexpr double kCentreRadius = 1e-8;  // closer points stay where they are

double angleFromRadius(double r, double k1, double k2, double k3, double k4) {
  double theta = r;
  for (int step = 0; step < kSteps; ++step) {
    const double theta2 = theta * theta;
    const double theta4 = theta2 * theta2;
    const double theta6 = theta4 * theta2;
    const double theta8 = theta4 * theta4;
    theta = r / (1.0 + k1 * theta2 + k2 * theta4 + k3 * theta6 + k4 * theta8);
  }
  return theta;
}

}  // namespace

void undistort(const double (&intrinsics)[9], const double (&distortion)[8],
               const std::vector<ImagePoint>& raw, std::vector<ImagePoint>& undistorted) {
  const double fx = intrinsics[0], cx = intrinsics[2];
  const double fy = intrinsics[4], cy = intrinsics[5];
  const double k1 = distortion[0], k2 = distortion[1], k3 = distortion[2], k4 = distortion[3];

  undistorted.clear();
  for (const ImagePoint& point : raw) {
    const double x = (point.x - cx) / fx;
    const double y = (point.y - cy) / fy;
    const double r = std::sqrt(x * x + y * y);
    const double scale = r > kCentreRadius ? std::tan(angleFromRadius(r, k1, k2, k3, k4)) / r : 1.0;
    undistorted.push_back({x * scale * fx + cx, y * scale * fy + cy});
  }
}

}  // namespace algorithm
