#pragma once

#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/stereo3d/ImagePoint.h>
#include <alg_factory/stereo3d/StereoCalibration.h>

namespace algorithm {

/// Removes the distortion of an equidistant fisheye lens. With (x, y) the normalised raw point and
/// r its distance from the centre, the angle theta to the optical axis solves
///   r = theta (1 + k1 theta^2 + k2 theta^4 + k3 theta^6 + k4 theta^8)
/// (Kannala and Brandt, 2006); ten fixed-point steps from theta = r find it, and the point moves to
/// distance tan(theta). The skew of the camera matrix is not used.
/// @param intrinsics  camera matrix, row by row
/// @param distortion  k1 to k4
/// @param raw         pixels
/// @param[out] undistorted  pixels of the same camera, in the order of `raw`
void undistort(const double (&intrinsics)[9], const double (&distortion)[8],
               const std::vector<ImagePoint>& raw, std::vector<ImagePoint>& undistorted);

/// As above, in place, for the centres of both cameras' blobs at once.
void undistortBoth(const StereoCalibration& calibration, std::vector<Blob2DPoint>& left,
                   std::vector<Blob2DPoint>& right);

}  // namespace algorithm
