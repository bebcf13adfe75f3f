// What the library makes of a pair of raw pixels, step by step with its own functions.
#pragma once

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/stereo3d/ImagePoint.h>
#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_factory/stereo3d/Triangulation.h>

#include <Eigen/Core>
#include <vector>

namespace calibration {

class RawTriangulation {
 public:
  explicit RawTriangulation(const algorithm::StereoCalibration& calibration);

  struct Result {
    Eigen::Vector3d position;        ///< right camera's frame; not finite for parallel rays
    double epipolarDistance = 0;     ///< px, what the matching compares with the blobs' diameter
    double signedDistances[2] = {};  ///< px, of the right and of the left point from their lines
  };

  /// Undistortion, lines, and the midpoint of the rays, as in a frame of the library.
  Result operator()(const algorithm::ImagePoint& left, const algorithm::ImagePoint& right) const;

 private:
  algorithm::StereoCalibration calibration_;
  algorithm::StereoRays rays_;
  mutable std::vector<algorithm::Blob2DPoint> left_, right_;  ///< one blob each
};

/// dP / d (left u, left v, right u, right v) by central differences, mm per pixel.
Eigen::Matrix<double, 3, 4> positionPerPixel(const RawTriangulation& triangulation,
                                             const algorithm::ImagePoint& left,
                                             const algorithm::ImagePoint& right);

}  // namespace calibration
