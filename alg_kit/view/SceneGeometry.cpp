#include <alg_kit/view/SceneGeometry.h>

#include <alg_factory/stereo3d/Undistortion.h>
#include <alg_kit/rig/FisheyeCamera.h>
#include <alg_kit/rig/StereoRig.h>

#include <algorithm>
#include <cmath>

namespace view {
namespace {

using algorithm::StereoCalibration;
using Eigen::Vector2d;
using Eigen::Vector3d;

constexpr int kBorderPoints = 8;  // of each side
constexpr double kNearest = 100;  // unit of the translation; a line in the other image begins here
constexpr int kLinePoints = 48;

/// In the camera's own frame, depth 1.
Vector3d directionOf(const StereoCalibration& c, int camera, double x, double y) {
  const auto& k = camera == 0 ? c.leftIntrinsics : c.rightIntrinsics;
  std::vector<algorithm::ImagePoint> straight;
  algorithm::undistort(k, camera == 0 ? c.leftDistortion : c.rightDistortion, {{x, y}}, straight);
  return {(straight[0].x - k[2]) / k[0], (straight[0].y - k[5]) / k[4], 1};
}

/// From a camera's frame to the right camera's.
Vector3d toRight(const StereoCalibration& c, int camera, const Vector3d& point) {
  return camera == 0 ? rig::leftToRight(c, point) : point;
}

int sizeFrom(double leftCentre, double rightCentre) {
  const double size = std::ceil(leftCentre + rightCentre);
  return std::isfinite(size) ? static_cast<int>(std::clamp(size, 16.0, 16384.0)) : 640;
}

SceneCamera cameraOf(const StereoCalibration& c, int camera, int width, int height) {
  const auto scene = [&](const Vector3d& point) {
    return rig::mirrored(toRight(c, camera, point));
  };
  SceneCamera result;
  result.centre = scene(Vector3d::Zero());
  for (int axis = 0; axis < 3; ++axis)
    result.axes[static_cast<std::size_t>(axis)] = scene(Vector3d::Unit(axis)) - result.centre;
  const std::array<Vector2d, 5> corners = {Vector2d(0, 0), Vector2d(width, 0),
                                           Vector2d(width, height), Vector2d(0, height),
                                           Vector2d(0, 0)};
  for (std::size_t side = 0; side + 1 < corners.size(); ++side)
    for (int i = 0; i < kBorderPoints; ++i) {
      const Vector2d pixel =
          corners[side] + (corners[side + 1] - corners[side]) * i / kBorderPoints;
      const Vector3d direction = directionOf(c, camera, pixel.x(), pixel.y()).normalized();
      result.border.push_back(scene(direction) - result.centre);
    }
  return result;
}

}  // namespace

SceneGeometry geometryOf(const StereoCalibration& c) {
  SceneGeometry geometry;
  // A calibration does not say how large images are: their middle is near the principal point.
  geometry.width = sizeFrom(c.leftIntrinsics[2], c.rightIntrinsics[2]);
  geometry.height = sizeFrom(c.leftIntrinsics[5], c.rightIntrinsics[5]);
  for (int camera = 0; camera < 2; ++camera)
    geometry.cameras[static_cast<std::size_t>(camera)] =
        cameraOf(c, camera, geometry.width, geometry.height);
  return geometry;
}

PixelRay rayOf(const StereoCalibration& c, int camera, double x, double y, double depth) {
  const Vector3d direction = directionOf(c, camera, x, y);
  const bool fromLeft = camera == 0;
  const rig::FisheyeCamera other(fromLeft ? c.rightIntrinsics : c.leftIntrinsics,
                                 fromLeft ? c.rightDistortion : c.leftDistortion, 1 << 20, 1 << 20);
  PixelRay ray;
  ray.ends = {rig::mirrored(toRight(c, camera, Vector3d::Zero())),
              rig::mirrored(toRight(c, camera, direction * depth))};
  for (int i = 0; i <= kLinePoints; ++i) {
    // Equal steps of the inverse depth are about equal steps in the image.
    const double share = static_cast<double>(i) / kLinePoints;
    const Vector3d point = direction / ((1 - share) / kNearest + share / (20 * depth));
    const Vector3d inRight = toRight(c, camera, point);
    if (const auto pixel = other.project(fromLeft ? inRight : rig::rightToLeft(c, inRight)))
      ray.otherImage.push_back(*pixel);
  }
  return ray;
}

}  // namespace view
