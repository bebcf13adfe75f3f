// How well a calibration explains blobs that both cameras saw, with the library's own geometry.
#pragma once

#include <alg_factory/stereo3d/ImagePoint.h>
#include <alg_factory/stereo3d/StereoCalibration.h>

#include <cstddef>
#include <vector>

namespace calibration {

/// A blob as both cameras reported it, distorted.
struct ObservedPair {
  algorithm::ImagePoint left;   ///< pixels
  algorithm::ImagePoint right;  ///< pixels
  int leftDiameter = 0;         ///< pixels
  int rightDiameter = 0;        ///< pixels
  int id = 0;                   ///< of the blob
  double time = 0;              ///< seconds since the recording began
};

struct FitQuality {
  std::size_t pairs = 0;
  double medianResidual = 0;  ///< mean of the two distances from the epipolar lines, pixels
  double highResidual = 0;    ///< 95 % of the pairs are below it
  double accepted = 0;        ///< share that passes the library's epipolar test
  double inFront = 0;         ///< share whose rays meet in front of both cameras
  double medianDepth = 0;     ///< of those, in the right camera's frame; 0 if there are none
};

/// Which lens model the distortion coefficients are read as.
enum class Reading { kEquidistant, kRadialTangential };

/// Measures the pairs against a calibration (F as it stands in it). Parallel rays, and residuals
/// that are no number, count as bad.
FitQuality fit(const algorithm::StereoCalibration& calibration,
               const std::vector<ObservedPair>& pairs, Reading reading = Reading::kEquidistant);

/// The mean distance in pixels between points of a grid in front of both cameras, imaged without
/// distortion by K, R and T, and the epipolar lines that F gives for their partners.
double epipolarErrorOfFundamental(const algorithm::StereoCalibration& calibration);

}  // namespace calibration
