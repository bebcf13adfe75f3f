// What a lens model says about a camera, and the one model that the library does not have.
#pragma once

#include <alg_factory/stereo3d/ImagePoint.h>

#include <optional>
#include <vector>

namespace rig {

/// The angle in radians from the optical axis of a raw point at `radius` focal lengths from the
/// principal point, by the equidistant model. Nothing beyond the radius where the lens folds back
/// (where the distorted radius stops growing with the angle).
std::optional<double> angleAtRadius(const double (&distortion)[8], double radius);

struct FieldOfView {
  double horizontal = 0;  ///< degrees, through the principal point
  double vertical = 0;    ///< degrees
  double diagonal = 0;    ///< degrees, the widest of both diagonals
  bool folds = false;     ///< the model ends before an edge or corner; the angles end there too
};

FieldOfView fieldOfView(const double (&intrinsics)[9], const double (&distortion)[8], int width,
                        int height);

/// Removes the distortion of the radial-tangential model (k1, k2, p1, p2, k3; Brown 1966, in the
/// order of OpenCV and Kalibr), by fixed-point steps. For telling whether coefficients are of that
/// model.
std::vector<algorithm::ImagePoint> undistortRadialTangential(
    const double (&intrinsics)[9], const double (&distortion)[8],
    const std::vector<algorithm::ImagePoint>& raw);

}  // namespace rig
