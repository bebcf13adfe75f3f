#pragma once

#include <vector>

#include <Eigen/Core>

#include <alg_factory/stereo3d/EpipolarMatcher.h>
#include <alg_factory/stereo3d/StereoPoint.h>

namespace algorithm {

/// What triangulation needs of a calibrated pair.
struct StereoRays {
  Eigen::Matrix3d leftRayInRight;     ///< R K_L^-1: left pixel to a direction in the right frame
  Eigen::Matrix3d rightRay;           ///< K_R^-1: right pixel to a direction in the right frame
  Eigen::Vector3d leftCentreInRight;  ///< T
};

/// Midpoint of the shortest segment between the two blobs' rays, in the right camera's frame
/// (Hartley and Sturm, "Triangulation", 1997). The rays are T + s dL and t dR; their closest points
/// solve [dR.dR, dR.dL; dL.dR, dL.dL] (t, -s)^T = (dR.T, dL.T)^T. Parallel rays give entries that
/// are not finite.
Eigen::Vector3d midpoint(const StereoRays& rays, const Blob2DPoint& left, const Blob2DPoint& right);

/// Appends the point of every pair that lies farther than 10.0 in front of the right camera.
void triangulate(const StereoRays& rays, const BlobPairs& pairs, int id,
                 std::vector<StereoPoint>& points);

}  // namespace algorithm
