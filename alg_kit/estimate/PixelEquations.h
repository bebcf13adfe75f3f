// Where the pair's cameras see a point, with the derivative, and what their pixels say about it.
#pragma once

#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_kit/estimate/MotionState.h>

#include <array>
#include <optional>

namespace estimate {

constexpr int kLeft = 0;  ///< the device packet's camera numbers
constexpr int kRight = 1;

/// A point's pixel and how it moves with the point: pixel(p + d) = pixel(p) + jacobian d.
struct Projection {
  Eigen::Vector2d pixel = Eigen::Vector2d::Zero();
  Eigen::Matrix<double, 2, 3> jacobian = Eigen::Matrix<double, 2, 3>::Zero();
};

/// Blob centres of one marker in one frame, pixels of the raw (distorted) image; none = not seen.
struct Sighting {
  std::optional<Eigen::Vector2d> pixel[2];  ///< left, right

  bool both() const { return pixel[kLeft] && pixel[kRight]; }
  bool any() const { return pixel[kLeft] || pixel[kRight]; }
};

inline int camerasOf(const Sighting& sighting) {
  return (sighting.pixel[kLeft] ? 1 : 0) + (sighting.pixel[kRight] ? 1 : 0);
}

/// Of a sighting what the one camera saw.
Sighting onlyOf(const Sighting& sighting, int camera);

/// ... what those cameras saw that saw the other marker too.
Sighting commonOf(const Sighting& sighting, const Sighting& other);

/// Did the same cameras see both?
inline bool areAlike(const Sighting& one, const Sighting& other) {
  return one.pixel[kLeft].has_value() == other.pixel[kLeft].has_value() &&
         one.pixel[kRight].has_value() == other.pixel[kRight].has_value();
}

/// The measurement equations. They predict raw pixels, through the lens: there the noise of a
/// blob's centre is the same in every direction and everywhere in the image, which it no longer is
/// once the lens has been undone. The lens is the equidistant model
///     theta_d = theta (1 + k1 theta^2 + k2 theta^4 + k3 theta^6 + k4 theta^8)
/// (Kannala and Brandt, PAMI 2006), as in the library. Points are in the right camera's frame.
class PixelEquations {
 public:
  explicit PixelEquations(const algorithm::StereoCalibration& calibration);

  /// Nothing for a point that is not in front of the camera or that the lens folds back.
  std::optional<Projection> project(int camera, const Eigen::Vector3d& point) const;

  /// The information of a sighting about the marker's position, linearised at `at`.
  /// @param noise  standard deviation of a centre's x and of its y, pixels
  /// @return nothing if a camera that saw the marker cannot see `at`
  std::optional<PositionInformation> information(const Sighting& sighting,
                                                 const Eigen::Vector3d& at, double noise) const;

  /// The same where both cameras' projections of `at` are known.
  using Projections = std::array<std::optional<Projection>, 2>;
  static std::optional<PositionInformation> information(const Sighting& sighting,
                                                        const Eigen::Vector3d& at,
                                                        const Projections& seen, double noise);

  /// The point that both pixels fit best (least squares of the pixels). Nothing if the rays do not
  /// meet in front of the cameras.
  std::optional<Eigen::Vector3d> triangulate(const Sighting& sighting) const;

  /// The direction, right camera's frame, not of unit length, in which the camera sees a pixel; and
  /// the camera's centre.
  std::optional<Eigen::Vector3d> rayOf(int camera, const Eigen::Vector2d& pixel) const;
  const Eigen::Vector3d& centreOf(int camera) const { return cameras_[camera].centre; }

 private:
  struct Camera {
    double fx, fy, cx, cy;
    double k[4];
    Eigen::Matrix3d R_RtoC;  ///< right camera's frame to this camera's
    Eigen::Vector3d centre;  ///< in the right camera's frame
  };
  Camera cameras_[2];
};

}  // namespace estimate
