#pragma once

#include <alg_kit/rig/StereoRig.h>

#include <optional>

namespace rig {

/// The equidistant fisheye model, forwards: a point at the angle theta from the optical axis lands
/// at theta_d = theta (1 + k1 theta^2 + k2 theta^4 + k3 theta^6 + k4 theta^8) focal lengths from
/// the principal point.
class FisheyeCamera {
 public:
  /// A marker as the camera images it.
  struct Image {
    double x = 0;         ///< pixels
    double y = 0;         ///< pixels
    double diameter = 0;  ///< pixels; of the disc with the imaged area
  };

  /// @param intrinsics  row by row, [fx, 0, cx; 0, fy, cy; 0, 0, 1]
  /// @param distortion  k1 to k4 first
  FisheyeCamera(const double (&intrinsics)[9], const double (&distortion)[8], int width,
                int height);

  /// The pixel of a point in this camera's frame; nothing for a point that is not in front of the
  /// camera, that the lens folds back (where theta_d falls as theta grows) or that lands outside
  /// the image.
  std::optional<Eigen::Vector2d> project(const Eigen::Vector3d& point) const;

  /// A ball of `diameter` (unit of `point`) around `point`. Its area follows from how much the
  /// lens magnifies there: the angle it fills is diameter / distance.
  std::optional<Image> imageOf(const Eigen::Vector3d& point, double diameter) const;

  int width() const { return width_; }
  int height() const { return height_; }
  bool contains(double x, double y) const { return x >= 0 && y >= 0 && x < width_ && y < height_; }

 private:
  double fx_, fy_, cx_, cy_;
  double k_[4];
  int width_, height_;
};

FisheyeCamera cameraOf(const StereoRig& rig, Camera camera);

}  // namespace rig
