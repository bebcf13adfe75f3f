#include <alg_factory/stereo3d/EpipolarLines.h>
#include <alg_factory/stereo3d/EpipolarMatcher.h>
#include <alg_factory/stereo3d/Triangulation.h>
#include <alg_factory/stereo3d/Undistortion.h>
#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/StereoFit.h>
#include <alg_kit/rig/LensGeometry.h>
#include <alg_kit/rig/StereoRig.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <limits>

namespace calibration {
namespace {

using algorithm::Blob2DPoint;
using algorithm::ImagePoint;
using algorithm::LineDirection;

/// Points of one camera as the library's matching wants them: undistorted, with their lines.
std::vector<Blob2DPoint> onLines(const algorithm::StereoCalibration& calibration,
                                 LineDirection direction,
                                 const std::vector<ImagePoint>& undistorted) {
  std::vector<Blob2DPoint> points(undistorted.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    points[i].x = undistorted[i].x;
    points[i].y = undistorted[i].y;
  }
  algorithm::drawEpipolarLines(calibration.fundamental, direction, points);
  return points;
}

std::vector<ImagePoint> undistorted(const double (&intrinsics)[9], const double (&distortion)[8],
                                    const std::vector<ImagePoint>& raw, Reading reading) {
  if (reading == Reading::kRadialTangential)
    return rig::undistortRadialTangential(intrinsics, distortion, raw);
  std::vector<ImagePoint> points;
  algorithm::undistort(intrinsics, distortion, raw, points);
  return points;
}

/// The value below which `share` of the values lie.
double quantile(std::vector<double>& values, double share) {
  if (values.empty()) return 0;
  const auto index = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + index, values.end());
  return values[static_cast<std::size_t>(index)];
}

}  // namespace

FitQuality fit(const algorithm::StereoCalibration& calibration,
               const std::vector<ObservedPair>& pairs, Reading reading) {
  FitQuality quality;
  quality.pairs = pairs.size();
  if (pairs.empty()) return quality;

  std::vector<ImagePoint> rawLeft, rawRight;
  for (const ObservedPair& pair : pairs) {
    rawLeft.push_back(pair.left);
    rawRight.push_back(pair.right);
  }
  auto left = onLines(
      calibration, LineDirection::kLeftToRight,
      undistorted(calibration.leftIntrinsics, calibration.leftDistortion, rawLeft, reading));
  auto right = onLines(
      calibration, LineDirection::kRightToLeft,
      undistorted(calibration.rightIntrinsics, calibration.rightDistortion, rawRight, reading));

  const algorithm::StereoRays rays = algorithm::raysFrom(calibration);
  std::vector<double> residuals, depths;
  std::size_t accepted = 0;
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    left[i].diameter = pairs[i].leftDiameter;
    right[i].diameter = pairs[i].rightDiameter;
    const double residual = algorithm::epipolarDistance(left[i], right[i]);
    residuals.push_back(std::isfinite(residual) ? residual : std::numeric_limits<double>::max());
    accepted += algorithm::accepted(left[i], right[i], residual);
    const Eigen::Vector3d p_R = algorithm::midpoint(rays, left[i], right[i]);
    if (p_R.z() > 0 && rig::rightToLeft(calibration, p_R).z() > 0) depths.push_back(p_R.z());
  }
  const auto share = [&](std::size_t count) {
    return static_cast<double>(count) / static_cast<double>(pairs.size());
  };
  quality.medianResidual = quantile(residuals, 0.5);
  quality.highResidual = quantile(residuals, 0.95);
  quality.accepted = share(accepted);
  quality.inFront = share(depths.size());
  quality.medianDepth = quantile(depths, 0.5);
  return quality;
}

double epipolarErrorOfFundamental(const algorithm::StereoCalibration& calibration) {
  const Eigen::Matrix3d leftMatrix = rig::matrixFrom(calibration.leftIntrinsics);
  const Eigen::Matrix3d rightMatrix = rig::matrixFrom(calibration.rightIntrinsics);
  const double baseline = baselineOf(calibration);
  std::vector<ImagePoint> left, right;
  // Up to 45 degrees off the axis, between 5 and 50 baselines away.
  for (const double depth : {5.0, 15.0, 50.0}) {
    for (int row = -4; row <= 4; ++row) {
      for (int column = -4; column <= 4; ++column) {
        const Eigen::Vector3d p_R =
            depth * baseline * Eigen::Vector3d(0.25 * column, 0.25 * row, 1);
        const Eigen::Vector3d p_L = rig::rightToLeft(calibration, p_R);
        if (!(p_L.z() > 0)) continue;
        const Eigen::Vector2d l = (leftMatrix * p_L).hnormalized();
        const Eigen::Vector2d r = (rightMatrix * p_R).hnormalized();
        left.push_back({l.x(), l.y()});
        right.push_back({r.x(), r.y()});
      }
    }
  }
  const auto leftPoints = onLines(calibration, LineDirection::kLeftToRight, left);
  const auto rightPoints = onLines(calibration, LineDirection::kRightToLeft, right);
  double sum = 0;
  for (std::size_t i = 0; i < left.size(); ++i)
    sum += algorithm::epipolarDistance(leftPoints[i], rightPoints[i]);
  return left.empty() ? std::numeric_limits<double>::quiet_NaN()
                      : sum / static_cast<double>(left.size());
}

}  // namespace calibration
