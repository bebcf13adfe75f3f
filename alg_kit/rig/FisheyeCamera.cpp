#include <alg_kit/rig/FisheyeCamera.h>

#include <cmath>

namespace rig {

FisheyeCamera::FisheyeCamera(const double (&intrinsics)[9], const double (&distortion)[8],
                             int width, int height)
    : fx_(intrinsics[0]),
      fy_(intrinsics[4]),
      cx_(intrinsics[2]),
      cy_(intrinsics[5]),
      k_{distortion[0], distortion[1], distortion[2], distortion[3]},
      width_(width),
      height_(height) {}

std::optional<FisheyeCamera::Image> FisheyeCamera::imageOf(const Eigen::Vector3d& point,
                                                           double diameter) const {
  if (!(point.z() > 0)) return std::nullopt;
  const double lateral = std::hypot(point.x(), point.y());
  const double theta = std::atan2(lateral, point.z());
  const double t2 = theta * theta;
  // radial = theta_d / theta, slope = d theta_d / d theta
  const double radial = 1 + t2 * (k_[0] + t2 * (k_[1] + t2 * (k_[2] + t2 * k_[3])));
  const double slope = 1 + t2 * (3 * k_[0] + t2 * (5 * k_[1] + t2 * (7 * k_[2] + t2 * 9 * k_[3])));
  if (!(slope > 0 && radial > 0)) return std::nullopt;

  // On the optical axis theta_d / lateral tends to 1 / z, and theta / sin(theta) to 1.
  const bool onAxis = lateral < 1e-12 * point.z();
  const double scale = onAxis ? 1 / point.z() : theta * radial / lateral;
  const double x = fx_ * point.x() * scale + cx_;
  const double y = fy_ * point.y() * scale + cy_;
  if (!contains(x, y)) return std::nullopt;

  const double tangential = onAxis ? 1 : theta * radial / std::sin(theta);
  const double magnification = std::sqrt(fx_ * fy_ * slope * tangential);
  return Image{x, y, magnification * diameter / point.norm()};
}

std::optional<Eigen::Vector2d> FisheyeCamera::project(const Eigen::Vector3d& point) const {
  const auto image = imageOf(point, 0);
  if (!image) return std::nullopt;
  return Eigen::Vector2d(image->x, image->y);
}

FisheyeCamera cameraOf(const StereoRig& rig, Camera camera) {
  const auto& c = rig.calibration;
  if (camera == Camera::kLeft) return {c.leftIntrinsics, c.leftDistortion, rig.width, rig.height};
  return {c.rightIntrinsics, c.rightDistortion, rig.width, rig.height};
}

}  // namespace rig
